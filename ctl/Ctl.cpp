#include "ctl/Ctl.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

#include "config/DriverConfiguration.h"
#include "ctl/ServiceClient.h"
#include "ctl/StatusReport.h"
#include "ctl/StatusText.h"
#include "ctl/StoredSettings.h"
#include "ctl/TerminalText.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
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
    "  save FILE         write the stored settings into FILE\n"
    "  reload            have the service read the stored settings again\n"
    "\n"
    "  --json            as the service tells it, for programs\n"
    "  --help            show this\n"
    "  --version         show the version\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 no service is running.\n";

struct Command {
    std::string_view name;
    bool takesFile = false;
    bool takesJson = false;
};
constexpr std::array kCommands = {Command{"status", false, true}, Command{"hosts", false, true},
                                  Command{"load", true, false}, Command{"save", true, false},
                                  Command{"reload", false, false}};

// What the arguments ask for.
struct Request {
    std::string command;
    std::string file;
    bool json = false;
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
    if (known == kCommands.end())
        problem = "there is no command '" + words[0] + "'";
    else if (request.json && !known->takesJson)
        problem = "'" + words[0] + "' takes no --json";
    else if (words.size() < wanted)
        problem = "'" + words[0] + "' needs a file";
    else if (words.size() > wanted)
        problem = "'" + words[wanted] + "' is one argument too many";
    if (!problem.empty())
        return std::nullopt;
    if (wanted == 2)
        request.file = words[1];
    return request;
}

class CommandRunner {
  public:
    CommandRunner(const Paths& installationPaths, CollectedLog& collectedLog)
        : paths(installationPaths), log(collectedLog), client(installationPaths) {}

    CtlResult Run(const Request& request) {
        if (request.command == "load")
            return Load(request.file);
        if (request.command == "save")
            return Save(request.file);
        if (request.command == "reload")
            return Reload();
        return Show(request);
    }

  private:
    static CtlResult Unanswered(const ServiceAnswer& answer) {
        const bool absent = answer.outcome == ServiceAnswer::Outcome::Absent;
        return Fail(absent ? kCtlNoService : kCtlFailed, answer.problem);
    }

    CtlResult Show(const Request& request) const {
        const ServiceAnswer answer = client.AskStatus();
        if (answer.outcome != ServiceAnswer::Outcome::Answered)
            return Unanswered(answer);
        std::string problem;
        const std::optional<StatusReport> status = ReadStatusReport(answer.data, problem);
        if (!status)
            return Fail(kCtlFailed, "the service's status makes no sense: " + problem);
        const bool hosts = request.command == "hosts";
        if (!request.json)
            return {kCtlDone, hosts ? HostsText(*status) : StatusText(*status), {}};
        const std::string json = hosts ? nlohmann::json::parse(answer.data).at("hosts").dump() : answer.data;
        return {kCtlDone, PrintableJson(json) + "\n", {}};
    }

    CtlResult Reload() const {
        const ServiceAnswer answer = client.AskReload();
        if (answer.outcome != ServiceAnswer::Outcome::Answered)
            return Unanswered(answer);
        return {kCtlDone, "The service has read the stored settings.\n", {}};
    }

    CtlResult Load(const std::string& file) {
        PlistPreferenceDomains domains(paths);
        StoredSettings settings(domains, log);
        const StoredSettings::Outcome outcome = settings.Load(file);
        if (outcome == StoredSettings::Outcome::Failed)
            return Fail(kCtlFailed, settings.Problem());
        CtlResult result{kCtlDone, "The settings of " + file + " are stored.\n",
                         ErrorLines(settings.Problem())};
        if (outcome == StoredSettings::Outcome::Corrected)
            result.errors += ErrorLines("no port is enabled in them, so the output of port " +
                                        std::to_string(ShownPortNumber(0)) + " was");
        const ServiceAnswer answer = client.AskReload();
        switch (answer.outcome) {
            case ServiceAnswer::Outcome::Answered:
                result.output += "The service has taken them up.\n" + PanelNote();
                break;
            case ServiceAnswer::Outcome::Absent:
                result.output += "No service is running; it takes them up when it starts.\n";
                break;
            case ServiceAnswer::Outcome::Failed:
                result.status = kCtlFailed;
                result.errors += ErrorLines("the service has not taken them up: " + answer.problem);
                break;
        }
        return result;
    }

    // An open panel does not read the configuration again. Nothing is said where the service cannot tell.
    std::string PanelNote() const {
        const ServiceAnswer answer = client.AskStatus();
        std::string problem;
        const std::optional<StatusReport> status = ReadStatusReport(answer.data, problem);
        if (!status || !status->attached)
            return "";
        return "A control panel is open: it shows the settings that it had, and Apply there stores those.\n";
    }

    CtlResult Save(const std::string& file) {
        PlistPreferenceDomains domains(paths);
        StoredSettings settings(domains, log);
        if (!settings.Save(file))
            return Fail(kCtlFailed, settings.Problem());
        return {kCtlDone, "The stored settings are saved in " + file + ".\n", ErrorLines(settings.Problem())};
    }

    const Paths& paths;
    CollectedLog& log;
    ServiceClient client;
};

// The first of --help and --version among the arguments in front of a "--", or "".
std::string Informing(const std::vector<std::string>& arguments) {
    for (const std::string& argument : arguments) {
        if (argument == "--")
            break;
        if (argument == "--help" || argument == "--version")
            return argument;
    }
    return "";
}

}  // namespace

CtlResult RunCtl(const std::vector<std::string>& arguments, const Paths& paths, CollectedLog& log) {
    const std::string informing = Informing(arguments);
    if (informing == "--help")
        return {kCtlDone, kHelp, {}};
    if (informing == "--version")
        return {kCtlDone, std::string("vexil3ctl ") + kVersion + "\n", {}};

    std::string problem;
    const std::optional<Request> request = Parse(arguments, problem);
    CtlResult result = request ? CommandRunner(paths, log).Run(*request)
                               : Fail(kCtlUsage, problem + "\nTry 'vexil3ctl --help'.");
    result.output = PrintableLines(result.output);
    result.errors = PrintableLines(result.errors);
    return result;
}

}  // namespace vexil
