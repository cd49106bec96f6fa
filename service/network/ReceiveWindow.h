// Which records of a peer have arrived, and what to tell it of that. No clock; one thread at a time; nothing
// is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkCodec.h"

namespace vexil {

class ReceiveWindow {
  public:
    // Records so far ahead of the first that is missing are not taken.
    static constexpr std::uint32_t kSize = 32768;

    enum class Place : std::uint8_t { New, Duplicate, TooFarAhead };

    // Nothing has arrived.
    void Reset();

    Place PlaceOf(std::uint32_t number) const;
    // A record whose place is New has been taken.
    void Take(std::uint32_t number);

    // Every record below has been taken.
    std::uint32_t AllBelow() const { return allBelow; }
    bool HasGaps() const { return Distance(end, allBelow) > 0; }
    // The lowest holes. Only when HasGaps.
    Gaps ReadGaps() const;

  private:
    bool Has(std::uint32_t number) const {
        return (words[(number & (kSize - 1)) / 64] >> (number % 64) & 1) != 0;
    }
    void Set(std::uint32_t number, bool has);
    std::uint32_t NextThat(bool has, std::uint32_t number) const;

    std::uint32_t allBelow = 0;
    std::uint32_t end = 0;  // behind the highest that has been taken
    std::array<std::uint64_t, kSize / 64> words{};
};

}  // namespace vexil
