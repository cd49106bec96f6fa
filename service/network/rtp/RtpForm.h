// The bits of a packet's header and of its command section (RFC 6295, sections 2.1 and 3).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexil::rtp {

inline constexpr std::uint8_t kVersion = 2;
inline constexpr std::uint8_t kPayloadType = 97;

// First byte of the header.
inline constexpr std::uint8_t kHasPadding = 0x20;
inline constexpr std::uint8_t kHasExtension = 0x10;
inline constexpr std::uint8_t kSourceCount = 0x0F;
// Second byte; above it is the marker.
inline constexpr std::uint8_t kPayloadTypeBits = 0x7F;

// First byte of the command section.
inline constexpr std::uint8_t kLongLength = 0x80;
inline constexpr std::uint8_t kHasJournal = 0x40;
inline constexpr std::uint8_t kBeginsTimed = 0x20;
inline constexpr std::uint8_t kLengthBits = 0x0F;

inline constexpr std::size_t kHeaderSize = 12;
inline constexpr std::size_t kMostDeltaBytes = 4;
inline constexpr std::uint32_t kLongestDelta = (std::uint32_t{1} << 28) - 1;
inline constexpr std::size_t kShortListSize = 15;  // up to this the length has one byte
inline constexpr std::size_t kLongestListSize = 4095;

}  // namespace vexil::rtp
