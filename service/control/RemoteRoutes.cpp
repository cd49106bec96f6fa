#include "service/control/RemoteRoutes.h"

#include <utility>

namespace vexil {

std::optional<RemoteWish> WishOf(const Route& route) {
    if (route.destination.kind != Destination::Kind::Remote) {
        return std::nullopt;
    }
    return RemoteWish{route.computer, route.destination.port, route.destination.from};
}

std::vector<RemoteWish> WishesOf(const RouteTable& routes, const TestOutputs& tests,
                                 const DriverConfiguration& configuration, const LocalNames& names) {
    std::vector<RemoteWish> wishes;
    const auto add = [&wishes](const Route& route) {
        if (std::optional<RemoteWish> wish = WishOf(route)) {
            wishes.push_back(std::move(*wish));
        }
    };
    for (const Route& route : routes.routes) {
        add(route);
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        if (const TestOutputs::Output* test = tests.Find(port)) {
            add(MakeTestRoute(test->record, port, configuration, names));
        }
    }
    return wishes;
}

Route Resolved(Route route, const RemoteNetwork* network) {
    const std::optional<RemoteWish> wish = WishOf(route);
    if (!wish || network == nullptr) {
        return route;
    }
    RemoteAnswer answer = network->Find(*wish);
    route.destination = Destination::Remote(answer.computer, wish->port, wish->from);
    const bool isHeard = answer.computer != 0 && answer.problem.empty();
    route.problem = isHeard ? RouteProblem::None : RouteProblem::NotHeardThere;
    route.reason = std::move(answer.problem);
    route.passing = !isHeard && answer.passing;
    return route;
}

std::vector<std::string> WithOwnAddresses(std::vector<std::string> names,
                                          const DriverConfiguration& configuration, const TestOutputs& tests,
                                          const RemoteNetwork& network) {
    const auto add = [&](std::string text) {
        if (!text.empty() && network.IsThisComputer(text)) {
            names.push_back(std::move(text));
        }
    };
    for (int port = 0; port < kMaxPorts; ++port) {
        add(configuration.Hosts[port].DstHost.c_str());
        add(configuration.Hosts[port].SrcHost.c_str());
        if (const TestOutputs::Output* test = tests.Find(port)) {
            add(test->record.targetComputer);
        }
    }
    return names;
}

}  // namespace vexil
