// A clock of the engine that a test sets.
#pragma once

#include <cstdint>

#include "service/engine/EngineDriver.h"

namespace vexil {

class ManualEngineClock : public EngineClock {
  public:
    // Shows what `time` is at the moment, which must outlive this object.
    explicit ManualEngineClock(const std::uint64_t& time) : shown(time) {}

    std::uint64_t Now() const override { return shown; }

  private:
    const std::uint64_t& shown;
};

}  // namespace vexil
