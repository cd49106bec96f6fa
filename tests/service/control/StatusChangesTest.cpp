// When whoever waits for a change of the status is told of it, and when the status is not even looked at.
#include "service/control/StatusChanges.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using namespace std::chrono_literals;

class StatusChangesTest : public ::testing::Test {
  protected:
    // Whether the number became another one.
    template <class Act>
    bool Changes(Act act) {
        const std::uint32_t before = changes.Number();
        act();
        return changes.Number() != before;
    }
    void Pass(std::chrono::milliseconds time) {
        now += time;
        changes.Settle();
    }
    // A message after a long silence, as the engine tells it.
    void Play() {
        ++traffic;
        ASSERT_TRUE(awaited);
        awaited = false;
        changes.Carried();
        changes.Settle();
    }

    StatusChanges::Clock::time_point now{1h};
    std::string state = "a";
    std::uint64_t traffic = 0;
    int stateLooks = 0;
    bool awaited = false;
    StatusChanges changes{{[this] {
                               ++stateLooks;
                               return state;
                           },
                           [this] { return traffic; }, [this] { awaited = true; }, [this] { return now; }}};
};

TEST_F(StatusChangesTest, WithoutAWatcherNothingIsLookedAt) {
    state = "b";
    changes.Settle();
    changes.Carried();
    EXPECT_EQ(changes.Timeout(), -1);
    EXPECT_EQ(stateLooks, 0);
    EXPECT_FALSE(awaited);
    changes.SetWatched(true);
    changes.SetWatched(false);
    stateLooks = 0;
    state = "c";
    changes.Settle();
    EXPECT_EQ(changes.Timeout(), -1);
    EXPECT_EQ(stateLooks, 0);
}

TEST_F(StatusChangesTest, AWatchThatBeginsMeansAnotherNumberAsNobodyHasLookedMeanwhile) {
    EXPECT_TRUE(Changes([&] { changes.SetWatched(true); }));
    EXPECT_EQ(changes.Timeout(), -1);
}

TEST_F(StatusChangesTest, AChangeIsToldAtOnceAndTheNextOneNoSoonerThanAfterTheInterval) {
    changes.SetWatched(true);
    now += 1h;
    state = "b";
    EXPECT_TRUE(Changes([&] { changes.Settle(); }));
    state = "c";
    EXPECT_FALSE(Changes([&] { Pass(10ms); }));
    EXPECT_EQ(changes.Timeout(), 90);
    EXPECT_TRUE(Changes([&] { Pass(90ms); }));
    EXPECT_EQ(changes.Timeout(), -1) << "the look itself is nothing that has happened";
}

TEST_F(StatusChangesTest, WhatHappensWithoutAChangeHasTheSameNumber) {
    changes.SetWatched(true);
    now += 1h;
    EXPECT_FALSE(Changes([&] { changes.Settle(); }));
    EXPECT_EQ(changes.Timeout(), -1);
}

TEST_F(StatusChangesTest, MusicIsToldWhenItBeginsWhileItPlaysAndOnceMoreWhenItHasEnded) {
    changes.SetWatched(true);
    now += 1h;
    const std::uint32_t looks = changes.Looks();
    EXPECT_TRUE(Changes([&] { Play(); }));
    EXPECT_FALSE(awaited) << "while it plays the engine need not wake anybody";
    Pass(100ms);  // the look at the state behind that
    EXPECT_EQ(changes.Timeout(), 150);
    ++traffic;
    EXPECT_TRUE(Changes([&] { Pass(150ms); }));
    EXPECT_TRUE(Changes([&] { Pass(250ms); })) << "so that the reader sees two equal looks";
    EXPECT_EQ(changes.Looks(), looks + 3);
    EXPECT_TRUE(awaited);
    EXPECT_EQ(changes.Timeout(), -1);
}

TEST_F(StatusChangesTest, AMessageThatComesJustBeforeTheEngineIsAskedToWakeIsNotMissed) {
    changes.SetWatched(true);
    Play();
    traffic += 1;
    changes.SetWatched(false);
    StatusChanges racing({[] { return std::string(); }, [this] { return traffic; }, [this] { ++traffic; },
                          [this] { return now; }});
    racing.SetWatched(true);
    EXPECT_EQ(racing.Timeout(), 250);
}

}  // namespace
}  // namespace vexil
