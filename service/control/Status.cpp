#include "service/control/Status.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "driver/ControlChannel.h"
#include "service/control/RouteText.h"
#include "shared/System/Version.h"

namespace vexil {

namespace {

using Json = nlohmann::ordered_json;

bool IsIn(std::uint64_t mask, int port) {
    return (mask >> port & 1) != 0;
}

class PortStatus {
  public:
    explicit PortStatus(const StatusSources& statusSources)
        : sources(statusSources), published(statusSources.backend.Published()) {}

    bool IsUsed(int port) const {
        return IsIn(sources.routes.outputEndpoints | sources.routes.inputEndpoints, port) ||
               sources.tests.Find(port) != nullptr;
    }

    Json Make(int port) const {
        Json json = {{"port", ShownPortNumber(port)}, {"index", port}, {"pipe", IsPipe(port)}};
        if (IsIn(sources.routes.outputEndpoints, port)) {
            json["output"] = Output(port);
        }
        if (IsIn(sources.routes.inputEndpoints, port)) {
            json["input"] = Input(port);
        }
        if (sources.tests.Find(port) != nullptr) {
            json["test"] = Test(port);
        }
        return json;
    }

  private:
    bool IsPipe(int port) const { return IsIn(sources.configuration.LocalPipes, port); }

    void AddEndpoint(Json& json, int port, bool output) const {
        const auto found =
            std::find_if(published.begin(), published.end(), [&](const PublishedEndpoint& endpoint) {
                return endpoint.port == port && endpoint.output == output;
            });
        const bool isThere = found != published.end();
        json["address"] = isThere ? found->address : "";
        json["connections"] = isThere ? found->connections : 0;
        json["problem"] = isThere ? ProblemOf(*found) : "";
    }

    // Whatever the MIDI system makes of a hidden endpoint, its user does not find it.
    std::string ProblemOf(const PublishedEndpoint& endpoint) const {
        const bool isHidden = (sources.configuration.MiscOptions & kShowConnectors) == 0;
        return endpoint.problem.empty() && isHidden
                   ? "Show Connectors is off: programs do not list this port."
                   : endpoint.problem;
    }

    static Json Target(const std::string& computer, int port) {
        return {{"computer", computer}, {"port", ShownPortNumber(port)}};
    }

    void AddRoute(Json& json, const Route& route, const std::string& computer, int port) const {
        json["route"] = RouteKindText(route.kind);
        json["routeProblem"] = RouteProblemText(route, computer, port, sources.configuration);
    }

    void AddCounters(Json& json, int source) const {
        const SourceCounters counters = sources.engine.CountersOfSource(source);
        json["messages"] = counters.messages;
        json["bytes"] = counters.bytes;
        json["filtered"] = counters.filtered;
        json["dropped"] = counters.dropped;
    }

    Json Output(int port) const {
        Json json = {{"name", sources.configuration.CustomNames[port].Out_CustomName.c_str()}};
        AddEndpoint(json, port, true);
        const std::string computer =
            IsPipe(port) ? sources.hosts.front().name : sources.configuration.Hosts[port].DstHost.c_str();
        const int targetPort = IsPipe(port) ? port : sources.configuration.PortFlags[port].targetPort;
        json["target"] = Target(computer, targetPort);
        AddRoute(json, sources.routes.routes[static_cast<std::size_t>(port)], computer, targetPort);
        AddCounters(json, port);
        return json;
    }

    Json Source(int port) const {
        if (IsPipe(port)) {
            return Target(sources.hosts.front().name, port);
        }
        const PortEntry& entry = sources.configuration.PortFlags[port];
        Json source = {{"computer", nullptr}, {"port", nullptr}};
        if ((entry.flags & kSourceComputerUnused) == 0) {
            source["computer"] = sources.configuration.Hosts[port].SrcHost.c_str();
        }
        if ((entry.flags & kSourcePortUnused) == 0) {
            source["port"] = ShownPortNumber(entry.sourcePort);
        }
        return source;
    }

    Json Input(int port) const {
        Json json = {{"name", sources.configuration.CustomNames[port].In_CustomName.c_str()}};
        AddEndpoint(json, port, false);
        json["source"] = Source(port);
        const InputCounters counters = sources.engine.CountersOfInput(port);
        json["messages"] = counters.messages;
        json["bytes"] = counters.bytes;
        return json;
    }

    Json Test(int port) const {
        const TestOutputs::Output& test = *sources.tests.Find(port);
        const int targetPort = test.record.entry.targetPort;
        Json json = {{"open", true},
                     {"active", test.active},
                     {"target", Target(test.record.targetComputer, targetPort)}};
        const Route route = MakeTestRoute(test.record, port, sources.configuration, sources.localNames);
        AddRoute(json, route, test.record.targetComputer, targetPort);
        AddCounters(json, kTestSourceBase + port);
        return json;
    }

    const StatusSources& sources;
    const std::vector<PublishedEndpoint> published;
};

std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace

std::string MakeStatus(const StatusSources& sources) {
    const DriverConfiguration& configuration = sources.configuration;
    const auto hasOption = [&](std::uint32_t option) { return (configuration.MiscOptions & option) != 0; };
    Json status = {{"version", kVersion}, {"host", sources.hosts.front().name}, {"names", sources.names}};
    status["midi"] = {{"backend", sources.backend.Name()},
                      {"running", sources.backend.IsRunning()},
                      {"problem", sources.backend.Problem()},
                      {"realtime", sources.backend.RealtimeProblem()}};
    status["attached"] = sources.attached;
    status["options"] = {{"wireless", sources.wireless},
                         {"launchMonitor", hasOption(kLaunchMonitor)},
                         {"logging", hasOption(kEnableLogging)},
                         {"showConnectors", hasOption(kShowConnectors)},
                         {"sendGranularity", sources.sendGranularity}};
    status["memory"] = sources.memory;
    status["control"] = sources.control;
    status["hosts"] = Json::array();
    for (const HostRecord& host : sources.hosts) {
        status["hosts"].push_back({{"name", host.name},
                                   {"address", AddressText(host)},
                                   {"port", host.port},
                                   {"hardware", HardwareText(host)},
                                   {"enabled", host.enabled}});
    }
    status["ports"] = Json::array();

    const PortStatus portStatus(sources);
    constexpr std::size_t kRoomForTheNumberLeftOut = 32;
    std::size_t length = Text(status).size() + kRoomForTheNumberLeftOut;
    int leftOut = 0;
    for (int port = 0; port < kMaxPorts; ++port) {
        if (!portStatus.IsUsed(port)) {
            continue;
        }
        Json json = portStatus.Make(port);
        length += Text(json).size() + 1;
        if (length > kMaxControlData) {
            ++leftOut;
        } else {
            status["ports"].push_back(std::move(json));
        }
    }
    if (leftOut != 0) {
        status["portsLeftOut"] = leftOut;
    }
    return Text(status);
}

}  // namespace vexil
