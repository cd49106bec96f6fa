// Seam: asking the system to restart the computer, in the three steps that can fail on their own. Each
// returns 0 or the system's error code.
#pragma once

#include <cstdint>

namespace vexil {

// The restart event, 'rest'.
inline constexpr std::uint32_t kAERestart = 0x72657374;

class Restarter {
  public:
    virtual ~Restarter() = default;

    // Reaches the system process.
    virtual std::int32_t MakeAddress() = 0;
    // Makes the request of the four-character event id, for the address; the address is disposed of either
    // way.
    virtual std::int32_t MakeEvent(std::uint32_t eventId) = 0;
    // Sends the request without waiting for a reply and disposes of it.
    virtual std::int32_t SendEvent() = 0;
};

}  // namespace vexil
