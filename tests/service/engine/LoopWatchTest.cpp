// Which ways are suspected of being part of a loop.
#include "service/engine/LoopWatch.h"

#include "service/engine/Engine.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::uint64_t kMoreThanUsual = LoopWatch::kUsualRate + 1;

class LoopWatchTest : public ::testing::Test, private EngineWaker {
  protected:
    LoopWatchTest() {
        engine.SetSuspicionWaker(this);
        ways[3] = To(7);
        EXPECT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }

    void PlayASecond(std::uint64_t messages) { PlayASecond(messages, {3}); }
    // Each of the sources in turn.
    void PlayASecond(std::uint64_t messages, const std::vector<int>& sources) {
        for (std::uint64_t i = 0; i < messages; ++i) {
            engine.Write(sources[i % sources.size()], now + i * kSecond / messages, Bytes{0x90, 60, 100});
        }
        Pass(kSecond);
    }
    void Pass(std::uint64_t time) {
        now += time;
        engine.Run(now, sink);
    }
    void PlayUntilSuspected() {
        for (int second = 0; second < LoopWatch::kUsualSeconds; ++second) {
            PlayASecond(kMoreThanUsual);
        }
        engine.Write(3, now, Bytes{0x90, 60, 100});
        engine.Run(now + 1, sink);
    }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 10 * kSecond;
    int wakes = 0;

  private:
    void Wake() override { ++wakes; }
};

TEST_F(LoopWatchTest, AWayWithMoreThanUsualForTwoSecondsIsSuspectedAndItsRateIsKnown) {
    PlayASecond(kMoreThanUsual + 700);
    engine.Write(3, now, Bytes{0x90, 60, 100});
    EXPECT_EQ(engine.SuspectedRate(3), 0U);
    PlayASecond(kMoreThanUsual + 700);
    engine.Write(3, now, Bytes{0x90, 60, 100});
    EXPECT_EQ(engine.SuspectedRate(3), kMoreThanUsual + 701);
}

TEST_F(LoopWatchTest, TheUsualRateIsNeverSuspected) {
    for (int second = 0; second < 10; ++second) {
        PlayASecond(LoopWatch::kUsualRate);
    }
    EXPECT_EQ(engine.SuspectedRate(3), 0U);
    EXPECT_EQ(wakes, 0);
}

TEST_F(LoopWatchTest, BusySecondsThatAreNotInARowAreNotSuspected) {
    for (int round = 0; round < 4; ++round) {
        PlayASecond(kMoreThanUsual);
        PlayASecond(1);
        PlayASecond(kMoreThanUsual);
        Pass(3 * kSecond);
    }
    EXPECT_EQ(wakes, 0);
}

TEST_F(LoopWatchTest, TheWritersOfAnOutputCountTogether) {
    const int one = engine.TakeWriter(3).value();
    const int other = engine.TakeWriter(3).value();
    for (int second = 0; second < 4; ++second) {
        PlayASecond(kMoreThanUsual, {one, other});
    }
    EXPECT_EQ(engine.SuspectedRate(3), kMoreThanUsual);
}

TEST_F(LoopWatchTest, WhatLeadsNowhereIsNotSuspected) {
    for (int second = 0; second < 4; ++second) {
        PlayASecond(kMoreThanUsual, {4});
    }
    EXPECT_EQ(engine.SuspectedRate(4), 0U);
}

TEST_F(LoopWatchTest, WhoeverAsksToBeIsWokenOnceWhenASuspicionComesAndOnceWhenItGoes) {
    PlayUntilSuspected();
    EXPECT_GT(engine.SuspectedRate(3), 0U);
    EXPECT_EQ(wakes, 1);
    PlayASecond(kMoreThanUsual);
    PlayASecond(kMoreThanUsual);
    EXPECT_EQ(wakes, 1);
    PlayASecond(1);
    PlayASecond(1);
    EXPECT_EQ(engine.SuspectedRate(3), 0U);
    EXPECT_EQ(wakes, 2);
}

TEST_F(LoopWatchTest, ASuspicionEndsWithoutAnotherMessageAndTheEngineSaysWhenToLook) {
    PlayUntilSuspected();
    PlayASecond(kMoreThanUsual);
    for (int look = 0; look < 3 && engine.NextDue(); ++look) {
        now = *engine.NextDue();
        engine.Run(now, sink);
    }
    EXPECT_FALSE(engine.NextDue().has_value());
    EXPECT_EQ(engine.SuspectedRate(3), 0U);
    EXPECT_EQ(wakes, 2);
}

TEST_F(LoopWatchTest, ALongSystemExclusiveIsOneMessage) {
    for (int second = 0; second < 4; ++second) {
        engine.Write(3, now, Bytes{0xF0});
        for (std::uint64_t i = 0; i < kMoreThanUsual; ++i) {
            engine.Write(3, now + i * kSecond / kMoreThanUsual, Bytes{1});
        }
        Pass(kSecond);
        engine.Write(3, now, Bytes{0xF7});
    }
    EXPECT_EQ(wakes, 0);
}

}  // namespace
}  // namespace vexil
