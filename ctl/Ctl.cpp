#include "ctl/Ctl.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

#include "config/DriverConfiguration.h"
#include "ctl/ServiceClient.h"
#include "ctl/SettingsCheck.h"
#include "ctl/StatusReport.h"
#include "ctl/StatusText.h"
#include "ctl/StoredSettings.h"
#include "ctl/TerminalText.h"
#include "ctl/WholeFile.h"
#include "ctl/WholeStatus.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "shared/System/PrintableText.h"
#include "shared/System/Version.h"

namespace vexil {

namespace {

constexpr const char* kHelp =
    "Usage: vexil3ctl COMMAND\n"
    "Looks after the Vexil III service and its stored configuration.\n"
    "\n"
    "  status [--json]   show the service, its ports and what goes through them\n"
    "  hosts [--json]    show the computers that the service knows\n"
    "  load FILE         store the settings of FILE and have the service take them up\n"
    "  check FILE        tell what in FILE means nothing, and change nothing\n"
    "  save FILE         write the stored settings into FILE\n"
    "  defaults          store the default settings and have the service take them up\n"
    "  reload            have the service read the stored settings again\n"
    "\n"
    "  --json            as the service tells it, for programs\n"
    "  --replace         load: what FILE lacks gets its default, else it stays as it is\n"
    "  --help            show this\n"
    "  --version         show the version\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 no service is running.\n";

struct Command {
    std::string_view name;
    bool takesFile = false;
    bool takesJson = false;
    bool takesReplace = false;
};
constexpr std::array kCommands = {Command{.name = "status", .takesJson = true},
                                  Command{.name = "hosts", .takesJson = true},
                                  Command{.name = "load", .takesFile = true, .takesReplace = true},
                                  Command{.name = "check", .takesFile = true},
                                  Command{.name = "save", .takesFile = true},
                                  Command{.name = "defaults"},
                                  Command{.name = "reload"}};

// What the arguments ask for.
struct Request {
    std::string command;
    std::string file;
    bool json = false;
    bool replace = false;
};

// Each line of `text` with the program's name in front.
std::string ErrorLines(const std::string& text) {
    std::string lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        lines += "vexil3ctl: " + text.substr(start, end - start) + "\n";
        start = end + 1;
    }
    return lines;
}

CtlResult Fail(int status, const std::string& text) {
    return {status, {}, ErrorLines(text)};
}

std::optional<Request> Parse(const std::vector<std::string>& arguments, std::string& problem) {
    Request request;
    std::vector<std::string> words;
    bool options = true;
    for (const std::string& argument : arguments) {
        if (options && argument == "--") {
            options = false;
        } else if (options && argument == "--json") {
            request.json = true;
        } else if (options && argument == "--replace") {
            request.replace = true;
        } else if (options && argument.size() > 1 && argument[0] == '-') {
            problem = "there is no option '" + argument + "'";
            return std::nullopt;
        } else {
            words.push_back(argument);
        }
    }
    if (words.empty()) {
        problem = "a command is missing";
        return std::nullopt;
    }
    request.command = words[0];
    const auto* const known = std::find_if(kCommands.begin(), kCommands.end(),
                                           [&](const Command& each) { return each.name == words[0]; });
    const std::size_t wanted = known != kCommands.end() && known->takesFile ? 2 : 1;
    if (known == kCommands.end()) {
        problem = "there is no command '" + words[0] + "'";
    } else if (request.json && !known->takesJson) {
        problem = "'" + words[0] + "' takes no --json";
    } else if (request.replace && !known->takesReplace) {
        problem = "'" + words[0] + "' takes no --replace";
    } else if (words.size() < wanted) {
        problem = "'" + words[0] + "' needs a file";
    } else if (words.size() > wanted) {
        problem = "'" + words[wanted] + "' is one argument too many";
    }
    if (!problem.empty()) {
        return std::nullopt;
    }
    if (wanted == 2) {
        request.file = words[1];
    }
    return request;
}

class CommandRunner {
  public:
    CommandRunner(const Paths& installationPaths, CollectedLog& collectedLog)
        : paths(installationPaths), log(collectedLog), client(installationPaths) {}

    CtlResult Run(const Request& request) {
        if (request.command == "load") {
            return Load(request);
        }
        if (request.command == "defaults") {
            return Load(request);
        }
        if (request.command == "check") {
            return Check(request.file);
        }
        if (request.command == "save") {
            return Save(request.file);
        }
        if (request.command == "reload") {
            return Reload();
        }
        return Show(request);
    }

