// vexil3ctl's streams and arguments.
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "ctl/CollectedLog.h"
#include "ctl/Ctl.h"
#include "ctl/StandardConsole.h"
#include "platform/linux/Paths.h"
#include "shared/System/StandardStreams.h"

int main(int argc, char** argv) {
    vexil::HoldStandardStreams();
    vexil::CollectedLog log;
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    vexil::StandardConsole console(STDIN_FILENO, STDOUT_FILENO);
    vexil::CtlResult result =
        vexil::RunCtl(arguments, vexil::FindPaths(vexil::CurrentSurroundings()), log, console);
    if (const int error = console.Show(result.output)) {
        result.errors += "vexil3ctl: standard output: " + std::string(std::strerror(error)) + "\n";
        result.status = vexil::kCtlFailed;
    }
    // Where errors cannot be written there is nobody to tell.
    static_cast<void>(vexil::WriteAll(STDERR_FILENO, result.errors));
    return result.status;
}
