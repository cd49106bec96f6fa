// vexil3ctl: the service and the stored configuration from the command line. The whole program but for its
// streams, so that a test runs all of it.
#pragma once

#include <string>
#include <vector>

#include "ctl/CollectedLog.h"
#include "platform/linux/Paths.h"

namespace vexil {

// Exit statuses.
inline constexpr int kCtlDone = 0;
inline constexpr int kCtlFailed = 1;
inline constexpr int kCtlUsage = 2;
inline constexpr int kCtlNoService = 3;  // of a command that is nothing without a running service

struct CtlResult {
    int status = kCtlDone;
    std::string output;  // the whole text, or nothing
    std::string errors;  // lines, each begins with the program's name
};

// `arguments` without the program's name.
CtlResult RunCtl(const std::vector<std::string>& arguments, const Paths& paths, CollectedLog& log);

}  // namespace vexil