  private:
    static CtlResult Unanswered(const ServiceAnswer& answer) {
        const bool absent = answer.outcome == ServiceAnswer::Outcome::Absent;
        return Fail(absent ? kCtlNoService : kCtlFailed, answer.problem);
    }

    CtlResult Show(const Request& request) const {
        const ServiceAnswer answer =
            AskWholeStatus([this](std::uint32_t first) { return client.AskStatus(first); });
        if (answer.outcome != ServiceAnswer::Outcome::Answered) {
            return Unanswered(answer);
        }
        std::string problem;
        const std::optional<StatusReport> status = ReadStatusReport(answer.data, problem);
        if (!status) {
            return Fail(kCtlFailed, "the service's status makes no sense: " + problem);
        }
        const bool hosts = request.command == "hosts";
        if (!request.json) {
            return {kCtlDone, hosts ? HostsText(*status) : StatusText(*status), {}};
        }
        const std::string json = hosts ? nlohmann::json::parse(answer.data).at("hosts").dump() : answer.data;
        return {kCtlDone, PrintableJson(json) + "\n", {}};
    }

    CtlResult Reload() const {
        const ServiceAnswer answer = client.AskReload();
        if (answer.outcome != ServiceAnswer::Outcome::Answered) {
            return Unanswered(answer);
        }
        return {kCtlDone, "The service has read the stored settings.\n", {}};
    }

    // The settings of a file or the defaults.
    CtlResult Load(const Request& request) {
        PlistPreferenceDomains domains(paths);
        StoredSettings settings(domains, log);
        // An open panel does not read the configuration again. Where the service cannot tell, none is open.
        std::optional<StatusReport> status;
        const LoadWishes wishes{.fromDefaults = request.replace, .isPanelOpen = [&] {
                                    status = AskStatus();
                                    return status && status->attached;
                                }};
        const bool isFile = !request.file.empty();
        const StoredSettings::Outcome outcome =
            isFile ? settings.Load(request.file, wishes) : settings.LoadDefaults(wishes);
        if (outcome == StoredSettings::Outcome::Failed) {
            return Fail(kCtlFailed, settings.Problem());
        }
        const std::string what = isFile ? "The settings of " + request.file : "The default settings";
        CtlResult result{
            kCtlDone, what + " are stored.\n",
            ErrorLines(settings.Problem()) + ErrorLines(RemarkLines(request.file, settings.Remarks()))};
        if (outcome == StoredSettings::Outcome::Corrected) {
            result.errors += ErrorLines("no port is enabled in them, so the output of port " +
                                        std::to_string(ShownPortNumber(0)) + " was");
        }
        TellService(result);
        result.output += PanelNote(status, settings);
        return result;
    }

    void TellService(CtlResult& result) const {
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

    std::optional<StatusReport> AskStatus() const {
        std::string problem;
        return ReadStatusReport(client.AskStatus().data, problem);
    }

    // What takes effect later than the rest.
    static std::string PanelNote(const std::optional<StatusReport>& status, const StoredSettings& settings) {
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

    static CtlResult Check(const std::string& file) {
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

    CtlResult Save(const std::string& file) {
        PlistPreferenceDomains domains(paths);
        StoredSettings settings(domains, log);
        if (!settings.Save(file)) {
            return Fail(kCtlFailed, settings.Problem());
        }
        return {kCtlDone, "The stored settings are saved in " + file + ".\n", ErrorLines(settings.Problem())};
    }

    const Paths& paths;
    CollectedLog& log;
    ServiceClient client;
};

// The first of --help and --version among the arguments in front of a "--", or "".
std::string Informing(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument == "--") {
            break;
        }
        if (argument == "--help" || argument == "--version") {
            return argument;
        }
    }
    return "";
}

}  // namespace

CtlResult RunCtl(const std::vector<std::string>& arguments, const Paths& paths, CollectedLog& log) {
    const std::string informing = Informing(arguments);
    if (informing == "--help") {
        return {kCtlDone, kHelp, {}};
    }
    if (informing == "--version") {
        return {kCtlDone, std::string("vexil3ctl ") + kVersion + "\n", {}};
    }

    std::string problem;
    const std::optional<Request> request = Parse(arguments, problem);
    CtlResult result = request ? CommandRunner(paths, log).Run(*request)
                               : Fail(kCtlUsage, problem + "\nTry 'vexil3ctl --help'.");
    result.output = PrintableLines(result.output);
    result.errors = PrintableLines(result.errors);
    return result;
}

}  // namespace vexil
