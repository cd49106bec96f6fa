#include "service/control/ServiceReport.h"

#include <bit>
#include <utility>

#include "service/control/RouteText.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

std::string Count(std::uint64_t mask, const char* one, const char* several) {
    const int count = std::popcount(mask);
    return std::to_string(count) + (count == 1 ? one : several);
}

// "Port 12 sends to port 23 of "studio".", or why nobody hears it.
std::string WayOfOutput(int port, const DriverConfiguration& configuration, const Route& route) {
    if ((configuration.LocalPipes >> port & 1) != 0) {
        return "Port " + PortText(port) + " is a local pipe.";
    }
    const std::string problem = RouteProblemText(route, configuration);
    return problem.empty() ? "Port " + PortText(port) + " sends to port " + PortText(route.port) + " of \"" +
                                 NameText(route.computer) + "\"."
                           : "Nobody hears what is sent to port " + PortText(port) + ". " + problem;
}

}  // namespace

void ServiceReport::Configuration(const DriverConfiguration& configuration, const RouteTable& routes) {
    if (!known || Differs(*known, configuration)) {
        Line("Configuration: " + Count(configuration.OutputPorts, " output, ", " outputs, ") +
             Count(configuration.InputPorts, " input, ", " inputs, ") +
             Count(configuration.LocalPipes, " local pipe.", " local pipes."));
        known = configuration;
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        const auto index = static_cast<std::size_t>(port);
        const bool isUsed = (routes.outputEndpoints >> port & 1) != 0;
        if (isUsed && routes.routes[index].passing) {
            continue;
        }
        std::string way = isUsed ? WayOfOutput(port, configuration, routes.routes[index]) : "";
        if (way != ways[index]) {
            Line(isUsed ? way : "Port " + PortText(port) + " is no longer an output.");
            ways[index] = std::move(way);
        }
    }
}

void ServiceReport::Quantization(std::uint32_t tenths) const {
    Line("Send quantization: " + std::string(SendQuantizationText(tenths).c_str()) + " ms.");
}

void ServiceReport::Wireless(bool on) const {
    Line(on ? "Wireless is on." : "Wireless is off.");
}

void ServiceReport::PanelAttached(pid_t process) const {
    Line("The panel has attached (process " + std::to_string(process) + ").");
}

void ServiceReport::PanelDetached() const {
    Line("The panel has gone.");
}

void ServiceReport::ClientRefused(pid_t process, uid_t user) {
    LogPrintf("Process %d of user %u may not use this service and was turned away.\n",
              static_cast<int>(process), static_cast<unsigned>(user));
}

void ServiceReport::TestPlayed(int port, const Route& route, const DriverConfiguration& configuration) {
    if (std::exchange(testWasPlayed[static_cast<std::size_t>(port)], true)) {
        return;
    }
    const std::string problem = RouteProblemText(route, configuration);
    Line("Test of port " + PortText(port) +
         (problem.empty()
              ? ": its notes go to port " + PortText(route.port) + " of \"" + NameText(route.computer) + "\"."
              : ": nobody hears its notes. " + problem));
}

void ServiceReport::TestClosed(int port) {
    if (std::exchange(testWasPlayed[static_cast<std::size_t>(port)], false)) {
        Line("Test of port " + PortText(port) + " closed.");
    }
}

void ServiceReport::Loop(int port, const Route& route, std::uint64_t suspectedRate, Clock::time_point now) {
    SuspectedLoop& loop = loops[static_cast<std::size_t>(port)];
    const bool wasSuspected = std::exchange(loop.isSuspected, suspectedRate != 0);
    if (loop.isSuspected && !wasSuspected && (!loop.told || now >= *loop.told + kLoopLines)) {
        LogPrintf("%s\n", LoopText(port, route, suspectedRate).c_str());
        loop.told = now;
    }
}

void ServiceReport::Backend(const MidiBackend& backend) {
    const bool isRunning = backend.IsRunning();
    std::string problem = backend.Problem();
    std::string realtime = backend.RealtimeProblem();
    if (problem.ends_with(kIsBeingStarted)) {
        return;
    }
    if (isRunning && !backendWasRunning) {
        Line("Music programs see the ports (" + std::string(backend.Name()) + ").");
    } else if (!isRunning && (backendWasRunning || problem != backendProblem)) {
        Line("Music programs do not see the ports. " + problem);
    } else if (isRunning && problem != backendProblem) {
        Line(problem.empty() ? "The MIDI system answers again." : problem);
    }
    if (!realtime.empty() && realtime != backendRealtime) {
        Line("MIDI may come late: no realtime priority. " + realtime);
    }
    backendWasRunning = isRunning;
    backendProblem = std::move(problem);
    backendRealtime = std::move(realtime);
}

void ServiceReport::Line(const std::string& text) const {
    LogPrintfIf(enabled, "%s\n", text.c_str());
}

}  // namespace vexil
