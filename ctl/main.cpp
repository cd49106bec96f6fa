// vexil3ctl's streams and arguments.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "ctl/CollectedLog.h"
#include "ctl/Ctl.h"
#include "platform/linux/Paths.h"
#include "shared/System/StandardStreams.h"

namespace {

// 0 or an errno value.
int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count == -1 && errno != EINTR) {
            return errno;
        }
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    vexil::HoldStandardStreams();
    vexil::CollectedLog log;
    const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
    vexil::CtlResult result = vexil::RunCtl(arguments, vexil::FindPaths(vexil::CurrentSurroundings()), log);
    if (const int error = WriteAll(STDOUT_FILENO, result.output)) {
        result.errors += "vexil3ctl: standard output: " + std::string(std::strerror(error)) + "\n";
        result.status = vexil::kCtlFailed;
    }
    // Where errors cannot be written there is nobody to tell.
    static_cast<void>(WriteAll(STDERR_FILENO, result.errors));
    return result.status;
}
