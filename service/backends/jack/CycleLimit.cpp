#include "service/backends/jack/CycleLimit.h"

#include <chrono>
#include <ctime>

namespace vexil {

namespace {

std::uint64_t ProcessorTime() {
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<std::uint64_t>(
        (std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec)).count());
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
