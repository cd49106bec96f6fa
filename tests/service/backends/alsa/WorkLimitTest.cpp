// How long the engine's thread may work; no sequencer is needed.
#include <gmock/gmock.h>

#include "service/backends/alsa/WorkLimit.h"

namespace vexil {
namespace {

class WorkLimitTest : public ::testing::Test {
  protected:
    // What was before the thread was there is no rest.
    void SetUp() override { Wait(0); }
    void Work(std::uint64_t time) {
        now += time;
        work += time;
    }
    // The thread waits for as long, and goes on.
    void Wait(std::uint64_t time) {
        rested += limit.End();
        now += time;
        limit.Begin();
    }

    // They go on from test to test.
    static std::uint64_t now;
    static std::uint64_t work;
    WorkLimit limit{[] { return now; }, [] { return work; }};
    std::uint64_t rested = 0;
};

std::uint64_t WorkLimitTest::now = 1'000'000;
std::uint64_t WorkLimitTest::work = 0;

TEST_F(WorkLimitTest, WhoRestsAFifthOfTheTimeGoesOnForEver) {
    for (int i = 0; i < 1000; ++i) {
        Work(1'000'000);
        EXPECT_TRUE(limit.MayGoOn());
        Wait(260'000);
    }
    EXPECT_EQ(rested, 0U);
}

TEST_F(WorkLimitTest, WorkWithoutAPauseIsFollowedByARest) {
    for (int i = 0; i < 19; ++i) {
        Work(1'000'000);
        Wait(0);
    }
    EXPECT_EQ(rested, 0U);
    Work(1'000'000);
    EXPECT_EQ(limit.End(), WorkLimit::kRest);
    now += WorkLimit::kRest;
    Work(1'000'000);
    Wait(0);
    EXPECT_EQ(rested, 0U);
}

TEST_F(WorkLimitTest, ALongTurnIsStoppedAndStaysSo) {
    Work(WorkLimit::kMostWork - 1);
    EXPECT_TRUE(limit.MayGoOn());
    EXPECT_FALSE(limit.HasStopped());
    Work(1);
    EXPECT_FALSE(limit.MayGoOn());
    EXPECT_TRUE(limit.HasStopped());
    Wait(WorkLimit::kRest);
    EXPECT_TRUE(limit.MayGoOn());
    EXPECT_FALSE(limit.HasStopped());
}

TEST_F(WorkLimitTest, ALongRestIsNoCredit) {
    Wait(1'000'000'000);
    Work(WorkLimit::kMostWork);
    EXPECT_FALSE(limit.MayGoOn());
}

}  // namespace
}  // namespace vexil
