#include "ctl/StatusWait.h"

#include <algorithm>
#include <charconv>

#include "ctl/AskedStatus.h"

namespace vexil {

namespace {

constexpr std::chrono::milliseconds kInterval{250};  // from one look to the next

std::string RouteLine(const std::string& name, const TargetReport& target, const std::string& problem) {
    const std::string to =
        target.computer.empty() ? "" : " to " + target.computer + ", port " + std::to_string(target.port);
    return "\n" + name + to + ": " + problem;
}

// A line, each begun by a line feed, for each route that does not get through.
std::string BrokenRoutes(const StatusReport& report) {
    std::string lines;
    for (const PortReport& port : report.ports) {
        const std::string name = "port " + std::to_string(port.port);
        if (port.output && !port.output->routeProblem.empty()) {
            lines += RouteLine(name, port.output->target, port.output->routeProblem);
        }
        if (port.test && port.test->open && !port.test->routeProblem.empty()) {
            lines += RouteLine("test output of " + name, port.test->target, port.test->routeProblem);
        }
    }
    if (report.portsLeftOut != 0) {
        lines += "\n" + std::to_string(report.portsLeftOut) + " more, for which the answer had no room";
    }
    return lines;
}

CtlResult TimeOut(const AskedStatus& asked, const std::string& broken, std::chrono::seconds patience) {
    const std::string time =
        std::to_string(patience.count()) + (patience.count() == 1 ? " second" : " seconds");
    return asked.report ? Fail(kCtlFailed, "after " + time + " not every route gets through:" + broken)
                        : Fail(asked.Failure(), "after " + time + ": " + asked.problem);
}

}  // namespace

std::optional<std::chrono::seconds> ReadPatience(const std::string& digits) {
    if (digits.empty()) {
        return kUsualPatience;
    }
    int seconds = 0;
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, seconds);
    const bool isRead = read.ec == std::errc() && read.ptr == end && seconds <= kLongestPatience.count();
    return isRead ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
}

CtlResult WaitForRoutes(const ServiceClient& client, std::chrono::seconds patience, Console& console) {
    const Console::Clock::time_point end = console.Now() + patience;
    for (;;) {
        const AskedStatus asked = AskForStatus(client);
        const std::string broken = asked.report ? BrokenRoutes(*asked.report) : "";
        if (asked.report && broken.empty()) {
            return {kCtlDone, "Every route gets through.\n", {}};
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - console.Now());
        if (left.count() <= 0 || !console.Wait(std::min(left, kInterval))) {
            return TimeOut(asked, broken, patience);
        }
    }
}

}  // namespace vexil
