// A clock that a test sets. A wait lets no real time pass; it moves the clock on and is noted.
#pragma once

#include <vector>

#include "panel/HostClock.h"

namespace vexil {

class MemoryHostClock : public HostClock {
  public:
    std::uint64_t now = 1'000'000'000;  // nanoseconds
    std::vector<unsigned> sleeps;       // microseconds

    std::uint64_t HostTime() const override { return now; }
    void SleepMicroseconds(unsigned microseconds) override {
        sleeps.push_back(microseconds);
        now += std::uint64_t{microseconds} * 1000;
    }
};

}  // namespace vexil
