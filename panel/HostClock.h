// Seam: the clock that MIDI time stamps are taken from, and the one short wait of the panel.
#pragma once

#include <cstdint>

namespace vexil {

class HostClock {
  public:
    virtual ~HostClock() = default;

    // Now, in nanoseconds of a monotonic clock.
    virtual std::uint64_t HostTime() const = 0;
    virtual void SleepMicroseconds(unsigned microseconds) = 0;
};

}  // namespace vexil
