#include "ctl/PortCommands.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "ctl/PortArgument.h"
#include "ctl/PortSettings.h"
#include "ctl/SettingsCommands.h"
#include "ctl/StoredSettings.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"

namespace vexil {

namespace {

using PortChange = std::pair<std::string, std::string>;  // key and value

CtlResult ChangePort(int port, const std::vector<PortChange>& changes, const CtlSurroundings& surroundings) {
    std::string wrong;
    CtlResult result = ChangeSettings(
        [&](DriverConfiguration& configuration) {
            for (const auto& [key, value] : changes) {
                if (wrong.empty()) {
                    wrong = SetPortSetting(configuration, port, key, value);
                }
            }
            return wrong.empty();
        },
        "The settings of port " + std::to_string(ShownPortNumber(port)), surroundings);
    return wrong.empty() ? result : FailUsage(wrong);
}

CtlResult Switch(const CommandLine& line, bool on, std::vector<std::string> sides,
                 const CtlSurroundings& surroundings) {
    const std::optional<int> port = PortArgument(line.words[0]);
    if (!port) {
        return FailUsage(NoPort(line.words[0]));
    }
    if (line.words.size() > 1) {
        sides.assign(line.words.begin() + 1, line.words.end());
    }
    std::vector<PortChange> changes;
    for (const std::string& side : sides) {
        if (side != "in" && side != "out" && side != "pipe") {
            return FailUsage("'" + side + "' is not in, out or pipe");
        }
        changes.emplace_back(side, on ? "on" : "off");
    }
    return ChangePort(*port, changes, surroundings);
}

}  // namespace

CtlResult RunGet(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::optional<int> port = PortArgument(line.words[0]);
    if (!port) {
        return FailUsage(NoPort(line.words[0]));
    }
    const std::vector<std::string_view>& keys = PortSettingKeys();
    const bool isOne = line.words.size() > 1;
    if (isOne && std::find(keys.begin(), keys.end(), line.words[1]) == keys.end()) {
        return FailUsage("there is no key '" + line.words[1] + "'");
    }
    PlistPreferenceDomains domains(surroundings.paths);
    StoredSettings settings(domains, surroundings.log);
    DriverConfiguration configuration;
    if (!settings.Read(configuration)) {
        return Fail(kCtlFailed, settings.Problem());
    }
    if (isOne) {
        return {kCtlDone, PortSetting(configuration, *port, line.words[1]) + "\n", {}};
    }
    CtlResult result;
    for (const std::string_view key : keys) {
        result.output += std::string(key) + "=" + PortSetting(configuration, *port, key) + "\n";
    }
    return result;
}

CtlResult RunSet(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::optional<int> port = PortArgument(line.words[0]);
    if (!port) {
        return FailUsage(NoPort(line.words[0]));
    }
    std::vector<PortChange> changes;
    for (auto word = line.words.begin() + 1; word != line.words.end(); ++word) {
        const std::size_t equals = word->find('=');
        if (equals == std::string::npos) {
            return FailUsage("'" + *word + "' is not KEY=VALUE");
        }
        changes.emplace_back(word->substr(0, equals), word->substr(equals + 1));
    }
    return ChangePort(*port, changes, surroundings);
}

CtlResult RunEnable(const CommandLine& line, const CtlSurroundings& surroundings) {
    return Switch(line, true, {"in", "out"}, surroundings);
}

CtlResult RunDisable(const CommandLine& line, const CtlSurroundings& surroundings) {
    return Switch(line, false, {"in", "out", "pipe"}, surroundings);
}

CtlResult RunConnect(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::optional<int> port = PortArgument(line.words[0]);
    return port ? ChangePort(*port, {{"target", line.words[1]}, {"out", "on"}, {"pipe", "off"}}, surroundings)
                : FailUsage(NoPort(line.words[0]));
}

}  // namespace vexil
