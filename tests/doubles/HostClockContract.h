// What every implementation of HostClock must do. A subject type supplies, default-constructed: HostClock&
// Seam().
#pragma once

#include <gtest/gtest.h>

#include "panel/HostClock.h"

namespace vexil {

template <class Subject>
class HostClockContract : public ::testing::Test {
  protected:
    Subject subject;
};

TYPED_TEST_SUITE_P(HostClockContract);

TYPED_TEST_P(HostClockContract, TimeDoesNotGoBack) {
    std::uint64_t last = this->subject.Seam().HostTime();
    for (int i = 0; i < 1000; ++i) {
        const std::uint64_t now = this->subject.Seam().HostTime();
        ASSERT_GE(now, last);
        last = now;
    }
}

TYPED_TEST_P(HostClockContract, WaitLastsAtLeastAsLongAsAskedInNanosecondsOfTheClock) {
    const std::uint64_t before = this->subject.Seam().HostTime();
    this->subject.Seam().SleepMicroseconds(10000);
    EXPECT_GE(this->subject.Seam().HostTime() - before, 10'000'000U);
}

TYPED_TEST_P(HostClockContract, NoWaitIsNone) {
    this->subject.Seam().SleepMicroseconds(0);
    SUCCEED();
}

REGISTER_TYPED_TEST_SUITE_P(HostClockContract, TimeDoesNotGoBack,
                            WaitLastsAtLeastAsLongAsAskedInNanosecondsOfTheClock, NoWaitIsNone);

}  // namespace vexil
