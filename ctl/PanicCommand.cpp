#include "ctl/PanicCommand.h"

#include "client/NetworkReport.h"
#include "client/ServiceClient.h"

namespace vexil {

CtlResult RunPanic(const CommandLine&, const CtlSurroundings& surroundings) {
    const ServiceAnswer answer = ServiceClient(surroundings.paths).AskPanic();
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        return Unanswered(answer);
    }
    std::string problem;
    const std::optional<NetworkChange> change = ReadNetworkChange(answer.data, problem);
    return change ? CtlResult{kCtlDone, change->done + "\n", {}}
                  : Fail(kCtlFailed, "the service's answer makes no sense: " + problem);
}

}  // namespace vexil
