// Where the engine leaves what destinations are to hear.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include "service/routes/Destination.h"

namespace vexil {

// A MIDI system is the sink of the inputs here, a network that of other computers. Engine thread.
class EngineSink {
  public:
    virtual ~EngineSink() = default;
    // Bytes that the destination can take at this moment.
    virtual std::size_t Room(const Destination& to) const = 0;
    // One whole message, or one piece of a system exclusive message (pieces come in order, with nothing of
    // another source between them; a realtime message may stand between two pieces). Never more than Room.
    // Times of one destination never go back.
    virtual void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) = 0;
    // The engine has delivered all that it had in this turn: whoever waits for it may be woken, once.
    virtual void EndTurn() {}
};

// Where nobody listens: takes everything.
class SilentSink : public EngineSink {
  public:
    std::size_t Room(const Destination&) const override { return std::numeric_limits<std::size_t>::max(); }
    void Deliver(const Destination&, std::uint64_t, std::span<const std::uint8_t>) override {}
};

}  // namespace vexil
