// What ends, on any channel, whatever a reader may have been left with.
#pragma once

#include <array>
#include <cstdint>

namespace vexil {

// Control changes to 0: sustain, sostenuto, soft and Hold 2, then All Notes Off: a pedal would keep the
// notes.
inline constexpr std::array<std::uint8_t, 5> kSilencing = {64, 66, 67, 69, 123};

// Programs that are connected to an input within this time after the first one are its first readers.
inline constexpr int kFirstReadersMilliseconds = 300;

}  // namespace vexil
