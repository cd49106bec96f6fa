#include "ctl/MonitorCommand.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>

#include "client/ServiceClient.h"
#include "config/DriverConfiguration.h"
#include "ctl/AskedStatus.h"
#include "ctl/MonitorText.h"
#include "ctl/PortArgument.h"
#include "driver/MonitorPackets.h"

namespace vexil {

namespace {

// Between two tries to find a service that has gone, and between two questions for the names of ports.
constexpr std::chrono::milliseconds kAgain{1000};

class Monitor {
  public:
    Monitor(const ServiceClient& serviceClient, Console& monitorConsole, std::uint64_t monitoredPorts,
            bool json)
        : client(serviceClient), console(monitorConsole), ports(monitoredPorts), asJson(json) {}

    CtlResult Run() {
        const ServiceAnswer answer = client.Monitor(ports, stream);
        if (answer.outcome != ServiceAnswer::Outcome::Answered) {
            return Unanswered(answer);
        }
        console.HoldInterrupts();
        LearnNames();
        Show(asJson ? "" : MonitorTitle());
        while (error == 0 && (stream ? Follow() : LookAgain())) {
        }
        return error == 0 ? CtlResult{}
                          : Fail(kCtlFailed, "standard output: " + std::string(std::strerror(error)));
    }

  private:
    // False once Ctrl-C was pressed, as LookAgain.
    bool Follow() {
        if (console.WaitFor(stream->Number(), std::nullopt) == Console::Woken::Interrupt) {
            return false;
        }
        ControlReply reply;
        const int received = stream->Receive(ServiceClient::kSequence, &reply);
        if (received == EAGAIN) {
            return true;
        }
        const auto monitored =
            received == 0 ? UnpackMonitoredPieces(reply.data) : std::optional<MonitoredPieces>();
        if (monitored) {
            Show(TextOf(*monitored));
        } else {
            stream.reset();
            Show(asJson ? "" : "! The service has gone. The monitor goes on when it is back.\n");
        }
        return true;
    }

    bool LookAgain() {
        if (!console.Wait(kAgain)) {
            return false;
        }
        messages = {};
        if (client.Monitor(ports, stream).outcome == ServiceAnswer::Outcome::Answered) {
            LearnNames();
            Show(asJson ? "" : "! The service is back.\n");
        }
        return true;
    }

    std::string TextOf(const MonitoredPieces& monitored) {
        std::string text;
        if (monitored.leftOut != 0) {
            text += asJson ? LeftOutJson(monitored.leftOut) : LeftOutLine(monitored.leftOut);
        }
        // The wall clock may be set while the monitor runs.
        const auto wallNow = WallClock::now();
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        for (const MonitoredPiece& piece : monitored.pieces) {
            messages.Put(piece, [&](const MonitoredMessage& message) {
                LearnNameOf(message);
                const auto age = now - std::chrono::nanoseconds(message.time);
                const auto time = wallNow - std::chrono::duration_cast<WallClock::duration>(age);
                text += asJson ? MonitorJson(message, names, time) : MonitorLine(message, names, time);
            });
        }
        return text;
    }

    void LearnNames() {
        const AskedStatus asked = AskForStatus(client);
        if (asked.report) {
            names = NamesOfPorts(*asked.report);
        }
        askedAt = console.Now();
    }
    // A port may have come since.
    void LearnNameOf(const MonitoredMessage& message) {
        if (message.side != kMonitoredTest && !names.contains({message.port, message.side}) &&
            console.Now() - askedAt >= kAgain) {
            LearnNames();
        }
    }

    void Show(const std::string& text) {
        if (!text.empty() && error == 0) {
            error = console.Show(text);
        }
    }

    const ServiceClient& client;
    Console& console;
    const std::uint64_t ports;
    const bool asJson;
    std::unique_ptr<ControlConnection> stream;  // null: there is no service
    MonitoredMessages messages;
    MonitorNames names;
    Console::Clock::time_point askedAt;
    int error = 0;  // of standard output
};

}  // namespace

CtlResult RunMonitor(const CommandLine& line, const CtlSurroundings& surroundings) {
    std::uint64_t ports = line.words.empty() ? ~std::uint64_t{0} : 0;
    for (const std::string& word : line.words) {
        const std::optional<int> port = PortArgument(word);
        if (!port) {
            return FailUsage(NoPort(word));
        }
        ports |= std::uint64_t{1} << *port;
    }
    const ServiceClient client(surroundings.paths);
    return Monitor(client, surroundings.console, ports, line.Has("--json")).Run();
}

}  // namespace vexil
