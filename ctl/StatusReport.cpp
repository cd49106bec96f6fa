#include "ctl/StatusReport.h"

#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

using Json = nlohmann::json;

constexpr unsigned kMostShownPort = 999;  // a stored byte is shown in at most three digits

// Reads the fields of one JSON object. The first thing that is wrong anywhere becomes the problem; from then
// on values are empty.
class ObjectReader {
  public:
    ObjectReader(const Json& jsonValue, std::string jsonPlace, std::string& firstProblem)
        : value(jsonValue), place(std::move(jsonPlace)), problem(firstProblem) {
        if (!value.is_object()) {
            Complain("", "is no object");
        }
    }

    bool Has(const char* key) const { return value.is_object() && value.contains(key); }

    ObjectReader Object(const char* key) { return {Field(key), Place(key), problem}; }

    std::string Text(const char* key) {
        const Json& field = Field(key);
        if (const auto* text = field.get_ptr<const std::string*>()) {
            return *text;
        }
        return Complain(key, "is no text"), "";
    }

    bool Flag(const char* key) {
        const Json& field = Field(key);
        if (const auto* flag = field.get_ptr<const bool*>()) {
            return *flag;
        }
        return Complain(key, "is neither true nor false"), false;
    }

    std::uint64_t Number(const char* key, std::uint64_t most = std::numeric_limits<std::uint64_t>::max()) {
        const Json& field = Field(key);
        const auto* number = field.get_ptr<const Json::number_unsigned_t*>();
        if (number != nullptr && *number <= most) {
            return *number;
        }
        return Complain(key, "is no number, or out of range"), 0;
    }

    unsigned ShownPort(const char* key) { return static_cast<unsigned>(Number(key, kMostShownPort)); }

    bool IsNull(const char* key) { return Field(key).is_null() && Has(key); }

    // Calls `read` with the elements of an array of at most `most`.
    template <class Read>
    void Elements(const char* key, std::size_t most, Read read) {
        const Json& field = Field(key);
        if (!field.is_array() || field.size() > most) {
            return Complain(key, "is no list, or too long");
        }
        for (std::size_t i = 0; i < field.size(); ++i) {
            read(field[i], Place(key) + "[" + std::to_string(i) + "]");
        }
    }

    void Complain(const std::string& key, const char* what) {
        if (problem.empty()) {
            problem = (place.empty() && key.empty() ? "it" : "its " + Place(key)) + " " + what;
        }
    }

  private:
    std::string Place(const std::string& key) const {
        return place.empty() || key.empty() ? place + key : place + "." + key;
    }

    const Json& Field(const char* key) {
        static const Json kNone;
        if (!Has(key)) {
            Complain(key, "is missing");
            return kNone;
        }
        return value.find(key).value();
    }

    const Json& value;
    const std::string place;
    std::string& problem;
};

TargetReport ReadTarget(ObjectReader target) {
    return {target.Text("computer"), target.ShownPort("port")};
}

EndpointReport ReadEndpoint(ObjectReader& side) {
    return {side.Text("name"), side.Text("address"),
            static_cast<std::uint32_t>(side.Number("connections", std::numeric_limits<std::uint32_t>::max())),
            side.Text("problem")};
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
        output.Complain("route", "is none that is known");
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
    report.port = static_cast<std::uint16_t>(host.Number("port", std::numeric_limits<std::uint16_t>::max()));
    report.enabled = host.Flag("enabled");
    return report;
}

StatusReport ReadStatus(ObjectReader status, std::string& problem) {
    StatusReport report;
    report.version = status.Text("version");
    report.host = status.Text("host");
    status.Elements("names", std::numeric_limits<std::size_t>::max(),
                    [&](const Json& name, const std::string& place) {
                        if (const auto* text = name.get_ptr<const std::string*>()) {
                            report.names.push_back(*text);
                        } else {
                            status.Complain(place, "is no text");
                        }
                    });

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
    report.sendGranularity = static_cast<std::uint32_t>(
        options.Number("sendGranularity", std::numeric_limits<std::uint32_t>::max()));

    report.memory = status.Text("memory");
    report.control = status.Text("control");
    status.Elements("hosts", std::numeric_limits<std::size_t>::max(),
                    [&](const Json& host, const std::string& place) {
                        report.hosts.push_back(ReadHost({host, place, problem}));
                    });
    status.Elements("ports", kMaxPorts, [&](const Json& port, const std::string& place) {
        report.ports.push_back(ReadPort({port, place, problem}));
    });
    if (status.Has("portsLeftOut")) {
        report.portsLeftOut = static_cast<unsigned>(status.Number("portsLeftOut", kMaxPorts));
    }
    return report;
}

}  // namespace

std::optional<StatusReport> ReadStatusReport(std::string_view json, std::string& problem) {
    problem.clear();
    const Json parsed = Json::parse(json, nullptr, false);
    if (parsed.is_discarded()) {
        problem = "it is no JSON";
        return std::nullopt;
    }
    StatusReport report = ReadStatus({parsed, "", problem}, problem);
    return problem.empty() ? std::optional(std::move(report)) : std::nullopt;
}

}  // namespace vexil
