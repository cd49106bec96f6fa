#include "service/control/Status.h"

#include <algorithm>
#include <functional>
#include <nlohmann/json.hpp>
#include <utility>

#include "driver/ControlChannel.h"
#include "service/control/RemoteRoutes.h"
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

    void AddRoute(Json& json, const Route& route) const {
        json["target"] = Target(route.computer, route.port);
        json["route"] = DestinationText(route.destination.kind);
        json["routeProblem"] = RouteProblemText(route, sources.configuration);
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
        const Route& route = sources.routes.routes[static_cast<std::size_t>(port)];
        AddRoute(json, route);
        json["warning"] = LoopText(port, route, sources.engine.SuspectedRate(port));
        AddCounters(json, port);
        return json;
    }

    Json Source(int port) const {
        if (IsPipe(port)) {
            return Target(sources.localNames.Own(), port);
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
        Json json = {{"open", true}, {"active", test.active}};
        AddRoute(json, Resolved(MakeTestRoute(test.record, port, sources.configuration, sources.localNames),
                                sources.network));
        AddCounters(json, kTestSourceBase + port);
        return json;
    }

    const StatusSources& sources;
    const std::vector<PublishedEndpoint> published;
};

std::string Text(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

constexpr const char* kPorts = "ports";

// One entry of one of the lists, made when it is told.
struct Entry {
    const char* list;
    std::function<Json()> make;
};

Json Host(const HostRecord& host) {
    return {{"name", host.name},
            {"address", AddressText(host)},
            {"port", host.port},
            {"hardware", HardwareText(host)},
            {"enabled", host.enabled}};
}

Json Session(const RemoteSession& session) {
    Json json = {
        {"computer", session.computer}, {"state", session.state},     {"up", session.up},
        {"problem", session.problem},   {"address", session.address}, {"interface", session.interface},
        {"wireless", session.wireless}, {"key", session.key},         {"seconds", session.seconds}};
    json["since"] = session.since;
    json["needs"] = session.needs;
    json["roundTrip"] = session.roundTrip ? Json(*session.roundTrip) : Json(nullptr);
    json["repaired"] = session.repaired;
    json["lost"] = session.lost;
    json["late"] = session.late;
    json["ways"] = Json::array();
    for (const RemoteWay& way : session.ways) {
        json["ways"].push_back({{"from", ShownPortNumber(way.from)},
                                {"to", ShownPortNumber(way.to)},
                                {"incoming", way.incoming},
                                {"test", way.test},
                                {"problem", way.problem}});
    }
    return json;
}

// All but the entries of the lists.
Json Head(const StatusSources& sources) {
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
    const RemoteStatus& remote = sources.remote;
    status["network"] = {{"speaks", remote.speaks}, {"problem", remote.problem}, {"key", remote.key},
                         {"port", remote.port},     {"avahi", remote.avahi},     {"remarks", remote.remarks}};
    Json& refused = status["network"]["refused"] = Json::array();
    for (const RemoteRefusal& each : remote.refused) {
        refused.push_back({{"name", each.name}, {"key", each.key}});
    }
    status["memory"] = sources.memory;
    status["control"] = sources.control;
    status["looks"] = sources.looks;
    status["hosts"] = Json::array();
    status["sessions"] = Json::array();
    status[kPorts] = Json::array();
    return status;
}

// Of all lists, in their order. What it refers to must outlive it.
std::vector<Entry> Entries(const StatusSources& sources, const PortStatus& portStatus) {
    std::vector<Entry> entries;
    for (const HostRecord& host : sources.hosts) {
        entries.push_back({"hosts", [&host] { return Host(host); }});
    }
    for (const RemoteSession& session : sources.remote.sessions) {
        entries.push_back({"sessions", [&session] { return Session(session); }});
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        if (portStatus.IsUsed(port)) {
            entries.push_back({kPorts, [&portStatus, port] { return portStatus.Make(port); }});
        }
    }
    return entries;
}

// Leaves out what may differ although the status has not changed.
void EraseMoments(Json& json) {
    for (const char* key : {"seconds", "roundTrip", "messages", "bytes", "filtered", "dropped", "looks"}) {
        json.erase(key);
    }
    for (const char* side : {"output", "input", "test"}) {
        if (json.contains(side)) {
            EraseMoments(json[side]);
        }
    }
}

}  // namespace

std::string MakeStatus(const StatusSources& sources, std::size_t first) {
    const PortStatus portStatus(sources);
    const std::vector<Entry> entries = Entries(sources, portStatus);

    Json status = Head(sources);
    constexpr std::size_t kRoomForWhatIsLeft = 64;
    const std::size_t headLength = Text(status).size() + kRoomForWhatIsLeft;
    std::size_t length = headLength;
    for (std::size_t at = first; at < entries.size(); ++at) {
        Json json = entries[at].make();
        const std::size_t more = Text(json).size() + 1;
        if (headLength + more > kMaxControlData) {
            continue;
        }
        if (length + more > kMaxControlData) {
            status["next"] = at;
            status["portsLeftOut"] =
                std::count_if(entries.begin() + static_cast<std::ptrdiff_t>(at), entries.end(),
                              [](const Entry& entry) { return entry.list == kPorts; });
            break;
        }
        length += more;
        status[entries[at].list].push_back(std::move(json));
    }
    return Text(status);
}

std::string MakeStatusDigest(const StatusSources& sources) {
    const PortStatus portStatus(sources);
    Json head = Head(sources);
    EraseMoments(head);
    std::string digest = Text(head);
    for (const Entry& entry : Entries(sources, portStatus)) {
        Json json = entry.make();
        EraseMoments(json);
        digest += Text(json);
    }
    return digest;
}

}  // namespace vexil
