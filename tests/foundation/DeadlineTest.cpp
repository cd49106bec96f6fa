#include "shared/System/Deadline.h"

#include <gtest/gtest.h>

namespace vexil {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr Deadline kNow{hours(1000)};

TEST(DeadlineTest, WholeMillisecondsAreGivenAsTheyAre) {
    EXPECT_EQ(250, MillisecondsUntil(kNow + milliseconds(250), kNow));
}

TEST(DeadlineTest, ABegunMillisecondIsWaitedForToItsEnd) {
    EXPECT_EQ(1, MillisecondsUntil(kNow + nanoseconds(1), kNow));
    EXPECT_EQ(251, MillisecondsUntil(kNow + milliseconds(250) + nanoseconds(1), kNow));
}

TEST(DeadlineTest, ADeadlineThatHasPassedIsNoWait) {
    EXPECT_EQ(0, MillisecondsUntil(kNow, kNow));
    EXPECT_EQ(0, MillisecondsUntil(kNow - hours(1), kNow));
}

TEST(DeadlineTest, ADeadlineTooFarForAnIntegerIsTheLongestWait) {
    EXPECT_EQ(INT_MAX, MillisecondsUntil(kNow + hours(24 * 365), kNow));
}

TEST(DeadlineTest, ADeadlineIsMeasuredFromThePresent) {
    const Deadline deadline = std::chrono::steady_clock::now() + hours(1);
    const int left = MillisecondsUntil(deadline);
    EXPECT_GT(left, 3600'000 - 60'000);
    EXPECT_LE(left, 3600'000);
}

}  // namespace
}  // namespace vexil
