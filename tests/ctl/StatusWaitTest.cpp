#include "ctl/StatusWait.h"

#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::HasSubstr;

class StatusWaitTest : public CtlFixture {
  protected:
    // Only the test output of port 11 and the output of port 88 lead elsewhere, each with this problem.
    static std::string Status(const std::string& ofTest, const std::string& ofOutput) {
        json status = SampleStatus();
        status["ports"][0]["test"]["routeProblem"] = ofTest;
        status["ports"][2]["output"]["routeProblem"] = ofOutput;
        return status.dump();
    }
    std::chrono::nanoseconds Waited() const { return console.now - ScriptedConsole().now; }
};

TEST_F(StatusWaitTest, IsDoneAtOnceWhenEveryRouteGetsThrough) {
    Serve(Status("", ""));
    const CtlResult result = Run({"status", "--wait"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_EQ(result.output, "Every route gets through.\n");
    EXPECT_EQ(Waited(), 0ns);
}

TEST_F(StatusWaitTest, IsDoneAsSoonAsTheLastRouteGetsThrough) {
    Serve(Status("It is being called.", "It is being called."));
    console.meanwhile = {[] {}, [this] { Serve(Status("", "It is being called.")); },
                         [this] { Serve(Status("", "")); }};
    EXPECT_EQ(Run({"status", "--wait"}).status, kCtlDone);
    EXPECT_EQ(console.waits.size(), 3U);
}

TEST_F(StatusWaitTest, NamesEveryRouteThatDoesNotGetThroughInTime) {
    Serve(Status("Port 12 is a local pipe.", "It does not answer.\x1b"));
    const CtlResult result = Run({"status", "--wait", "2"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors,
              "vexil3ctl: after 2 seconds not every route gets through:\n"
              "vexil3ctl: test output of port 11 to studio, port 12: Port 12 is a local pipe.\n"
              "vexil3ctl: port 88 to stage, port 21: It does not answer.?\n");
    EXPECT_EQ(Waited(), 2s);
}

TEST_F(StatusWaitTest, WaitsThirtySecondsUnlessToldOtherwise) {
    Serve(Status("", "It does not answer."));
    EXPECT_THAT(Run({"status", "--wait"}).errors, HasSubstr("after 30 seconds "));
    EXPECT_EQ(Waited(), 30s);
    EXPECT_THAT(Run({"status", "--wait=1"}).errors, HasSubstr("after 1 second not "));
    EXPECT_EQ(Waited(), 31s);
    EXPECT_THAT(Run({"status", "--wait", "0"}).errors, HasSubstr("after 0 seconds "));
    EXPECT_EQ(Waited(), 31s);
}

TEST_F(StatusWaitTest, ATestOutputThatIsClosedIsNotWaitedFor) {
    json status = json::parse(Status("It does not answer.", ""));
    status["ports"][0]["test"]["open"] = false;
    Serve(status.dump());
    EXPECT_EQ(Run({"status", "--wait"}).status, kCtlDone);
}

TEST_F(StatusWaitTest, AnOutputWithoutATargetDoesNotGetThrough) {
    json status = json::parse(Status("", "No target computer is set."));
    status["ports"][2]["output"]["target"]["computer"] = "";
    Serve(status.dump());
    EXPECT_THAT(Run({"status", "--wait", "0"}).errors, HasSubstr("\nvexil3ctl: port 88: No target"));
}

TEST_F(StatusWaitTest, AServiceThatIsNotRunningYetIsWaitedFor) {
    console.meanwhile = {[] {}, [this] { Serve(Status("", "")); }};
    EXPECT_EQ(Run({"status", "--wait"}).status, kCtlDone);
    EXPECT_EQ(console.waits.size(), 2U);
}

TEST_F(StatusWaitTest, WithoutAServiceAtTheEndThereIsNone) {
    const CtlResult result = Run({"status", "--wait", "1"});
    EXPECT_EQ(result.status, kCtlNoService);
    EXPECT_EQ(result.errors,
              "vexil3ctl: after 1 second: no service is running at " + folder.SocketPath() + "\n");
}

TEST_F(StatusWaitTest, PortsThatAreNotToldOfAreNotTakenForGood) {
    json status = json::parse(Status("", ""));
    status["portsLeftOut"] = 3;
    Serve(status.dump());
    const CtlResult result = Run({"status", "--wait", "0"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_THAT(result.errors, HasSubstr("3 more, for which the answer had no room"));
}

}  // namespace
}  // namespace vexil
