#include "ctl/AskedStatus.h"

#include "client/WholeAnswer.h"

namespace vexil {

AskedStatus AskForStatus(const ServiceClient& client) {
    const ServiceAnswer answer = AskWhole([&](std::uint32_t first) { return client.AskStatus(first); },
                                          {"hosts", "sessions", "ports"});
    AskedStatus asked;
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        asked.problem = answer.problem;
        asked.absent = answer.outcome == ServiceAnswer::Outcome::Absent;
        return asked;
    }
    asked.json = answer.data;
    std::string problem;
    asked.report = ReadStatusReport(answer.data, problem);
    if (!asked.report) {
        asked.problem = "the service's status makes no sense: " + problem;
    }
    return asked;
}

}  // namespace vexil
