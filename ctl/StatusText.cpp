#include "ctl/StatusText.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ctl/SessionText.h"
#include "ctl/TerminalText.h"
#include "ctl/TextTable.h"
#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

// Columns of the table of ports.
constexpr std::size_t kEndpointColumn = 2;

std::string BackendName(const std::string& backend) {
    if (backend == "jack") {
        return "JACK";
    }
    if (backend == "alsa") {
        return "ALSA";
    }
    return Printable(backend);
}

std::string MidiText(const StatusReport& status) {
    if (status.backend == "none") {
        return "none";
    }
    std::string text = BackendName(status.backend) + (status.running ? ", running" : ", not running");
    if (!status.midiProblem.empty()) {
        text += ": " + Printable(status.midiProblem);
    }
    return text;
}

std::string OptionsText(const StatusReport& status) {
    std::string text;
    const auto add = [&text](bool on, const char* name) {
        if (on) {
            text += (text.empty() ? "" : ", ") + std::string(name);
        }
    };
    add(status.showConnectors, "Show Connectors");
    add(status.launchMonitor, "Launch Monitor");
    add(status.logging, "Enable Logging");
    add(status.wireless, "Use Wireless");
    return text.empty() ? "none" : text;
}

std::string QuantizationText(std::uint32_t tenths) {
    if (tenths == 0) {
        return "0.0 ms, messages are sent at once";
    }
    return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " ms";
}

std::string ServiceText(const StatusReport& status) {
    std::string text;
    const std::string title = "Vexil III " + Printable(status.version) + " on " + Printable(status.host);
    for (const std::string& line : WrapText(title, kTerminalWidth)) {
        text += line + "\n";
    }
    text += LabelledText("MIDI system", MidiText(status));
    if (!status.realtimeProblem.empty()) {
        text += LabelledText("Realtime", "no: " + Printable(status.realtimeProblem));
    }
    text += LabelledText("Memory", Printable(status.memory));
    text += LabelledText("Control panel", status.attached ? "attached" : "not attached");
    text += LabelledText("Options", OptionsText(status));
    text += LabelledText("Quantization", QuantizationText(status.sendGranularity));
    std::string names;
    for (const std::string& name : status.names) {
        names += (names.empty() ? "" : ", ") + Printable(name);
    }
    text += LabelledText("Own names", names);
    text += LabelledText("Control", Printable(status.control));
    return text + NetworkText(status);
}

std::string TargetText(const TargetReport& target) {
    if (target.computer.empty()) {
        return "nowhere";
    }
    return "to " + Printable(target.computer) + ", port " + std::to_string(target.port);
}

std::string SourceText(const InputReport& input) {
    if (!input.sourceComputer && !input.sourcePort) {
        return "from any";
    }
    return "from " + (input.sourceComputer ? Printable(*input.sourceComputer) : "any") + ", " +
           (input.sourcePort ? "port " + std::to_string(*input.sourcePort) : "any port");
}

// The address, or what an endpoint without an address is called.
std::string EndpointText(const EndpointReport& endpoint, const PortReport& port) {
    if (!endpoint.address.empty()) {
        return Printable(endpoint.address);
    }
    return endpoint.name.empty() ? "Port " + std::to_string(port.port) : Printable(endpoint.name);
}

std::string LossesText(const TrafficReport& traffic) {
    std::string text;
    if (traffic.filtered != 0) {
        text = CountText(traffic.filtered) + " filtered";
    }
    if (traffic.dropped != 0) {
        text += (text.empty() ? "" : ", ") + CountText(traffic.dropped) + " dropped";
    }
    return text;
}

class PortTable {
  public:
    // `problemOfAll` is not repeated with each port.
    explicit PortTable(std::string problemOfAll)
        : knownProblem(std::move(problemOfAll)),
          table({{"PORT", 4},
                 {"SIDE", 4},
                 {"ENDPOINT", 24},
                 {"LINKS", 5, true},
                 {"ROUTE", 21},
                 {"MESSAGES", 8, true},
                 {"BYTES", 8, true}}) {}

    void Add(const PortReport& port) {
        label = std::to_string(port.port);
        if (port.output) {
            AddOutput(*port.output, port);
        }
        if (port.input) {
            AddInput(*port.input, port);
        }
        if (port.test) {
            AddTest(*port.test);
        }
        // A port is listed for a side of it; one without any says at least that it is there.
        if (!label.empty()) {
            table.AddRow({label, port.pipe ? "pipe" : "", "", "", "", "", ""});
        }
    }

    void AddLeftOut(unsigned ports) {
        if (ports != 0) {
            table.AddNote(0, "! " + std::to_string(ports) +
                                 (ports == 1 ? " more port is" : " more ports are") +
                                 " in use, for which the answer had no room.");
        }
    }

    std::string Text() const {
        return table.Text() + "\n" + LabelledText("Sent", TotalText(sent) + "; " + LossTotal()) +
               LabelledText("Received", TotalText(received));
    }

