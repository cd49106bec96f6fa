// Wraps a clock and makes it stand still, or its waits end early, on demand.
#pragma once

#include <optional>

#include "panel/HostClock.h"

namespace vexil {

class FaultyHostClock : public HostClock {
  public:
    // `wrapped` must outlive this object.
    explicit FaultyHostClock(HostClock& wrapped) : inner(wrapped) {}

    std::optional<std::uint64_t> frozenAt;  // set: the time that the clock shows
    bool sleepEndsAtOnce = false;

    std::uint64_t HostTime() const override { return frozenAt ? *frozenAt : inner.HostTime(); }
    void SleepMicroseconds(unsigned microseconds) override {
        if (!sleepEndsAtOnce) {
            inner.SleepMicroseconds(microseconds);
        }
    }

  private:
    HostClock& inner;
};

}  // namespace vexil
