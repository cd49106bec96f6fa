#include "service/network/NetworkThread.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "service/SteadyEngineClock.h"

namespace vexil {
namespace {

using Clock = std::chrono::steady_clock;

bool HoldsSoon(const std::function<bool()>& holds) {
    for (const Clock::time_point end = Clock::now() + std::chrono::seconds(30); Clock::now() < end;) {
        if (holds()) {
            return true;
        }
        std::this_thread::yield();
    }
    return holds();
}

// Counts what it is called for.
class CountedWork : public NetworkWork {
  public:
    int EventDescriptor() const override { return event.Number(); }
    bool Read() override {
        ++reads;
        return neverEmpty.load();
    }
    void Act() override {
        ++acts;
        due = 0;
    }
    void Deliver() override { taken.store(given.load()); }
    std::optional<std::uint64_t> NextTime() const override {
        const std::uint64_t time = due.load();
        return time == 0 ? std::nullopt : std::optional(time);
    }
    bool TakeChanged() override { return false; }

    Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    std::atomic<int> reads{0};
    std::atomic<int> acts{0};
    std::atomic<int> given{0};
    std::atomic<int> taken{0};
    std::atomic<std::uint64_t> due{0};
    std::atomic<bool> neverEmpty{false};
};

class NetworkThreadTest : public ::testing::Test {
  protected:
    Engine engine;
    SteadyEngineClock clock;
    NetworkDriver driver{engine, clock};
    CountedWork work;
    NetworkThread thread{work, driver};
};

TEST_F(NetworkThreadTest, NobodyWhoWakesItIsMissedWhetherItSleepsOrWorks) {
    for (int count = 1; count <= 5000; ++count) {
        work.given = count;
        thread.Wake();
        ASSERT_TRUE(HoldsSoon([&] { return work.taken.load() == count; })) << count;
    }
}

TEST_F(NetworkThreadTest, ItActsOnlyWhenSomethingIsDue) {
    work.given = 1;
    thread.Wake();
    ASSERT_TRUE(HoldsSoon([&] { return work.taken.load() == 1; }));
    EXPECT_EQ(work.acts, 0);
    const std::uint64_t due = BootMicroseconds() + 20'000;
    work.due = due;
    thread.Wake();
    ASSERT_TRUE(HoldsSoon([&] { return work.acts.load() == 1; }));
    EXPECT_GE(BootMicroseconds(), due);
}

TEST_F(NetworkThreadTest, WhatIsDeliveredAndWhatIsDueDoNotWaitUntilNothingArrives) {
    work.neverEmpty = true;
    const std::uint64_t one = 1;
    ASSERT_EQ(write(work.event.Number(), &one, sizeof one), static_cast<ssize_t>(sizeof one));
    ASSERT_TRUE(HoldsSoon([&] { return work.reads.load() > 1000; }));
    work.given = 1;
    work.due = 1;
    EXPECT_TRUE(HoldsSoon([&] { return work.taken.load() == 1 && work.acts.load() > 0; }));
}

}  // namespace
}  // namespace vexil
