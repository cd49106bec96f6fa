// A MIDI packet list in its packed wire form: a 32-bit count, then for each packet a 64-bit time stamp, a
// 16-bit length and the data, all little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexil {

inline constexpr std::size_t kPacketListHeaderSize = 4;
inline constexpr std::size_t kPacketHeaderSize = 10;

// Starts an empty list in `list`. Returns the place of the first packet, or null when the list has no room
// for its count.
std::uint8_t* MidiPacketListInit(std::uint8_t* list, std::size_t listSize);

// Appends a packet at `packet` (what Init or the last Add returned) and counts it. Returns the place behind
// it, or null, with the list unchanged, when it does not fit in `listSize` bytes or is longer than 65535.
std::uint8_t* MidiPacketListAdd(std::uint8_t* list, std::size_t listSize, std::uint8_t* packet,
                                std::uint64_t time, std::size_t length, const std::uint8_t* data);

// The list's length in bytes, by walking its packets.
std::size_t MidiPacketListLength(const std::uint8_t* list);

}  // namespace vexil
