// The names of endpoints as a MIDI system takes them: legal, not too long, and no two alike.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "service/backends/Endpoint.h"

namespace vexil {

struct NameRules {
    std::size_t longest = 0;      // bytes, without an end
    std::string_view separators;  // characters that mean something to the MIDI system; '-' stands for them
};

// One name for each endpoint, in their order. What is no UTF-8 or no character that shows becomes '?' or a
// space; a name that is too long is cut between characters; a name without anything to see becomes "Port NN".
// Of endpoints with one name the first keeps it and the others are numbered: "Piano", "Piano (2)". Which is
// first goes by port, and on one port the output comes first, whatever the order of `endpoints`.
std::vector<std::string> MakeEndpointNames(const std::vector<Endpoint>& endpoints, const NameRules& rules);

}  // namespace vexil
