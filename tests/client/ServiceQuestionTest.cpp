// A network command that is asked from an event loop.
#include "client/ServiceQuestion.h"

#include <gtest/gtest.h>
#include <poll.h>

#include "tests/ctl/CtlFolder.h"
#include "tests/platform_linux/ControlSocketService.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using Outcome = ServiceAnswer::Outcome;

class ServiceQuestionTest : public ::testing::Test {
  protected:
    ServiceAnswer Ask(const std::vector<std::string>& words,
                      std::chrono::milliseconds patience = ServiceClient::kPatience) {
        ServiceQuestion question(folder.paths, words, patience);
        pollfd state{question.EventDescriptor(), POLLIN, 0};
        do {
            EXPECT_EQ(1, poll(&state, 1, 20'000));
        } while (!question.Serve());
        return question.Answer();
    }

    CtlFolder folder;
    ControlSocketService service{folder.SocketPath()};
};

TEST_F(ServiceQuestionTest, HasTheServicesAnswer) {
    service.SetHook([](const ControlSocketService::Seen& request) {
        const std::string answer(request.payload.begin(), request.payload.end());
        const bool isAsked = request.kind == kControlNetwork && answer == std::string("pin\0studio\0", 11);
        ControlSocketService::Reply(request, 0, {static_cast<std::uint8_t>(isAsked ? 'y' : 'n')});
        return true;
    });
    service.Start();
    const ServiceAnswer answer = Ask({"pin", "studio"});
    EXPECT_EQ(Outcome::Answered, answer.outcome);
    EXPECT_EQ("y", answer.data);
    service.Stop();
}

TEST_F(ServiceQuestionTest, SaysWhyThereIsNoAnswer) {
    EXPECT_EQ("no service is running at " + folder.SocketPath(), Ask({"list"}).problem);
    EXPECT_EQ("an argument is empty or too long", Ask({"pin", ""}).problem);
    service.SetHook([](const ControlSocketService::Seen&) { return true; });
    service.Start();
    EXPECT_EQ("the service does not answer", Ask({"list"}, 10ms).problem);
    service.SetHook([](const ControlSocketService::Seen& request) {
        ControlSocketService::Reply(request, EINVAL);
        return true;
    });
    EXPECT_EQ("the service refuses: Invalid argument", Ask({"list"}).problem);
    service.SetHook([](const ControlSocketService::Seen& request) {
        ControlSocketService::CutOff(request.client);
        return true;
    });
    EXPECT_EQ("the service closed the connection without an answer", Ask({"list"}).problem);
    service.Stop();
}

}  // namespace
}  // namespace vexil
