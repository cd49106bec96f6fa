// What a command of vexil3ctl comes to.
#pragma once

#include <string>

#include "client/ServiceClient.h"

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

// Each line of `text` with the program's name in front.
std::string ErrorLines(const std::string& text);

// A command that ends with this status, and lines of text why.
CtlResult Fail(int status, const std::string& text);
// Wrong usage; `help` is the command line that tells the right one.
CtlResult FailUsage(const std::string& problem, const std::string& help = "vexil3ctl --help");
// A command that ends because the service has not answered.
CtlResult Unanswered(const ServiceAnswer& answer);

}  // namespace vexil
