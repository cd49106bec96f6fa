#include "ctl/NetworkCommand.h"

#include <net/if.h>

#include <algorithm>
#include <utility>

#include "client/NetworkReport.h"
#include "client/ServiceClient.h"
#include "client/WholeAnswer.h"
#include "ctl/NetworkText.h"
#include "ctl/SecretInput.h"
#include "ctl/TerminalText.h"

namespace vexil {

const char* const kNetworkHelp =
    "Usage: vexil3ctl network [COMMAND]\n"
    "Looks after MIDI between this computer and others, in the service that is running.\n"
    "\n"
    "  list [--json]         show how this computer speaks, and the computers that it knows;\n"
    "                        the same without any command\n"
    "  speak WHERE           speak on these interfaces: on (all), off, lo (within this computer),\n"
    "                        or names with commas: eth0,wlan0\n"
    "  on, off, lo, NAMES    the same for interfaces that this computer has\n"
    "  pin NAME              accept the key with which the computer NAME calls now\n"
    "  pin NAME KEY          accept this key\n"
    "  forget NAME           forget the keys of NAME; the next one that comes is remembered\n"
    "  block NAME|KEY        let that computer in no longer\n"
    "  unblock NAME|KEY      take that back\n"
    "  secret [--file FILE]  set the secret that everybody must know: typed, or the first line of\n"
    "                        FILE or of what is piped in\n"
    "  no-secret             remove the secret\n"
    "  allow WHO             let in any computer, only known ones (pinned), or those with the secret\n"
    "  rtp on|off            also speak RTP-MIDI, as Macs, iPads and other devices do\n"
    "  new-key               make a new key for this computer\n";

namespace {

struct NetworkCommand {
    std::string_view name;
    std::size_t leastWords = 0;
    std::size_t mostWords = 0;
    std::string_view lacking;
};
constexpr NetworkCommand kNetworkCommands[] = {{"list", 0, 0, ""},
                                               {"speak", 1, 1, "on, off, lo or names of interfaces"},
                                               {"pin", 1, 2, "the name of a computer"},
                                               {"forget", 1, 1, "the name of a computer"},
                                               {"block", 1, 1, "the name or the key of a computer"},
                                               {"unblock", 1, 1, "the name or the key of a computer"},
                                               {"secret", 0, 0, ""},
                                               {"no-secret", 0, 0, ""},
                                               {"allow", 1, 1, "any, known or secret"},
                                               {"rtp", 1, 1, "on or off"},
                                               {"new-key", 0, 0, ""}};

// Whether all names with commas between them are interfaces that this computer has.
bool AreInterfacesHere(const std::string& text) {
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        if (if_nametoindex(text.substr(start, end - start).c_str()) == 0) {
            return false;
        }
        start = end + 1;
    }
    return true;
}

// A misspelt command is not to become the name of an interface: only what is one stands for "speak".
bool IsWhereToSpeak(const std::vector<std::string>& words) {
    return words.size() == 1 && (words[0] == "on" || words[0] == "off" || AreInterfacesHere(words[0]));
}

std::string Complaint(const NetworkCommand& command, const CommandLine& line) {
    const std::string name = "'network " + std::string(command.name) + "'";
    if (line.Has("--json") && command.name != "list") {
        return name + " takes no --json";
    }
    if (line.Has("--file") && command.name != "secret") {
        return name + " takes no --file";
    }
    const std::size_t count = line.words.size() - 1;
    if (command.name == "secret" && count != 0) {
        return "the secret is no argument: it is typed, piped in, or read with --file";
    }
    if (count < command.leastWords) {
        return name + " needs " + std::string(command.lacking);
    }
    if (count > command.mostWords) {
        return "'" + line.words[command.mostWords + 1] + "' is one argument too many";
    }
    return std::find(line.words.begin(), line.words.end(), "") == line.words.end()
               ? ""
               : "an argument of " + name + " is empty";
}

// What is wrong with the words and options behind "network", or "".
std::string Complaint(const CommandLine& line) {
    const auto* const known =
        std::find_if(std::begin(kNetworkCommands), std::end(kNetworkCommands),
                     [&](const NetworkCommand& command) { return command.name == line.words[0]; });
    return known == std::end(kNetworkCommands)
               ? "'" + line.words[0] + "' is neither a network command nor an interface of this computer"
               : Complaint(*known, line);
}

CtlResult MakesNoSense(const std::string& problem) {
    return Fail(kCtlFailed, "the service's answer makes no sense: " + problem);
}

CtlResult List(const ServiceClient& client, bool json) {
    const ServiceAnswer answer = AskWhole(
        [&](std::uint32_t first) {
            return first == 0 ? client.AskNetwork({"list"})
                              : client.AskNetwork({"list", std::to_string(first)});
        },
        {"computers"});
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        return Unanswered(answer);
    }
    std::string problem;
    const std::optional<NetworkList> list = ReadNetworkList(answer.data, problem);
    if (!list) {
        std::string ignored;  // what is wrong with the list is said where it is no refusal
        const std::optional<NetworkChange> change = ReadNetworkChange(answer.data, ignored);
        return change && !change->refused.empty() ? Fail(kCtlFailed, change->refused) : MakesNoSense(problem);
    }
    return {kCtlDone, json ? PrintableJson(answer.data) + "\n" : NetworkListText(*list), {}};
}

CtlResult Change(const ServiceClient& client, const std::vector<std::string>& words) {
    const ServiceAnswer answer = client.AskNetwork(words);
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        return Unanswered(answer);
    }
    std::string problem;
    const std::optional<NetworkChange> change = ReadNetworkChange(answer.data, problem);
    if (!change) {
        return MakesNoSense(problem);
    }
    return change->refused.empty() ? CtlResult{kCtlDone, change->done + "\n", {}}
                                   : Fail(kCtlFailed, change->refused);
}

CtlResult SetSecret(const ServiceClient& client, const CommandLine& line, Console& console) {
    std::string problem;
    const std::optional<std::string> file =
        line.Has("--file") ? std::optional(line.options.at("--file")) : std::nullopt;
    const std::optional<std::string> secret = ReadSecret(file, console, problem);
    return secret ? Change(client, {"secret", *secret}) : Fail(kCtlFailed, problem);
}

}  // namespace

CtlResult RunNetwork(const CommandLine& given, const CtlSurroundings& surroundings) {
    CommandLine line = given;
    if (line.words.empty()) {
        line.words = {"list"};
    } else if (IsWhereToSpeak(line.words)) {
        line.words = {"speak", line.words[0]};
    }
    const std::string complaint = Complaint(line);
    if (!complaint.empty()) {
        return FailUsage(complaint, "vexil3ctl network --help");
    }
    const ServiceClient client(surroundings.paths);
    if (line.words[0] == "list") {
        return List(client, line.Has("--json"));
    }
    if (line.words[0] == "secret") {
        return SetSecret(client, line, surroundings.console);
    }
    return Change(client, line.words);
}

}  // namespace vexil
