#include "ctl/AskedStatus.h"

#include "client/WholeAnswer.h"

namespace vexil {

AskedStatus AskForStatus(const ServiceClient& client) {
    const ServiceAnswer answer = AskWhole([&](std::uint32_t first) { return client.AskStatus(first); },
                                          {"hosts", "sessions", "ports"});
    if (answer.outcome != ServiceAnswer::Outcome::Answered) {
        AskedStatus asked;
        asked.problem = answer.problem;
        asked.absent = answer.outcome == ServiceAnswer::Outcome::Absent;
        return asked;
    }
    return ReadAskedStatus(answer.data);
}

AskedStatus ReadAskedStatus(const std::string& json) {
    AskedStatus asked;
    asked.json = json;
    std::string problem;
    asked.report = ReadStatusReport(json, problem);
    if (!asked.report) {
        asked.problem = "the service's status makes no sense: " + problem;
    }
    return asked;
}

}  // namespace vexil
