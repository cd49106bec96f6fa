// How much of a cycle of JACK the engine may take. It goes by the processor's time of the process thread: one
// that is kept from its processor has not done anything.
#pragma once

#include <cstdint>

#include "service/engine/TurnLimit.h"

namespace vexil {

class CycleLimit : public TurnLimit {
  public:
    // A cycle of so many nanoseconds begins, on this thread.
    void Begin(std::uint64_t nanoseconds);
    // Whether what is written to a way that is suspected of a loop may still be read.
    bool MayRead() const { return Used() < cycle / 4; }
    // Half of a cycle is left to other programs.
    bool MayGoOn() override { return Used() < cycle / 2; }

  private:
    std::uint64_t Used() const;

    std::uint64_t cycle = 0;
    std::uint64_t begin = 0;
};

}  // namespace vexil
