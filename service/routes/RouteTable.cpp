#include "service/routes/RouteTable.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace vexil {

namespace {

constexpr std::uint64_t Bit(int port) {
    return std::uint64_t{1} << port;
}

bool EndsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// What stands between a message of this computer's port `sourcePort` and the input of `inputPort`.
RouteProblem ProblemAtInput(int sourcePort, int inputPort, const DriverConfiguration& configuration,
                            const LocalNames& names) {
    if (configuration.LocalPipes & Bit(inputPort)) {
        return RouteProblem::TargetIsPipe;
    }
    if (!(configuration.InputPorts & Bit(inputPort))) {
        return RouteProblem::TargetNotInput;
    }
    const PortEntry& filter = configuration.PortFlags[inputPort];
    if (!(filter.flags & kSourceComputerUnused) &&
        !names.Contains(configuration.Hosts[inputPort].SrcHost.c_str())) {
        return RouteProblem::WrongSourceComputer;
    }
    if (!(filter.flags & kSourcePortUnused) && filter.sourcePort != sourcePort) {
        return RouteProblem::WrongSourcePort;
    }
    return RouteProblem::None;
}

Route RouteTo(const std::string& targetComputer, const PortEntry& entry, int sourcePort,
              const DriverConfiguration& configuration, const LocalNames& names) {
    Route route;
    route.immediate = (entry.flags & kSendImmediately) != 0;
    if (FoldHostName(targetComputer).empty()) {
        route.problem = RouteProblem::NoTarget;
    } else if (entry.targetPort >= kPortCount) {
        route.problem = RouteProblem::TargetPortUnused;
    } else if (!names.Contains(targetComputer)) {
        route.kind = RouteKind::Remote;
        route.problem = RouteProblem::RemoteUnreachable;
        route.inputPort = entry.targetPort;
    } else {
        route.kind = RouteKind::LocalInput;
        route.problem = ProblemAtInput(sourcePort, entry.targetPort, configuration, names);
        route.inputPort = entry.targetPort;
    }
    return route;
}

Route RouteOfOutput(int port, const DriverConfiguration& configuration, const LocalNames& names) {
    const PortEntry& entry = configuration.PortFlags[port];
    if (configuration.LocalPipes & Bit(port)) {
        Route pipe;
        pipe.kind = RouteKind::LocalInput;
        pipe.problem = RouteProblem::None;
        pipe.inputPort = static_cast<std::uint8_t>(port);
        pipe.immediate = (entry.flags & kSendImmediately) != 0;
        return pipe;
    }
    if (!(configuration.OutputPorts & Bit(port))) {
        return {};
    }
    return RouteTo(configuration.Hosts[port].DstHost.c_str(), entry, port, configuration, names);
}

}  // namespace

std::string FoldHostName(std::string name) {
    // Letters beyond ASCII are as they are: the names of hosts have no case rules for them.
    std::transform(name.begin(), name.end(), name.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    if (EndsWith(name, ".")) {
        name.pop_back();
    }
    constexpr std::string_view kLocalDomain = ".local";
    if (EndsWith(name, kLocalDomain)) {
        name.resize(name.size() - kLocalDomain.size());
    }
    return name;
}

LocalNames::LocalNames(std::vector<std::string> names) {
    names.emplace_back("localhost");
    for (std::string& name : names) {
        std::string fold = FoldHostName(std::move(name));
        if (!fold.empty()) {
            folded.push_back(std::move(fold));
        }
    }
}

bool LocalNames::Contains(const std::string& name) const {
    return std::find(folded.begin(), folded.end(), FoldHostName(name)) != folded.end();
}

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
    return RouteTo(record.targetComputer, record.entry, port, configuration, names);
}

}  // namespace vexil
