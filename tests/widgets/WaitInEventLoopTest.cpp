#include "platform/qt/WaitInEventLoop.h"

#include <poll.h>
#include <unistd.h>

#include <QTimer>

#include <gtest/gtest.h>

#include <array>
#include <chrono>

namespace vexil {
namespace {

using namespace std::chrono_literals;

class WaitInLoop : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(pipe(ends.data()), 0); }
    void TearDown() override {
        close(ends[0]);
        close(ends[1]);
    }

    std::array<int, 2> ends{};
};

TEST_F(WaitInLoop, EventsAreServedUntilTheDescriptorIsReady) {
    bool served = false;
    QTimer::singleShot(0, [this, &served] {
        served = true;
        EXPECT_EQ(write(ends[1], "x", 1), 1);
    });
    WaitInEventLoop(ends[0], POLLIN, 1h);
    EXPECT_TRUE(served);
}

TEST_F(WaitInLoop, RoomToWriteEndsTheWait) {
    WaitInEventLoop(ends[1], POLLOUT, 1h);
}

TEST_F(WaitInLoop, ADescriptorThatStaysSilentIsWaitedForNoLonger) {
    WaitInEventLoop(ends[0], POLLIN, 1ms);
}

}  // namespace
}  // namespace vexil
