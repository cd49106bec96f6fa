// The names of endpoints as a MIDI system takes them: legal, not too long, and no two alike.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/backends/Endpoint.h"

namespace vexil {

struct NameRules {
    std::size_t longest = 0;      // bytes, without an end
    std::string_view separators;  // characters that mean something to the MIDI system; '-' stands for them
    // " out" follows the name of what programs write to, " in" that of what they read from: neither changes
    // when the other comes or goes.
    bool directions = false;
};

// What the user calls the outputs (or the inputs) of all ports, by port, whether in use or not: a name never
// depends on what else is there at the moment. A port without a name of its own is "Port 17". Of ports with
// one name the first keeps it, and the others have their number in it: "Piano 17".
std::array<std::string, kMaxPorts> MakePortNames(const DriverConfiguration& configuration, bool outputs);

// One name for each endpoint, in their order. What is no UTF-8 or no character that shows becomes '?' or a
// space; a name that is too long is cut between characters; a name without anything to see becomes "Port NN".
// Of endpoints with one name the first keeps it and the others are numbered: "Piano", "Piano (2)". Which is
// first goes by port, and on one port the output comes first, whatever the order of `endpoints`.
std::vector<std::string> MakeEndpointNames(const std::vector<Endpoint>& endpoints, const NameRules& rules);

}  // namespace vexil
