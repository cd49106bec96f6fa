#include "ctl/StatusWatch.h"

#include <cerrno>

#include "ctl/StatusText.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class StatusWatchTest : public CtlFixture {
  protected:
    static std::string TextOf(const json& status) {
        std::string problem;
        return StatusText(ReadStatusReport(status.dump(), problem).value_or(StatusReport()));
    }
    static json Changed() {
        json status = SampleStatus();
        status["attached"] = false;
        return status;
    }
    std::function<void()> Become(const json& status) {
        return [this, status] { Serve(status.dump()); };
    }
};

TEST_F(StatusWatchTest, ShowsTheStatusAgainOnlyWhenItHasChanged) {
    Serve();
    console.meanwhile = {[] {}, Become(Changed()), [] {}};
    const CtlResult result = Run({"status", "--watch"});
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_THAT(console.shown, ElementsAre(TextOf(SampleStatus()), "\n" + TextOf(Changed())));
    EXPECT_THAT(console.waits, testing::Each(std::chrono::milliseconds(500)));
}

TEST_F(StatusWatchTest, EndsWithAnInterrupt) {
    Serve();
    EXPECT_EQ(Run({"status", "--watch"}).status, kCtlDone);
    EXPECT_TRUE(console.holdsInterrupts);
    EXPECT_THAT(console.waits, SizeIs(1));
}

TEST_F(StatusWatchTest, TimeThatPassesIsNoChange) {
    Serve();
    json later = SampleStatus();
    later["sessions"][0]["seconds"] = 1000;
    later["sessions"][0]["roundTrip"] = 999;
    console.meanwhile = {Become(later)};
    Run({"status", "--watch"});
    EXPECT_THAT(console.shown, SizeIs(1));
    console.isTerminal = true;
    Serve();
    console.shown.clear();
    console.meanwhile = {Become(later)};
    Run({"status", "--watch"});
    EXPECT_THAT(console.shown, SizeIs(2)) << "on a terminal it costs nobody a line";
}

TEST_F(StatusWatchTest, ATerminalIsRedrawn) {
    Serve();
    console.isTerminal = true;
    Run({"status", "--watch"});
    ASSERT_THAT(console.shown, SizeIs(1));
    EXPECT_THAT(console.shown[0], StartsWith("\x1b[HVexil III 3.3.900 on studio\x1b[K\n"));
    EXPECT_THAT(console.shown[0], testing::EndsWith("\x1b[K\n\x1b[J"));
}

TEST_F(StatusWatchTest, SaysThatTheServiceHasGoneAndGoesOnWhenItIsBack) {
    Serve();
    console.meanwhile = {[this] { EndService(); }, [] {}, Become(SampleStatus())};
    EXPECT_EQ(Run({"status", "--watch"}).status, kCtlDone);
    EXPECT_THAT(console.shown, ElementsAre(TextOf(SampleStatus()),
                                           "\nThere is no status: no service is running at " +
                                               folder.SocketPath() + ". The watch goes on.\n",
                                           "\n" + TextOf(SampleStatus())));
}

TEST_F(StatusWatchTest, BeginsBeforeTheServiceDoes) {
    console.meanwhile = {Become(SampleStatus())};
    EXPECT_EQ(Run({"status", "--watch"}).status, kCtlDone);
    ASSERT_THAT(console.shown, SizeIs(2));
    EXPECT_THAT(console.shown[0], StartsWith("There is no status: no service is running"));
}

TEST_F(StatusWatchTest, EndsWhereNothingCanBeShown) {
    Serve();
    console.showError = ENOSPC;
    const CtlResult result = Run({"status", "--watch"});
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: standard output: No space left on device\n");
    EXPECT_THAT(console.waits, IsEmpty());
}

TEST_F(StatusWatchTest, ControlCharactersOfTheServiceReachNoTerminal) {
    json status = SampleStatus();
    status["host"] = "a\x1b[2Jb";
    Serve(status.dump());
    console.isTerminal = true;
    Run({"status", "--watch"});
    EXPECT_THAT(console.shown.at(0), HasSubstr("on a?[2Jb"));
    Serve("{\x1b[2J");
    Run({"status", "--watch"});
    EXPECT_THAT(console.shown.at(1), HasSubstr("There is no status: the service's status makes no sense"));
}

}  // namespace
}  // namespace vexil
