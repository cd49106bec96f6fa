#include "platform/linux/LinuxHostClock.h"

#include <cerrno>
#include <ctime>

namespace vexil {

std::uint64_t LinuxHostClock::HostTime() const {
    // Cannot fail: the clock exists on every kernel and the address is valid.
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<std::uint64_t>(now.tv_nsec);
}

void LinuxHostClock::SleepMicroseconds(unsigned microseconds) {
    timespec left{};
    left.tv_sec = static_cast<time_t>(microseconds / 1'000'000U);
    left.tv_nsec = static_cast<long>(microseconds % 1'000'000U) * 1000L;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

}  // namespace vexil
