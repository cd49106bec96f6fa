#include "service/PollLoop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>

#include "shared/System/Descriptor.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;

Descriptor ReadyDescriptor(bool isReady) {
    return Descriptor(eventfd(isReady ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
}

TEST(PollLoop, ServesWhoIsReadyAndNobodyElse) {
    const Descriptor ready = ReadyDescriptor(true);
    const Descriptor quiet = ReadyDescriptor(false);
    int served = 0;
    int others = 0;
    PollLoop loop;
    loop.Add({quiet.Number(), [&] { ++others; }});
    loop.Add({ready.Number(), [&] { ++served; }});
    loop.Add({-1, [&] { ++others; }});
    loop.Round();
    EXPECT_EQ(1, served);
    EXPECT_EQ(0, others);
}

TEST(PollLoop, ServesWhoseTimeIsOver) {
    const auto start = std::chrono::steady_clock::now();
    int served = 0;
    int later = 0;
    PollLoop loop;
    loop.Add({-1, [&] { ++served; }, [] { return 20; }});
    loop.Add({-1, [&] { ++later; }, [] { return 10000; }});
    loop.Round();
    EXPECT_EQ(1, served);
    EXPECT_EQ(0, later);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(PollLoop, AsksForTheTimeInEveryRound) {
    int asked = 0;
    PollLoop loop;
    loop.Add({-1, [] {},
              [&] {
                  ++asked;
                  return 0;
              }});
    loop.Round();
    loop.Round();
    EXPECT_EQ(2, asked);
}

TEST(PollLoop, WhoIsServedFirstMayChangeWhatIsLeftForTheNext) {
    const Descriptor ready = ReadyDescriptor(true);
    bool isDone = false;
    bool sawDone = false;
    PollLoop loop;
    loop.Add({ready.Number(), [&] { isDone = true; }});
    loop.Add({ready.Number(), [&] { sawDone = isDone; }});
    loop.Round();
    EXPECT_TRUE(sawDone);
}

TEST(PollLoop, ADescriptorThatIsForgottenMayBeClosed) {
    Descriptor closed = ReadyDescriptor(true);
    int served = 0;
    PollLoop loop;
    loop.Add({closed.Number(), [&] { ++served; }});
    loop.Add({-1, [] {}, [] { return 0; }});
    loop.Forget(closed.Number());
    closed = Descriptor();
    loop.Round();
    EXPECT_EQ(0, served);
}

}  // namespace
}  // namespace vexil
