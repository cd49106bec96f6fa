#include "ctl/SettingsCommands.h"

#include <fcntl.h>

#include <cstring>
#include <functional>
#include <optional>
#include <utility>

#include "client/ServiceClient.h"
#include "client/StatusReport.h"
#include "config/DriverConfiguration.h"
#include "config/SafeRewrite.h"
#include "ctl/SettingsCheck.h"
#include "ctl/StoredSettings.h"
#include "ctl/TemporaryFile.h"
#include "ctl/WholeFile.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "shared/System/PrintableText.h"

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

constexpr const char* kStandardStream = "-";

// How `store` stores something, and what follows from it.
CtlResult StoreSettings(
    const CtlSurroundings& surroundings, const std::string& what, const std::string& file,
    const std::function<StoredSettings::Outcome(StoredSettings&, const LoadWishes&)>& store) {
    const ServiceClient client(surroundings.paths);
    PlistPreferenceDomains domains(surroundings.paths);
    StoredSettings settings(domains, surroundings.log);
    // An open panel does not read the configuration again. Where the service cannot tell, none is open.
    std::optional<StatusReport> status;
    const LoadWishes wishes{.isPanelOpen = [&] {
        status = AskStatus(client);
        return status && status->attached;
    }};
    const StoredSettings::Outcome outcome = store(settings, wishes);
    if (outcome == StoredSettings::Outcome::Failed) {
        return Fail(kCtlFailed, settings.Problem());
    }
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

// The path in a text becomes the name by which the person knows the file.
std::string Renamed(std::string text, const std::string& path, const std::string& name) {
    for (std::size_t at = text.find(path); at != std::string::npos; at = text.find(path, at + name.size())) {
        text.replace(at, path.size(), name);
    }
    return text;
}

CtlResult CannotRead() {
    return Fail(kCtlFailed, "standard input cannot be read, or is too large");
}

CtlResult LoadFile(const std::string& path, const std::string& name, bool replace,
                   const CtlSurroundings& surroundings) {
    CtlResult result = StoreSettings(surroundings, "The settings of " + name, name,
                                     [&](StoredSettings& settings, LoadWishes wishes) {
                                         wishes.fromDefaults = replace;
                                         return settings.Load(path, wishes);
                                     });
    result.errors = Renamed(result.errors, path, name);
    return result;
}

}  // namespace

CtlResult ChangeSettings(const std::function<bool(DriverConfiguration&)>& edit, const std::string& what,
                         const CtlSurroundings& surroundings) {
    return StoreSettings(surroundings, what, "", [&](StoredSettings& settings, const LoadWishes& wishes) {
        return settings.Edit(edit, wishes);
    });
}

CtlResult RunLoad(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::string& file = line.words[0];
    const bool replace = line.Has("--replace");
    if (file != kStandardStream) {
        return LoadFile(file, file, replace, surroundings);
    }
    const std::optional<std::string> text = surroundings.console.ReadAll(kMaxRewriteBytes);
    if (!text) {
        return CannotRead();
    }
    const TemporaryFile temporary(*text);
    return temporary.Problem().empty() ? LoadFile(temporary.Path(), "standard input", replace, surroundings)
                                       : Fail(kCtlFailed, temporary.Problem());
}

CtlResult RunDefaults(const CommandLine&, const CtlSurroundings& surroundings) {
    return StoreSettings(
        surroundings, "The default settings", "",
        [](StoredSettings& settings, const LoadWishes& wishes) { return settings.LoadDefaults(wishes); });
}

CtlResult RunCheck(const CommandLine& line, const CtlSurroundings& surroundings) {
    const bool isStream = line.words[0] == kStandardStream;
    const std::string file = isStream ? "standard input" : line.words[0];
    std::string text;
    if (isStream) {
        std::optional<std::string> read = surroundings.console.ReadAll(kMaxRewriteBytes);
        if (!read) {
            return CannotRead();
        }
        text = std::move(*read);
    } else {
        std::string reason = FileObstacle(file, O_RDONLY);
        if (reason.empty()) {
            reason = ReadWholeFile(file, text);
        }
        if (!reason.empty()) {
            return Fail(kCtlFailed, file + " cannot be read: " + reason);
        }
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

namespace {

// A file gets the names as they are, a terminal without what would change its state.
CtlResult SaveToStream(StoredSettings& settings, Console& console) {
    const TemporaryFile temporary("");
    if (!temporary.Problem().empty()) {
        return Fail(kCtlFailed, temporary.Problem());
    }
    if (!settings.Save(temporary.Path())) {
        return Fail(kCtlFailed, Renamed(settings.Problem(), temporary.Path(), "a temporary file"));
    }
    std::string text;
    const std::string reason = ReadWholeFile(temporary.Path(), text);
    if (!reason.empty()) {
        return Fail(kCtlFailed, "a temporary file cannot be read: " + reason);
    }
    const int error = console.Show(console.CanRedraw() ? PrintableLines(text) : text);
    return error == 0 ? CtlResult{}
                      : Fail(kCtlFailed, "standard output: " + std::string(std::strerror(error)));
}

}  // namespace

CtlResult RunSave(const CommandLine& line, const CtlSurroundings& surroundings) {
    const std::string& file = line.words[0];
    PlistPreferenceDomains domains(surroundings.paths);
    StoredSettings settings(domains, surroundings.log);
    if (file == kStandardStream) {
        return SaveToStream(settings, surroundings.console);
    }
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
