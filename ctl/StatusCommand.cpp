#include "ctl/StatusCommand.h"

#include <nlohmann/json.hpp>

#include "ctl/AskedStatus.h"
#include "ctl/StatusText.h"
#include "ctl/StatusWait.h"
#include "ctl/StatusWatch.h"
#include "ctl/TerminalText.h"

namespace vexil {

CtlResult RunStatus(const CommandLine& line, const CtlSurroundings& surroundings) {
    if (line.options.size() > 1) {
        return FailUsage("'status' takes one of --json, --watch and --wait");
    }
    const ServiceClient client(surroundings.paths);
    if (line.Has("--watch")) {
        return WatchStatus(surroundings.paths, surroundings.console);
    }
    if (line.Has("--wait")) {
        const std::optional<std::chrono::seconds> patience = ReadPatience(line.options.at("--wait"));
        return patience ? WaitForRoutes(client, *patience, surroundings.console)
                        : FailUsage("--wait takes at most " + std::to_string(kLongestPatience.count()) +
                                    " seconds");
    }
    const AskedStatus asked = AskForStatus(client);
    if (!asked.report) {
        return Fail(asked.Failure(), asked.problem);
    }
    return {kCtlDone, line.Has("--json") ? PrintableJson(asked.json) + "\n" : StatusText(*asked.report), {}};
}

CtlResult RunHosts(const CommandLine& line, const CtlSurroundings& surroundings) {
    const AskedStatus asked = AskForStatus(ServiceClient(surroundings.paths));
    if (!asked.report) {
        return Fail(asked.Failure(), asked.problem);
    }
    if (!line.Has("--json")) {
        return {kCtlDone, HostsText(*asked.report), {}};
    }
    return {kCtlDone, PrintableJson(nlohmann::json::parse(asked.json).at("hosts").dump()) + "\n", {}};
}

}  // namespace vexil
