#include "client/PortMarks.h"

#include <algorithm>

#include "shared/System/PrintableText.h"

namespace vexil {

namespace {

constexpr const char* kHidden = "Show Connectors is off: programs do not list this port.";

// The index of a port as it is shown, or nothing.
std::optional<std::size_t> IndexOf(unsigned shown) {
    const unsigned row = shown / 10 - 1;
    const unsigned column = shown % 10 - 1;
    return shown >= 11 && row < 8 && column < 8 ? std::optional<std::size_t>(row * 8 + column) : std::nullopt;
}

std::string ConnectionsText(std::uint32_t connections) {
    return connections == 0   ? "not connected"
           : connections == 1 ? "1 connection"
                              : std::to_string(connections) + " connections";
}

std::string SideText(const char* side, const EndpointReport& endpoint) {
    return side + (endpoint.name.empty() ? "" : " \"" + Printable(endpoint.name) + "\"");
}

std::string SourceText(const InputReport& input) {
    if (!input.sourceComputer && !input.sourcePort) {
        return "from any computer and port";
    }
    return "from " + (input.sourceComputer ? Printable(*input.sourceComputer) : "any computer") + ", " +
           (input.sourcePort ? "port " + std::to_string(*input.sourcePort) : "any port");
}

std::uint64_t MessagesOf(const PortReport& port) {
    return (port.output ? port.output->traffic.messages : 0) +
           (port.input ? port.input->traffic.messages : 0) + (port.test ? port.test->traffic.messages : 0);
}

class Maker {
  public:
    PortMark Make(const PortReport& port, bool playing, const StatusReport& report) {
        mark.pipe = port.pipe;
        mark.playing = playing;
        if (port.output) {
            AddOutput(*port.output, port.pipe);
        }
        if (port.input) {
            AddInput(*port.input, port.pipe);
        }
        for (const SessionReport& session : report.sessions) {
            for (const WayReport& way : session.ways) {
                const unsigned here = way.incoming ? way.to : way.from;
                mark.connected |= session.up && way.problem.empty() && here == port.port;
            }
        }
        if (playing) {
            Line("Playing now.");
        }
        return mark;
    }

  private:
    void AddOutput(const OutputReport& output, bool pipe) {
        mark.out = !pipe;
        mark.connected |= output.endpoint.connections != 0;
        const std::string target =
            pipe ? "to its own input"
            : output.target.computer.empty()
                ? "to nowhere"
                : "to " + Printable(output.target.computer) + ", port " + std::to_string(output.target.port);
        Line(SideText("MIDI OUT", output.endpoint) + " " + target + ", " +
             ConnectionsText(output.endpoint.connections) + ".");
        AddProblem(output.endpoint.problem);
        AddProblem(output.routeProblem);
        AddProblem(output.warning);
    }

    void AddInput(const InputReport& input, bool pipe) {
        mark.in = !pipe;
        mark.connected |= input.endpoint.connections != 0;
        Line(SideText("MIDI IN", input.endpoint) + " " + (pipe ? "from its own output" : SourceText(input)) +
             ", " + ConnectionsText(input.endpoint.connections) + ".");
        AddProblem(input.endpoint.problem);
    }

    void AddProblem(const std::string& problem) {
        if (!problem.empty()) {
            mark.trouble |= problem != kHidden;
            Line(Printable(problem));
        }
    }

    void Line(const std::string& line) { mark.words += (mark.words.empty() ? "" : "\n") + line; }

    PortMark mark;
};

}  // namespace

void PortMarks::Take(const StatusReport& report) {
    Counts next{};
    for (const PortReport& port : report.ports) {
        if (const std::optional<std::size_t> index = IndexOf(port.port)) {
            next[*index] = MessagesOf(port);
        }
    }
    // What plays is known from one look to the next; a status between two of them says nothing new of it.
    const bool isLook = look && *look != report.looks;
    Marks fresh{};
    for (const PortReport& port : report.ports) {
        if (const std::optional<std::size_t> index = IndexOf(port.port)) {
            const bool isPlaying = isLook ? next[*index] != counts[*index] : marks[*index].playing;
            fresh[*index] = Maker().Make(port, isPlaying, report);
        }
    }
    marks = std::move(fresh);
    if (isLook || !look) {
        counts = next;
        look = report.looks;
    }
}

void PortMarks::Clear() {
    marks = {};
    look.reset();
}

}  // namespace vexil
