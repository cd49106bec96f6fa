// The clock by which MIDI systems go, for the engine while none of them drives it.
#pragma once

#include <chrono>
#include <cstdint>

#include "service/engine/EngineDriver.h"

namespace vexil {

class SteadyEngineClock : public EngineClock {
  public:
    std::uint64_t Now() const override {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
    }
};

}  // namespace vexil
