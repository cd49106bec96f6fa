// The host clock on Linux: CLOCK_MONOTONIC, which neither jumps nor runs backwards.
#pragma once

#include "panel/HostClock.h"

namespace vexil {

class LinuxHostClock : public HostClock {
  public:
    std::uint64_t HostTime() const override;
    // Waits the whole time, also when signals arrive meanwhile.
    void SleepMicroseconds(unsigned microseconds) override;
};

}  // namespace vexil
