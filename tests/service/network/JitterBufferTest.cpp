#include "service/network/JitterBuffer.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;

class JitterBufferTest : public testing::Test {
  protected:
    // 100 messages in a second, of which `few` come `late` microseconds after they were due, the others at
    // once.
    void Play(int few, std::uint64_t late) {
        for (int message = 0; message < 100; ++message) {
            now += kSecond / 100;
            buffer.PlayAt(now, message < few ? now - late : now);
        }
    }

    JitterBuffer buffer;
    std::uint64_t now = 1000 * kSecond;
};

TEST_F(JitterBufferTest, WhatComesInTimeIsPlayedTwoMillisecondsAfterItWasDue) {
    EXPECT_EQ(buffer.PlayAt(now, now), now + 2000);
    EXPECT_EQ(buffer.PlayAt(now, now - 500), now + 1500);
    EXPECT_EQ(buffer.Delay(), JitterBuffer::kShortest);
}

TEST_F(JitterBufferTest, WhatComesTooLateIsPlayedAtOnce) {
    EXPECT_EQ(buffer.PlayAt(now, now - 5000), now);
}

TEST_F(JitterBufferTest, TheDelayFollowsTheSlowestHundredth) {
    Play(2, 7000);
    Play(2, 7000);
    EXPECT_EQ(buffer.Delay(), 7000U);
    EXPECT_EQ(buffer.PlayAt(now, now), now + 7000);
}

TEST_F(JitterBufferTest, OneInAHundredIsLeftOutOfIt) {
    Play(1, 7000);
    Play(1, 7000);
    EXPECT_EQ(buffer.Delay(), JitterBuffer::kShortest);
}

TEST_F(JitterBufferTest, TheDelayIsBounded) {
    Play(50, 80'000);
    Play(50, 80'000);
    EXPECT_EQ(buffer.Delay(), JitterBuffer::kLongest);
}

TEST_F(JitterBufferTest, AfterTenQuietSecondsTheDelayIsShortAgain) {
    Play(10, 9000);
    for (int second = 0; second < 10; ++second) {
        Play(0, 0);
        if (second < 8) {
            EXPECT_EQ(buffer.Delay(), 9000U) << second;
        }
    }
    Play(0, 0);
    EXPECT_EQ(buffer.Delay(), JitterBuffer::kShortest);
}

TEST_F(JitterBufferTest, ALongSilenceChangesNothingAtOnce) {
    Play(10, 9000);
    Play(10, 9000);
    now += 3600 * kSecond;
    EXPECT_EQ(buffer.PlayAt(now, now), now + 9000);
}

}  // namespace
}  // namespace vexil
