// The status bytes that bound a system exclusive message, and those that may stand within it.
#pragma once

#include <cstdint>

namespace vexil {

inline constexpr std::uint8_t kStartOfExclusive = 0xF0;
inline constexpr std::uint8_t kEndOfExclusive = 0xF7;
inline constexpr std::uint8_t kEndBytes[] = {kEndOfExclusive};  // the end as a piece of its own
inline constexpr std::uint8_t kFirstRealtime = 0xF8;            // up to 0xFF

}  // namespace vexil
