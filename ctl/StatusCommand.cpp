#include "ctl/StatusCommand.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "ctl/AskedStatus.h"
#include "ctl/PortArgument.h"
#include "ctl/StatusText.h"
#include "ctl/StatusWait.h"
#include "ctl/StatusWatch.h"
#include "ctl/TerminalText.h"

namespace vexil {

namespace {

// The ports of a status with these shown numbers.
std::string JsonOf(const std::string& status, const std::vector<unsigned>& ports) {
    nlohmann::ordered_json chosen = nlohmann::ordered_json::array();
    const auto whole = nlohmann::ordered_json::parse(status);
    for (const auto& port : whole.at("ports")) {
        if (std::find(ports.begin(), ports.end(), port.at("port").get<unsigned>()) != ports.end()) {
            chosen.push_back(port);
        }
    }
    return chosen.dump();
}

}  // namespace

CtlResult RunStatus(const CommandLine& line, const CtlSurroundings& surroundings) {
    if (line.options.size() > 1) {
        return FailUsage("'status' takes one of --json, --watch and --wait");
    }
    std::vector<unsigned> ports;
    for (const std::string& word : line.words) {
        const std::optional<int> port = PortArgument(word);
        if (!port) {
            return FailUsage(NoPort(word));
        }
        ports.push_back(ShownPortNumber(*port));
    }
    const auto textOf = [&ports](const StatusReport& status) {
        return ports.empty() ? StatusText(status) : PortsText(status, ports);
    };
    const ServiceClient client(surroundings.paths);
    if (line.Has("--watch")) {
        return WatchStatus(surroundings.paths, surroundings.console, textOf);
    }
    if (!ports.empty() && line.Has("--wait")) {
        return FailUsage("'status' waits for all ports");
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
    if (line.Has("--json")) {
        return {kCtlDone, PrintableJson(ports.empty() ? asked.json : JsonOf(asked.json, ports)) + "\n", {}};
    }
    return {kCtlDone, textOf(*asked.report), {}};
}

CtlResult RunHosts(const CommandLine& line, const CtlSurroundings& surroundings) {
    if (line.options.size() > 1) {
        return FailUsage("'hosts' takes one of --json and --watch");
    }
    if (line.Has("--watch")) {
        return WatchStatus(surroundings.paths, surroundings.console, HostsText);
    }
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
