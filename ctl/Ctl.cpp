#include "ctl/Ctl.h"

#include "ctl/Command.h"
#include "ctl/MonitorCommand.h"
#include "ctl/NetworkCommand.h"
#include "ctl/PanicCommand.h"
#include "ctl/PortCommands.h"
#include "ctl/SettingsCommands.h"
#include "ctl/StatusCommand.h"
#include "shared/System/PrintableText.h"
#include "shared/System/Version.h"

namespace vexil {

namespace {

constexpr const char* kHelp =
    "Usage: vexil3ctl COMMAND\n"
    "Looks after the Vexil III service and its stored configuration.\n"
    "\n"
    "  status [PORT...]  show the service, its ports and what goes through them, or these ports\n"
    "  hosts             show the computers that the service knows\n"
    "  network           show and change whom the service plays to and hears, and where it speaks;\n"
    "                    'vexil3ctl help network' tells the commands behind it\n"
    "  monitor [PORT...] show the messages that go through these ports, or all, until Ctrl-C\n"
    "  panic             end every note: here, and where this computer plays to others\n"
    "  get PORT [KEY]    show the stored settings of a port, or one of them\n"
    "  set PORT KEY=VALUE...\n"
    "                    store settings of a port and have the service take them up; the keys are\n"
    "                    in, out, pipe, immediately (on or off), target (COMPUTER:PORT),\n"
    "                    source (the same, or any:any), in-name and out-name\n"
    "  connect PORT COMPUTER:PORT\n"
    "                    send the output of a port to a port of a computer\n"
    "  enable PORT [in|out|pipe...]\n"
    "                    switch sides of a port on: in and out, or those that are named\n"
    "  disable PORT [in|out|pipe...]\n"
    "                    switch them off: all, or those that are named\n"
    "  load FILE         store the settings of FILE and have the service take them up\n"
    "  check FILE        tell what in FILE means nothing, and change nothing\n"
    "  save FILE         write the stored settings into FILE\n"
    "  defaults          store the default settings and have the service take them up\n"
    "  reload            have the service read the stored settings again\n"
    "  help [network]    show this, or what there is behind network\n"
    "\n"
    "PORT is a number as the panel shows it, 11 to 88. FILE may be -: standard input or output.\n"
    "\n"
    "  --json            status, hosts, network, monitor: as the service tells it, for programs\n"
    "  --watch           status, hosts: show it anew whenever it has changed, until Ctrl-C\n"
    "  --wait [SECONDS]  status: wait until every route gets through, at most 30 seconds or so many\n"
    "  --file FILE       network secret: the secret is the first line of FILE\n"
    "  --replace         load: what FILE lacks gets its default, else it stays as it is\n"
    "  -h, --help        show this\n"
    "  -V, --version     show the version\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 no service is running.\n";

CtlResult RunHelp(const CommandLine& line, const CtlSurroundings&) {
    const bool isOther = !line.words.empty() && line.words[0] != "network";
    return isOther ? FailUsage("there is no help of its own for '" + line.words[0] + "'", "vexil3ctl help")
                   : CtlResult{kCtlDone, line.words.empty() ? kHelp : kNetworkHelp, {}};
}

const std::vector<Command>& Commands() {
    static const std::vector<Command> kCommands = {
        {.name = "status",
         .options = {"--json", "--watch", "--wait"},
         .mostWords = Command::kAnyWords,
         .run = RunStatus},
        {.name = "hosts", .options = {"--json", "--watch"}, .run = RunHosts},
        {.name = "network",
         .options = {"--json", "--file"},
         .mostWords = Command::kAnyWords,
         .run = RunNetwork},
        {.name = "monitor", .options = {"--json"}, .mostWords = Command::kAnyWords, .run = RunMonitor},
        {.name = "panic", .run = RunPanic},
        {.name = "get", .leastWords = 1, .mostWords = 2, .lacking = "a port", .run = RunGet},
        {.name = "set",
         .leastWords = 2,
         .mostWords = Command::kAnyWords,
         .lacking = "a port and KEY=VALUE",
         .run = RunSet},
        {.name = "connect",
         .leastWords = 2,
         .mostWords = 2,
         .lacking = "a port and COMPUTER:PORT",
         .run = RunConnect},
        {.name = "enable",
         .leastWords = 1,
         .mostWords = Command::kAnyWords,
         .lacking = "a port",
         .run = RunEnable},
        {.name = "disable",
         .leastWords = 1,
         .mostWords = Command::kAnyWords,
         .lacking = "a port",
         .run = RunDisable},
        {.name = "load",
         .options = {"--replace"},
         .leastWords = 1,
         .mostWords = 1,
         .lacking = "a file",
         .run = RunLoad},
        {.name = "check", .leastWords = 1, .mostWords = 1, .lacking = "a file", .run = RunCheck},
        {.name = "save", .leastWords = 1, .mostWords = 1, .lacking = "a file", .run = RunSave},
        {.name = "defaults", .run = RunDefaults},
        {.name = "reload", .run = RunReload},
        {.name = "help", .mostWords = 1, .run = RunHelp}};
    return kCommands;
}

CtlResult RunChosen(const std::vector<std::string>& arguments, const CtlSurroundings& surroundings) {
    std::string problem;
    const std::optional<ChosenCommand> chosen = ChooseCommand(Commands(), arguments, problem);
    return chosen ? chosen->command->run(chosen->line, surroundings) : FailUsage(problem);
}

}  // namespace

CtlResult RunCtl(const std::vector<std::string>& arguments, const Paths& paths, CollectedLog& log,
                 Console& console) {
    const std::string informing = FindOption(arguments, {"-h", "--help", "-V", "--version"});
    if (informing == "-h" || informing == "--help") {
        return {kCtlDone, arguments[0] == "network" ? kNetworkHelp : kHelp, {}};
    }
    if (!informing.empty()) {
        return {kCtlDone, std::string("vexil3ctl ") + kVersion + "\n", {}};
    }
    CtlResult result = RunChosen(arguments, {paths, log, console});
    result.output = PrintableLines(result.output);
    result.errors = PrintableLines(result.errors);
    return result;
}

}  // namespace vexil
