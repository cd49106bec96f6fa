#include "service/backends/jack/CycleLimit.h"

#include <ctime>

namespace vexil {

namespace {

std::uint64_t ProcessorTime() {
    constexpr std::uint64_t kSecond = 1'000'000'000;
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * kSecond + static_cast<std::uint64_t>(time.tv_nsec);
}

}  // namespace

void CycleLimit::Begin(std::uint64_t nanoseconds) {
    cycle = nanoseconds;
    begin = ProcessorTime();
}

std::uint64_t CycleLimit::Used() const {
    return ProcessorTime() - begin;
}

}  // namespace vexil
