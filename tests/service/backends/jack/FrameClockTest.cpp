#include "service/backends/jack/FrameClock.h"

#include <gtest/gtest.h>

#include <limits>

namespace vexil {
namespace {

constexpr std::uint64_t kOrigin = 5'000'000'123;

TEST(FrameClockTest, TheFirstCycleBeginsAtTheFirstTime) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(123456, 64);
    EXPECT_EQ(clock.Start(), kOrigin);
    EXPECT_EQ(clock.End(), kOrigin + 1'333'333);
}

TEST(FrameClockTest, ACycleBeginsWhereTheOneBeforeItEnded) {
    FrameClock clock(44100, kOrigin);
    clock.Begin(0, 64);
    const std::uint64_t end = clock.End();
    clock.Begin(64, 64);
    EXPECT_EQ(clock.Start(), end);
}

TEST(FrameClockTest, WhatWasMissedIsTimeThatPassed) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(0, 64);
    clock.Begin(48000, 64);
    EXPECT_EQ(clock.Start(), kOrigin + 1'000'000'000);
}

TEST(FrameClockTest, FrameTimesRunOver) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(std::numeric_limits<std::uint32_t>::max() - 23999, 64);
    clock.Begin(24000, 64);
    EXPECT_EQ(clock.Start(), kOrigin + 1'000'000'000);
}

TEST(FrameClockTest, ACycleNeverBeginsBeforeTheLastHasEnded) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(1000, 480);
    const std::uint64_t end = clock.End();
    clock.Begin(500, 480);
    EXPECT_EQ(clock.Start(), end);
    clock.Begin(600, 480);
    EXPECT_EQ(clock.Start(), end + 10'000'000);
}

TEST(FrameClockTest, ADayOfCyclesKeepsTheTime) {
    FrameClock clock(48000, 0);
    std::uint32_t frameTime = 0;
    clock.Begin(frameTime, 64);
    for (int second = 0; second < 86400 * 40; ++second) {
        frameTime += 48000;
        clock.Begin(frameTime, 64);
    }
    EXPECT_EQ(clock.Start(), std::uint64_t{86400} * 40 * 1'000'000'000);
}

TEST(FrameClockTest, FramesAndTimesAreInverse) {
    for (const std::uint32_t rate : {8000U, 44100U, 48000U, 88200U, 192000U}) {
        FrameClock clock(rate, kOrigin);
        clock.Begin(0, 1024);
        clock.Begin(987'654'321, 1024);
        for (std::uint32_t frame = 0; frame < 1024; ++frame) {
            ASSERT_EQ(clock.FrameOf(clock.TimeOf(frame)), frame) << rate;
        }
    }
}

TEST(FrameClockTest, ATimeBetweenFramesIsTheNextFrame) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(0, 64);
    EXPECT_EQ(clock.FrameOf(clock.TimeOf(10) + 1), 11U);
}

TEST(FrameClockTest, TimesOutsideTheCycleAreItsFirstAndLastFrame) {
    FrameClock clock(48000, kOrigin);
    clock.Begin(0, 64);
    clock.Begin(64, 64);
    EXPECT_EQ(clock.FrameOf(0), 0U);
    EXPECT_EQ(clock.FrameOf(clock.Start() - 1), 0U);
    EXPECT_EQ(clock.FrameOf(clock.End()), 63U);
}

}  // namespace
}  // namespace vexil
