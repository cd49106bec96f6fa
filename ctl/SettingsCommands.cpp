#include "ctl/SettingsCommands.h"

#include <fcntl.h>

#include <optional>

#include "client/ServiceClient.h"
#include "client/StatusReport.h"
#include "config/DriverConfiguration.h"
#include "ctl/SettingsCheck.h"
#include "ctl/StoredSettings.h"
#include "ctl/WholeFile.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"

namespace vexil {

namespace {

std::optional<StatusReport> AskStatus(const ServiceClient& client) {
    std::string problem;
    return ReadStatusReport(client.AskStatus().data, problem);
}

void TellService(const ServiceClient& client, CtlResult& result) {
    const ServiceAnswer answer = client.AskReload();
    switch (answer.outcome) {
        case ServiceAnswer::Outcome::Answered:
            result.output += "The service has taken them up.\n";
            break;
        case ServiceAnswer::Outcome::Absent:
            result.output += "No service is running; it takes them up when it starts.\n";
            break;
        case ServiceAnswer::Outcome::Failed:
            result.status = kCtlFailed;
            result.errors += ErrorLines("the service has not taken them up: " + answer.problem);
            break;
    }
}

// What takes effect later than the rest.
std::string PanelNote(const std::optional<StatusReport>& status, const StoredSettings& settings) {
    if (status && status->attached) {
        std::string note =
            "A control panel is open: it shows the settings that it had, and Apply there stores those.\n";
        if (settings.WirelessWish() != status->wireless) {
            note += "Use Wireless is not stored: the open panel stores its own choice when it ends.\n";
        }
        return note;
    }
    return settings.WirelessChanged() ? "Use Wireless takes effect when the control panel starts next.\n"
                                      : "";
}

// The settings of a file, or the defaults where `file` is empty.
CtlResult Load(const std::string& file, bool replace, const CtlSurroundings& surroundings) {
    const ServiceClient client(surroundings.paths);
    PlistPreferenceDomains domains(surroundings.paths);
    StoredSettings settings(domains, surroundings.log);
    // An open panel does not read the configuration again. Where the service cannot tell, none is open.
    std::optional<StatusReport> status;
    const LoadWishes wishes{.fromDefaults = replace, .isPanelOpen = [&] {
                                status = AskStatus(client);
                                return status && status->attached;
                            }};
    const bool isFile = !file.empty();
    const StoredSettings::Outcome outcome =
        isFile ? settings.Load(file, wishes) : settings.LoadDefaults(wishes);
    if (outcome == StoredSettings::Outcome::Failed) {
        return Fail(kCtlFailed, settings.Problem());
    }
    const std::string what = isFile ? "The settings of " + file : "The default settings";
    CtlResult result{kCtlDone, what + " are stored.\n",
                     ErrorLines(settings.Problem()) + ErrorLines(RemarkLines(file, settings.Remarks()))};
    if (outcome == StoredSettings::Outcome::Corrected) {
        result.errors += ErrorLines("no port is enabled in them, so the output of port " +
                                    std::to_string(ShownPortNumber(0)) + " was");
    }
    TellService(client, result);
    result.output += PanelNote(status, settings);
    return result;
}

}  // namespace

CtlResult RunLoad(const CommandLine& line, const CtlSurroundings& surroundings) {
    return Load(line.words[0], line.Has("--replace"), surroundings);
}

CtlResult RunDefaults(const CommandLine&, const CtlSurroundings& surroundings) {
    return Load("", false, surroundings);
}

CtlResult RunCheck(const CommandLine& line, const CtlSurroundings&) {
    const std::string& file = line.words[0];
    std::string text;
    std::string reason = FileObstacle(file, O_RDONLY);
    if (reason.empty()) {
        reason = ReadWholeFile(file, text);
    }
    if (!reason.empty()) {
        return Fail(kCtlFailed, file + " cannot be read: " + reason);
    }
    const SettingsFindings findings = CheckSettings(text);
    const std::string remarks = RemarkLines(file, findings.remarks);
    if (!findings.holdsSettings) {
        return {kCtlFailed, remarks, ErrorLines(file + " is no settings file")};
    }
    if (remarks.empty()) {
        return {kCtlDone, "Everything in " + file + " is understood.\n", {}};
    }
    return {kCtlFailed, remarks, {}};
}

CtlResult RunSave(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::string& file = line.words[0];
    PlistPreferenceDomains domains(surroundings.paths);
    StoredSettings settings(domains, surroundings.log);
    if (!settings.Save(file)) {
        return Fail(kCtlFailed, settings.Problem());
    }
    return {kCtlDone, "The stored settings are saved in " + file + ".\n", ErrorLines(settings.Problem())};
}

CtlResult RunReload(const CommandLine&, const CtlSurroundings& surroundings) {
    const ServiceAnswer answer = ServiceClient(surroundings.paths).AskReload();
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        return Unanswered(answer);
    }
    return {kCtlDone, "The service has read the stored settings.\n", {}};
}

}  // namespace vexil
