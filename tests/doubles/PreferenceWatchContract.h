// What every implementation of PreferenceWatch must do. A subject type supplies, default-constructed:
//
//   PreferenceWatch& Seam();
//   void Change();    another program changes the domain
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include "platform/linux/preferences/PreferenceWatch.h"

namespace vexil {

template <class Subject>
class PreferenceWatchContract : public ::testing::Test {
  protected:
    // The system tells at once; the time is for a busy machine.
    bool IsTold(int milliseconds = 10000) {
        pollfd watched{subject.Seam().EventDescriptor(), POLLIN, 0};
        return poll(&watched, 1, milliseconds) == 1;
    }

    Subject subject;
};

TYPED_TEST_SUITE_P(PreferenceWatchContract);

TYPED_TEST_P(PreferenceWatchContract, WithoutAChangeNothingIsTold) {
    EXPECT_FALSE(this->IsTold(0));
    EXPECT_FALSE(this->subject.Seam().Take());
}

TYPED_TEST_P(PreferenceWatchContract, AChangeIsTold) {
    this->subject.Change();
    EXPECT_TRUE(this->IsTold());
    EXPECT_TRUE(this->subject.Seam().Take());
}

TYPED_TEST_P(PreferenceWatchContract, WhatWasTakenIsNotToldAgain) {
    this->subject.Change();
    this->subject.Change();
    ASSERT_TRUE(this->IsTold());
    EXPECT_TRUE(this->subject.Seam().Take());
    EXPECT_FALSE(this->IsTold(0));
    EXPECT_FALSE(this->subject.Seam().Take());
}

TYPED_TEST_P(PreferenceWatchContract, EveryChangeIsTold) {
    for (int change = 0; change < 5; ++change) {
        this->subject.Change();
        ASSERT_TRUE(this->IsTold());
        EXPECT_TRUE(this->subject.Seam().Take());
    }
}

REGISTER_TYPED_TEST_SUITE_P(PreferenceWatchContract, WithoutAChangeNothingIsTold, AChangeIsTold,
                            WhatWasTakenIsNotToldAgain, EveryChangeIsTold);

}  // namespace vexil
