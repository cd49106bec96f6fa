// Routes to other computers: what is asked of the network for them, and what it says of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/control/RemoteNetwork.h"
#include "service/control/TestOutputs.h"
#include "service/routes/RouteTable.h"

namespace vexil {

// The way that a route to another computer is; null for any other route.
std::optional<RemoteWish> WishOf(const Route& route);
// Those of the outputs and of the test outputs that are open.
std::vector<RemoteWish> WishesOf(const RouteTable& routes, const TestOutputs& tests,
                                 const DriverConfiguration& configuration, const LocalNames& names);

// The route as it stands: one to another computer gets its number and its problem from the network. Without a
// network (null) nothing changes.
Route Resolved(Route route, const RemoteNetwork* network);

// `names`, and those targets and sources of the configuration and of test outputs that are addresses of this
// computer.
std::vector<std::string> WithOwnAddresses(std::vector<std::string> names,
                                          const DriverConfiguration& configuration, const TestOutputs& tests,
                                          const RemoteNetwork& network);

}  // namespace vexil
