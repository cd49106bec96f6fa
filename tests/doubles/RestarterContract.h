// What every implementation of Restarter must do. A subject type supplies, default-constructed:
//
//   Restarter& Seam();
//   int Requests();    how many restarts the system has been asked for
#pragma once

#include <gtest/gtest.h>

#include "panel/Restarter.h"

namespace vexil {

template <class Subject>
class RestarterContract : public ::testing::Test {
  protected:
    Subject subject;
};

TYPED_TEST_SUITE_P(RestarterContract);

TYPED_TEST_P(RestarterContract, ThreeStepsAskForOneRestart) {
    Restarter& restarter = this->subject.Seam();
    EXPECT_EQ(restarter.MakeAddress(), 0);
    EXPECT_EQ(restarter.MakeEvent(kAERestart), 0);
    EXPECT_EQ(this->subject.Requests(), 0) << "nothing is asked before the last step";
    EXPECT_EQ(restarter.SendEvent(), 0);
    EXPECT_EQ(this->subject.Requests(), 1);
}

TYPED_TEST_P(RestarterContract, EventWithoutAnAddressFails) {
    EXPECT_NE(this->subject.Seam().MakeEvent(kAERestart), 0);
    EXPECT_NE(this->subject.Seam().SendEvent(), 0);
    EXPECT_EQ(this->subject.Requests(), 0);
}

TYPED_TEST_P(RestarterContract, EventIsSentOnce) {
    Restarter& restarter = this->subject.Seam();
    restarter.MakeAddress();
    restarter.MakeEvent(kAERestart);
    restarter.SendEvent();
    EXPECT_NE(restarter.SendEvent(), 0);
    EXPECT_EQ(this->subject.Requests(), 1);
}

TYPED_TEST_P(RestarterContract, StepsCanBeGoneThroughAgain) {
    Restarter& restarter = this->subject.Seam();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(restarter.MakeAddress(), 0);
        EXPECT_EQ(restarter.MakeEvent(kAERestart), 0);
        EXPECT_EQ(restarter.SendEvent(), 0);
    }
    EXPECT_EQ(this->subject.Requests(), 2);
}

REGISTER_TYPED_TEST_SUITE_P(RestarterContract, ThreeStepsAskForOneRestart, EventWithoutAnAddressFails,
                            EventIsSentOnce, StepsCanBeGoneThroughAgain);

}  // namespace vexil