  private:
    void AddOutput(const OutputReport& output, const PortReport& port) {
        AddRow("out", EndpointText(output.endpoint, port), std::to_string(output.endpoint.connections),
               port.pipe ? "to its own input" : TargetText(output.target), output.traffic);
        AddProblem(output.endpoint.problem);
        AddProblem(output.routeProblem);
        if (output.route == RouteEnd::Nowhere && !output.target.computer.empty() &&
            output.routeProblem.empty()) {
            AddProblem("What is sent there arrives nowhere.");
        }
        AddProblem(output.warning);
        AddLosses(output.traffic);
        Count(output.traffic, sent);
    }

    void AddInput(const InputReport& input, const PortReport& port) {
        AddRow("in", EndpointText(input.endpoint, port), std::to_string(input.endpoint.connections),
               port.pipe ? "from its own output" : SourceText(input), input.traffic);
        AddProblem(input.endpoint.problem);
        Count(input.traffic, received);
    }

    void AddTest(const TestReport& test) {
        const std::string state = !test.open ? "closed" : test.active ? "open" : "open, not active";
        AddRow("test", state, "", TargetText(test.target), test.traffic);
        AddProblem(test.routeProblem);
        AddLosses(test.traffic);
        Count(test.traffic, sent);
    }

    // The number of the port stands in front of the first of its sides.
    void AddRow(const char* side, const std::string& endpoint, const std::string& links,
                const std::string& route, const TrafficReport& traffic) {
        table.AddRow(
            {label, side, endpoint, links, route, CountText(traffic.messages), CountText(traffic.bytes)});
        label.clear();
    }

    void AddProblem(const std::string& problem) {
        if (!problem.empty() && problem != knownProblem) {
            table.AddNote(kEndpointColumn, "! " + Printable(problem));
        }
    }

    void AddLosses(const TrafficReport& traffic) {
        const std::string losses = LossesText(traffic);
        if (!losses.empty()) {
            table.AddNote(kEndpointColumn, (traffic.dropped != 0 ? "! " : "") + losses);
        }
    }

    static void Count(const TrafficReport& traffic, TrafficReport& total) {
        total.messages += traffic.messages;
        total.bytes += traffic.bytes;
        total.filtered += traffic.filtered;
        total.dropped += traffic.dropped;
    }

    static std::string TotalText(const TrafficReport& total) {
        return CountText(total.messages) + " messages, " + CountText(total.bytes) + " bytes";
    }

    std::string LossTotal() const {
        return CountText(sent.filtered) + " filtered, " + CountText(sent.dropped) + " dropped";
    }

    const std::string knownProblem;
    TextTable table;
    std::string label;  // of the port that is being added, until it is written
    TrafficReport sent;
    TrafficReport received;
};

}  // namespace

std::string CountText(std::uint64_t count) {
    constexpr std::uint64_t kMostInFull = 99'999'999;
    constexpr std::array kUnits = {' ', 'k', 'M', 'G', 'T', 'P', 'E'};
    if (count <= kMostInFull) {
        return std::to_string(count);
    }
    std::size_t unit = 0;
    std::uint64_t tenths = 0;
    while (count >= 100'000) {
        tenths = count % 1000 / 100;
        count /= 1000;
        ++unit;
    }
    return std::to_string(count) + "." + std::to_string(tenths) + kUnits[unit];
}

std::string ShortCountText(std::uint64_t count) {
    constexpr std::uint64_t kMostInFull = 99'999;
    constexpr std::array kUnits = {'k', 'M', 'G', 'T', 'P', 'E'};
    if (count <= kMostInFull) {
        return std::to_string(count);
    }
    std::size_t unit = 0;
    for (count /= 1000; count >= 10'000; count /= 1000) {
        ++unit;
    }
    return std::to_string(count) + kUnits[unit];
}

std::string StatusText(const StatusReport& status) {
    std::string text = ServiceText(status) + "\n";
    if (status.ports.empty() && status.portsLeftOut == 0) {
        return text + "No port is in use.\n" + SessionsText(status);
    }
    PortTable table(status.midiProblem);
    for (const PortReport& port : status.ports) {
        table.Add(port);
    }
    table.AddLeftOut(status.portsLeftOut);
    return text + table.Text() + SessionsText(status);
}

std::string PortsText(const StatusReport& status, const std::vector<unsigned>& ports) {
    PortTable table("");
    std::string unused;
    bool isAny = false;
    for (const unsigned shown : ports) {
        const auto port = std::find_if(status.ports.begin(), status.ports.end(),
                                       [shown](const PortReport& each) { return each.port == shown; });
        if (port == status.ports.end()) {
            unused += "Port " + std::to_string(shown) + " is not in use.\n";
        } else {
            table.Add(*port);
            isAny = true;
        }
    }
    return (isAny ? table.Text() : "") + unused;
}

std::string HostsText(const StatusReport& status) {
    if (status.hosts.empty()) {
        return "No computers are known.\n";
    }
    TextTable table({{"NAME", 28}, {"ADDRESS", 15}, {"PORT", 5, true}, {"HARDWARE", 17}, {"ENABLED", 7}});
    for (const HostReport& host : status.hosts) {
        table.AddRow({Printable(host.name), Printable(host.address), std::to_string(host.port),
                      Printable(host.hardware), host.enabled ? "yes" : "no"});
    }
    return table.Text();
}

}  // namespace vexil
