// How often a loss is told that may happen in every cycle of a MIDI system: at once the first time, then once
// in ten seconds, with the sum.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <utility>

namespace vexil {

class LossSum {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::seconds kInterval{10};

    void Add(std::uint64_t lost) { untold += lost; }

    // How many are to be told of now; 0: none.
    std::uint64_t Take(Clock::time_point now) {
        if (untold == 0 || (told && now < *told + kInterval)) {
            return 0;
        }
        told = now;
        return std::exchange(untold, 0);
    }

    // Those that would be told of later: nothing more is to come.
    std::uint64_t TakeAll() { return std::exchange(untold, 0); }

    // When the losses that were not told of yet are to be told of; null while every loss was told of.
    std::optional<Clock::time_point> DueAt() const {
        return untold == 0 ? std::nullopt : std::optional(told ? *told + kInterval : Clock::time_point{});
    }

  private:
    std::uint64_t untold = 0;
    std::optional<Clock::time_point> told;
};

}  // namespace vexil
