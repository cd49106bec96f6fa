// The times of an association, in microseconds. docs/link-protocol.md states them.
#pragma once

#include <cstdint>

namespace vexil {

inline constexpr std::uint64_t kAckDelay = 1000;  // of records without a gap
// Something is sent this often at least. The side that was called waits a little longer: it says that it
// lives when it hears the other, and needs no wake-up of its own.
inline constexpr std::uint64_t kAliveInterval = 1'000'000;
inline constexpr std::uint64_t kCalledAliveInterval = 1'050'000;
inline constexpr std::uint64_t kEarlyAlive = 500'000;    // and with the peer's, when ours is this old
inline constexpr std::uint64_t kProbeAfter = 1'100'000;  // of silence
inline constexpr std::uint64_t kProbeInterval = 150'000;
inline constexpr std::uint64_t kLostAfter = 2'000'000;  // of silence
inline constexpr std::int32_t kLateNoteOn = 500'000;    // a note-on that is later is left out
inline constexpr int kByes = 3;                         // a bye goes this often

}  // namespace vexil
