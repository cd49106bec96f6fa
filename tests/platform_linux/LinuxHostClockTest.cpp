#include "platform/linux/LinuxHostClock.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <ctime>

namespace vexil {
namespace {

TEST(LinuxHostClockTest, HostTimeIsTheMonotonicClockInNanoseconds) {
    const LinuxHostClock clock;
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    const std::uint64_t now = clock.HostTime();
    clock_gettime(CLOCK_MONOTONIC, &after);
    const auto nanoseconds = [](const timespec& time) {
        return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
               static_cast<std::uint64_t>(time.tv_nsec);
    };
    EXPECT_LE(nanoseconds(before), now);
    EXPECT_LE(now, nanoseconds(after));
}

TEST(LinuxHostClockTest, SleepWaitsTheWholeTime) {
    LinuxHostClock clock;
    const std::uint64_t start = clock.HostTime();
    clock.SleepMicroseconds(20'000);
    EXPECT_GE(clock.HostTime() - start, 20'000'000U);
}

int signalsReceived = 0;

TEST(LinuxHostClockTest, SleepWaitsTheWholeTimeWhileSignalsArrive) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { ++signalsReceived; };  // without SA_RESTART: system calls end with EINTR
    sigaction(SIGALRM, &action, &before);
    const itimerval often{{0, 2000}, {0, 2000}};
    const itimerval never{};
    LinuxHostClock clock;
    const std::uint64_t start = clock.HostTime();
    setitimer(ITIMER_REAL, &often, nullptr);
    clock.SleepMicroseconds(50'000);
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_GE(clock.HostTime() - start, 50'000'000U);
    EXPECT_GT(signalsReceived, 0);
    sigaction(SIGALRM, &before, nullptr);
}

}  // namespace
}  // namespace vexil
