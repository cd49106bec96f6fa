// A player who holds notes, pedal, wheels, and lets some of them go: what has to be released when its way
// ends.
#pragma once

#include <cstdint>
#include <random>
#include <set>
#include <utility>

#include "tests/system/music/MidiPattern.h"

namespace vexil {

class WildPlayer {
  public:
    explicit WildPlayer(std::uint32_t seed) : random(seed) {}

    MidiBytes Next();
    // The next message that puts everything back that it has left; empty when nothing is left.
    MidiBytes NextRelease();
    // Nobody hears it any longer: what it has left sounding is somebody else's to release.
    void Forget();

  private:
    static constexpr std::size_t kMostHeld = 12;
    MidiBytes Release(std::uint8_t channel, std::uint8_t note);

    std::minstd_rand random;
    std::set<std::pair<std::uint8_t, std::uint8_t>> held;  // channel, note
    std::set<MidiBytes> toPutBack;
};

}  // namespace vexil
