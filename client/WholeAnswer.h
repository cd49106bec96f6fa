// An answer of the service with lists that one reply may have no room for.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/ServiceClient.h"

namespace vexil {

// Asks until nothing is left, and joins these lists of the answers into the first one. `ask` asks for the
// entries from `first` on. The first answer that fails is returned as it is; so is one that is no JSON
// object, which is for the caller to find. What a service says again and again is not asked for without end.
ServiceAnswer AskWhole(const std::function<ServiceAnswer(std::uint32_t first)>& ask,
                       const std::vector<std::string>& lists);

}  // namespace vexil
