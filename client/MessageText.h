// MIDI messages in words.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vexil {

// "note on C4 velocity 64", where note 60 is C4; programs and controllers are numbered from 0. Of system
// exclusive its length, also of one that is not whole. At least one byte.
std::string MessageText(std::span<const std::uint8_t> message);

// 1 to 16; null for a message that belongs to no channel.
std::optional<int> ChannelOf(std::span<const std::uint8_t> message);

// "90 3c 40".
std::string BytesText(std::span<const std::uint8_t> bytes);

}  // namespace vexil
