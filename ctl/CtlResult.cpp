#include "ctl/CtlResult.h"

#include <algorithm>

namespace vexil {

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

CtlResult FailUsage(const std::string& problem, const std::string& help) {
    return Fail(kCtlUsage, problem + "\nTry '" + help + "'.");
}

CtlResult Unanswered(const ServiceAnswer& answer) {
    return Fail(answer.outcome == ServiceAnswer::Outcome::Absent ? kCtlNoService : kCtlFailed,
                answer.problem);
}

}  // namespace vexil
