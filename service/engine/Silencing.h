// What ends, on any channel, whatever a reader may have been left with.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexil {

// Control changes to 0: sustain, sostenuto, soft and Hold 2, then All Notes Off: a pedal would keep the
// notes.
inline constexpr std::array<std::uint8_t, 5> kSilencing = {64, 66, 67, 69, 123};

// All of them, on one channel after the other.
inline constexpr std::size_t kSilencingMessages = 16 * kSilencing.size();
constexpr std::array<std::uint8_t, 3> SilencingMessage(std::size_t index) {
    constexpr std::uint8_t kControlChange = 0xB0;
    return {static_cast<std::uint8_t>(kControlChange | index / kSilencing.size()),
            kSilencing[index % kSilencing.size()], 0};
}

}  // namespace vexil
