#include "ctl/StatusWatch.h"

#include <cerrno>

#include "ctl/StatusText.h"
#include "tests/ctl/CtlFixture.h"

namespace vexil {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
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
    // A service whose status becomes the next of these as soon as it was read.
    void Watched(const std::vector<std::string>& statuses) {
        service.SetHook([statuses, current = std::uint32_t{0}](const Seen& request) mutable {
            if (request.kind == kControlWatch && request.number < statuses.size()) {
                current = request.number;
                const auto number = static_cast<std::uint8_t>(current + 1);
                ControlSocketService::Reply(request, 0, {number, 0, 0, 0});
            } else if (request.kind == kControlStatus) {
                Answer(request, statuses[current]);
            }
            return true;  // nothing changes any more
        });
        if (!isServing) {
            service.Start();
        }
        isServing = true;
    }
    CtlResult Watch(std::size_t shownAtLast) {
        console.shownAtLast = shownAtLast;
        return Run({"status", "--watch"});
    }
    std::string Absence() const {
        return "There is no status: no service is running at " + folder.SocketPath() +
               ". The watch goes on.\n";
    }
};

TEST_F(StatusWatchTest, TheComputersAreWatchedAsTheStatusIs) {
    Watched({SampleStatus().dump()});
    console.shownAtLast = 1;
    const CtlResult result = Run({"hosts", "--watch"});
    EXPECT_EQ(result.status, kCtlDone) << result.errors;
    EXPECT_THAT(console.shown, ElementsAre(HasSubstr("\nstudio ")));
}

TEST_F(StatusWatchTest, ShowsTheStatusWhenTheServiceSaysThatItHasChanged) {
    Watched({SampleStatus().dump(), Changed().dump()});
    const CtlResult result = Watch(2);
    EXPECT_EQ(result.status, kCtlDone);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_THAT(console.shown, ElementsAre(TextOf(SampleStatus()), "\n" + TextOf(Changed())));
    EXPECT_THAT(console.patience, testing::Each(std::nullopt)) << "nothing is asked again and again";
}

TEST_F(StatusWatchTest, EndsWithAnInterrupt) {
    Watched({SampleStatus().dump()});
    EXPECT_EQ(Watch(1).status, kCtlDone);
    EXPECT_TRUE(console.holdsInterrupts);
}

TEST_F(StatusWatchTest, TimeThatPassesIsNoChange) {
    json later = SampleStatus();
    later["sessions"][0]["seconds"] = 1000;
    later["sessions"][0]["roundTrip"] = 999;
    Watched({SampleStatus().dump(), later.dump(), Changed().dump()});
    Watch(2);
    EXPECT_THAT(console.shown, ElementsAre(TextOf(SampleStatus()), "\n" + TextOf(Changed())));
}

TEST_F(StatusWatchTest, OnATerminalTheTimeOfASessionGoesOn) {
    Watched({SampleStatus().dump()});
    console.isTerminal = true;
    Watch(2);
    ASSERT_THAT(console.shown, SizeIs(2));
    EXPECT_THAT(console.shown[0], HasSubstr(" 7s "));
    EXPECT_THAT(console.shown[1], HasSubstr(" 8s "));
    EXPECT_THAT(console.shown[0], StartsWith("\x1b[HVexil III 3.3.900 on studio\x1b[K\n"));
    EXPECT_THAT(console.shown[0], testing::EndsWith("\x1b[K\n\x1b[J"));
}

TEST_F(StatusWatchTest, SaysThatTheServiceHasGoneAndGoesOnWhenItIsBack) {
    Watched({SampleStatus().dump()});
    console.meanwhile = {[this] { EndService(); }, [this] { Watched({SampleStatus().dump()}); }};
    EXPECT_EQ(Watch(3).status, kCtlDone);
    EXPECT_THAT(console.shown,
                ElementsAre(TextOf(SampleStatus()), "\n" + Absence(), "\n" + TextOf(SampleStatus())));
}

TEST_F(StatusWatchTest, BeginsBeforeTheServiceDoes) {
    console.meanwhile = {[this] { Watched({SampleStatus().dump()}); }};
    EXPECT_EQ(Watch(2).status, kCtlDone);
    EXPECT_THAT(console.shown, ElementsAre(Absence(), "\n" + TextOf(SampleStatus())));
}

TEST_F(StatusWatchTest, EndsWhereNothingCanBeShown) {
    Watched({SampleStatus().dump()});
    console.showError = ENOSPC;
    const CtlResult result = Watch(1);
    EXPECT_EQ(result.status, kCtlFailed);
    EXPECT_EQ(result.errors, "vexil3ctl: standard output: No space left on device\n");
}

TEST_F(StatusWatchTest, ControlCharactersOfTheServiceReachNoTerminal) {
    json status = SampleStatus();
    status["host"] = "a\x1b[2Jb";
    Watched({status.dump(), "{\x1b[2J"});
    console.isTerminal = true;
    Watch(2);
    EXPECT_THAT(console.shown.at(0), HasSubstr("on a?[2Jb"));
    EXPECT_THAT(console.shown.at(1), HasSubstr("There is no status: the service's status makes no sense"));
}

}  // namespace
}  // namespace vexil
