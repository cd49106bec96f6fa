#include "client/StatusReport.h"

#include <limits>
#include <utility>

#include "client/ObjectReader.h"
#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

constexpr std::size_t kEndless = std::numeric_limits<std::size_t>::max();

TargetReport ReadTarget(ObjectReader target) {
    return {target.Text("computer"), target.ShownPort("port")};
}

EndpointReport ReadEndpoint(ObjectReader& side) {
    return {side.Text("name"), side.Text("address"), side.Number32("connections"), side.Text("problem")};
}

TrafficReport ReadTraffic(ObjectReader& side, bool withLosses) {
    TrafficReport traffic;
    traffic.messages = side.Number("messages");
    traffic.bytes = side.Number("bytes");
    if (withLosses) {
        traffic.filtered = side.Number("filtered");
        traffic.dropped = side.Number("dropped");
    }
    return traffic;
}

RouteEnd ReadRoute(ObjectReader& output) {
    const std::string route = output.Text("route");
    if (route == "local") {
        return RouteEnd::Local;
    }
    if (route == "remote") {
        return RouteEnd::Remote;
    }
    if (route != "nowhere") {
        output.Complain("route", "is not known");
    }
    return RouteEnd::Nowhere;
}

OutputReport ReadOutput(ObjectReader output) {
    OutputReport report;
    report.endpoint = ReadEndpoint(output);
    report.target = ReadTarget(output.Object("target"));
    report.route = ReadRoute(output);
    report.routeProblem = output.Text("routeProblem");
    report.warning = output.Has("warning") ? output.Text("warning") : "";
    report.traffic = ReadTraffic(output, true);
    return report;
}

InputReport ReadInput(ObjectReader input) {
    InputReport report;
    report.endpoint = ReadEndpoint(input);
    ObjectReader source = input.Object("source");
    if (!source.IsNull("computer")) {
        report.sourceComputer = source.Text("computer");
    }
    if (!source.IsNull("port")) {
        report.sourcePort = source.ShownPort("port");
    }
    report.traffic = ReadTraffic(input, false);
    return report;
}

TestReport ReadTest(ObjectReader test) {
    TestReport report;
    report.open = test.Flag("open");
    report.active = test.Flag("active");
    report.target = ReadTarget(test.Object("target"));
    report.routeProblem = test.Text("routeProblem");
    report.traffic = ReadTraffic(test, true);
    return report;
}

PortReport ReadPort(ObjectReader port) {
    PortReport report;
    report.port = port.ShownPort("port");
    report.pipe = port.Flag("pipe");
    if (port.Has("output")) {
        report.output = ReadOutput(port.Object("output"));
    }
    if (port.Has("input")) {
        report.input = ReadInput(port.Object("input"));
    }
    if (port.Has("test")) {
        report.test = ReadTest(port.Object("test"));
    }
    return report;
}

HostReport ReadHost(ObjectReader host) {
    HostReport report;
    report.name = host.Text("name");
    report.address = host.Text("address");
    report.hardware = host.Text("hardware");
    report.port = host.Number16("port");
    report.enabled = host.Flag("enabled");
    return report;
}

NetworkReport ReadNetwork(ObjectReader network) {
    NetworkReport report;
    report.speaks = network.Text("speaks");
    report.problem = network.Text("problem");
    report.key = network.Text("key");
    report.port = network.Number16("port");
    report.avahi = network.Has("avahi") ? network.Text("avahi") : "";
    report.remarks = network.Texts("remarks");
    if (network.Has("refused")) {
        network.Elements("refused", kEndless, [&](ObjectReader refusal) {
            report.refused.push_back({refusal.Text("name"), refusal.Text("key")});
        });
    }
    return report;
}

WayReport ReadWay(ObjectReader way) {
    return {way.ShownPort("from"), way.ShownPort("to"), way.Flag("incoming"), way.Flag("test"),
            way.Text("problem")};
}

SessionReport ReadSession(ObjectReader session) {
    SessionReport report;
    report.computer = session.Text("computer");
    report.state = session.Text("state");
    report.up = session.Flag("up");
    report.problem = session.Text("problem");
    report.address = session.Text("address");
    report.interface = session.Text("interface");
    report.wireless = session.Flag("wireless");
    report.key = session.Text("key");
    report.since = session.Has("since") ? session.Number("since") : 0;
    report.needs = session.Has("needs") ? session.Text("needs") : "";
    report.seconds = session.Number("seconds");
    if (!session.IsNull("roundTrip")) {
        report.roundTrip = session.Number32("roundTrip");
    }
    report.repaired = session.Number("repaired");
    report.lost = session.Number("lost");
    report.late = session.Number("late");
    session.Elements("ways", kEndless, [&](const ObjectReader& way) { report.ways.push_back(ReadWay(way)); });
    return report;
}

StatusReport ReadStatus(ObjectReader status) {
    StatusReport report;
    report.version = status.Text("version");
    report.host = status.Text("host");
    report.names = status.Texts("names");

    ObjectReader midi = status.Object("midi");
    report.backend = midi.Text("backend");
    report.running = midi.Flag("running");
    report.midiProblem = midi.Text("problem");
    report.realtimeProblem = midi.Text("realtime");

    report.attached = status.Flag("attached");
    ObjectReader options = status.Object("options");
    report.wireless = options.Flag("wireless");
    report.launchMonitor = options.Flag("launchMonitor");
    report.logging = options.Flag("logging");
    report.showConnectors = options.Flag("showConnectors");
    report.sendGranularity = options.Number32("sendGranularity");

    report.memory = status.Text("memory");
    report.control = status.Text("control");
    report.looks = status.Has("looks") ? status.Number("looks") : 0;
    if (status.Has("network")) {
        report.network = ReadNetwork(status.Object("network"));
    }
    status.Elements("hosts", kEndless,
                    [&](const ObjectReader& host) { report.hosts.push_back(ReadHost(host)); });
    if (status.Has("sessions")) {
        status.Elements("sessions", kEndless, [&](const ObjectReader& session) {
            report.sessions.push_back(ReadSession(session));
        });
    }
    status.Elements("ports", kMaxPorts,
                    [&](const ObjectReader& port) { report.ports.push_back(ReadPort(port)); });
    if (status.Has("portsLeftOut")) {
        report.portsLeftOut = static_cast<unsigned>(status.Number("portsLeftOut", kMaxPorts));
    }
    return report;
}

}  // namespace

std::optional<StatusReport> ReadStatusReport(std::string_view json, std::string& problem) {
    return ReadJson(json, problem, ReadStatus);
}

}  // namespace vexil
