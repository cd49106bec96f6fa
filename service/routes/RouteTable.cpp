#include "service/routes/RouteTable.h"

#include "service/routes/SourceFilter.h"

namespace vexil {

namespace {

constexpr std::uint64_t Bit(int port) {
    return std::uint64_t{1} << port;
}

// `from` is how another computer hears the source: as a port, or as the test output of one.
Route RouteTo(const std::string& computer, const PortEntry& entry, int from, int port,
              const DriverConfiguration& configuration, const LocalNames& names) {
    Route route;
    route.immediate = (entry.flags & kSendImmediately) != 0;
    route.computer = computer;
    route.port = entry.targetPort;
    if (FoldHostName(computer).empty()) {
        route.problem = RouteProblem::NoTarget;
    } else if (entry.targetPort >= kPortCount) {
        route.problem = RouteProblem::TargetPortUnused;
    } else if (!names.Contains(computer)) {
        // No network knows it: it has no number.
        route.destination = Destination::Remote(0, entry.targetPort, from);
        route.problem = RouteProblem::RemoteUnreachable;
    } else {
        route.destination = Destination::Input(entry.targetPort);
        route.problem = ProblemAtInput(configuration, entry.targetPort, names, port);
    }
    return route;
}

Route RouteOfOutput(int port, const DriverConfiguration& configuration, const LocalNames& names) {
    const PortEntry& entry = configuration.PortFlags[port];
    if (configuration.LocalPipes & Bit(port)) {
        return {Destination::Input(port), RouteProblem::None, (entry.flags & kSendImmediately) != 0,
                static_cast<std::uint8_t>(port), names.Own()};
    }
    if (!(configuration.OutputPorts & Bit(port))) {
        return {};
    }
    return RouteTo(configuration.Hosts[port].DstHost.c_str(), entry, port, port, configuration, names);
}

}  // namespace

RouteTable MakeRouteTable(const DriverConfiguration& configuration, const LocalNames& names) {
    RouteTable table;
    table.outputEndpoints = configuration.OutputPorts | configuration.LocalPipes;
    table.inputEndpoints = configuration.InputPorts | configuration.LocalPipes;
    for (int port = 0; port < kMaxPorts; ++port) {
        table.routes[static_cast<std::size_t>(port)] = RouteOfOutput(port, configuration, names);
    }
    return table;
}

Route MakeTestRoute(const TestOutputRecord& record, int port, const DriverConfiguration& configuration,
                    const LocalNames& names) {
    return RouteTo(record.targetComputer, record.entry, kMaxPorts + port, port, configuration, names);
}

}  // namespace vexil
