// What every implementation of Desktop must do. A subject type supplies, default-constructed, with a window
// made:
//
//   Desktop& Seam();
//   void Post(Script script);    runs inside the event loop, in the order of posting
//   bool IsWindowVisible();
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "panel/Desktop.h"

namespace vexil {

template <class Subject>
class DesktopContract : public ::testing::Test {
  protected:
    Desktop& Seam() { return subject.Seam(); }

    Subject subject;
};

TYPED_TEST_SUITE_P(DesktopContract);

TYPED_TEST_P(DesktopContract, DisplayHasASize) {
    EXPECT_GT(this->Seam().DisplayWidth(), 0);
    EXPECT_GT(this->Seam().DisplayHeight(), 0);
}

TYPED_TEST_P(DesktopContract, LoopRunsUntilItIsEnded) {
    std::vector<int> order;
    this->subject.Post([&] { order.push_back(1); });
    this->subject.Post([&] {
        order.push_back(2);
        this->Seam().EndEventLoop();
    });
    this->Seam().RunEventLoop();
    order.push_back(3);
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TYPED_TEST_P(DesktopContract, LoopRunsAgainAfterItHasEnded) {
    int runs = 0;
    for (int i = 0; i < 3; ++i) {
        this->subject.Post([&] {
            ++runs;
            this->Seam().EndEventLoop();
        });
        this->Seam().RunEventLoop();
    }
    EXPECT_EQ(runs, 3);
}

TYPED_TEST_P(DesktopContract, LoopEndedTwiceEndsOnce) {
    int runs = 0;
    this->subject.Post([&] {
        this->Seam().EndEventLoop();
        this->Seam().EndEventLoop();
    });
    this->Seam().RunEventLoop();
    this->subject.Post([&] {
        ++runs;
        this->Seam().EndEventLoop();
    });
    this->Seam().RunEventLoop();
    EXPECT_EQ(runs, 1);
}

TYPED_TEST_P(DesktopContract, EndOutsideTheLoopDoesNotReachTheNextRun) {
    int runs = 0;
    this->Seam().EndEventLoop();
    this->subject.Post([&] {
        ++runs;
        this->Seam().EndEventLoop();
    });
    this->Seam().RunEventLoop();
    EXPECT_EQ(runs, 1);
}

TYPED_TEST_P(DesktopContract, WindowIsShownAndHidden) {
    this->Seam().FlushEvents();
    this->Seam().SetDialogBackground();
    EXPECT_FALSE(this->subject.IsWindowVisible());
    this->Seam().ShowWindow();
    EXPECT_TRUE(this->subject.IsWindowVisible());
    this->Seam().ActivateWindow(false);
    this->Seam().ActivateWindow(true);
    EXPECT_TRUE(this->subject.IsWindowVisible());
    this->Seam().HideWindow();
    EXPECT_FALSE(this->subject.IsWindowVisible());
}

REGISTER_TYPED_TEST_SUITE_P(DesktopContract, DisplayHasASize, LoopRunsUntilItIsEnded,
                            LoopRunsAgainAfterItHasEnded, LoopEndedTwiceEndsOnce,
                            EndOutsideTheLoopDoesNotReachTheNextRun, WindowIsShownAndHidden);

}  // namespace vexil
