// Who drives the engine while no MIDI system does. A seam: the control thread itself now, a thread of its own
// where something besides MIDI systems has messages that must be on time.
//
// All operations are for the control thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace vexil {

// The clock by which such a driver goes; a seam. Nanoseconds, never going back; that of MIDI systems.
class EngineClock {
  public:
    virtual ~EngineClock() = default;
    virtual std::uint64_t Now() const = 0;
};

class EngineDriver {
  public:
    virtual ~EngineDriver() = default;
    // Takes up what was posted, and lets out what is due; from then on what becomes due as well, at once or
    // at the next turn (see UntilNextTurn).
    virtual void Turn() = 0;
    // A MIDI system may be about to drive. When this returns no thread of the driver's is in the engine,
    // until the next Turn.
    virtual void Rest() = 0;
    // How long until Turn is to be called again; none: not before something is posted.
    virtual std::optional<std::chrono::nanoseconds> UntilNextTurn() const = 0;
};

}  // namespace vexil
