// The routes of the outputs and of test outputs, worked out from the configuration. Plain data, made by the
// control thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "config/DriverConfiguration.h"
#include "service/routes/HostNames.h"
#include "service/routes/Route.h"

namespace vexil {

struct RouteTable {
    std::array<Route, kMaxPorts> routes;
    std::uint64_t outputEndpoints = 0;  // bit p: programs write to the port of index p
    std::uint64_t inputEndpoints = 0;   // bit p: programs read from it

    bool operator==(const RouteTable&) const = default;
};

// What a test output was opened with.
struct TestOutputRecord {
    PortEntry entry;
    std::string targetComputer;
    std::string sourceComputer;
};

// The routes of the outputs and endpoints of a configuration. A local pipe goes from its output to its input
// past every filter, whatever else the port is set to.
RouteTable MakeRouteTable(const DriverConfiguration& configuration, const LocalNames& names);
// The route of an open test output: where its record says, through the filters of the configuration's inputs.
// The port itself may be enabled, a pipe or unused.
Route MakeTestRoute(const TestOutputRecord& record, int port, const DriverConfiguration& configuration,
                    const LocalNames& names);

}  // namespace vexil
