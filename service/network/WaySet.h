// A set of ways, by WayIndex, which is gone through quickly where few are in it.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkCodec.h"

namespace vexil {

inline constexpr std::size_t kLinkWays = std::size_t{kLinkSources} * kLinkInputs;
inline std::size_t WayIndex(std::uint8_t source, std::uint8_t input) {
    return std::size_t{source} * kLinkInputs + input;
}

class WaySet {
  public:
    bool Has(std::size_t way) const { return (words[way / 64] >> (way % 64) & 1) != 0; }
    void Add(std::size_t way) {
        count += Has(way) ? 0U : 1U;
        words[way / 64] |= std::uint64_t{1} << (way % 64);
    }
    void Remove(std::size_t way) {
        count -= Has(way) ? 1U : 0U;
        words[way / 64] &= ~(std::uint64_t{1} << (way % 64));
    }
    void Clear() { *this = WaySet(); }
    std::size_t Count() const { return count; }
    bool IsEmpty() const { return count == 0; }
    // The first from `way` on; kLinkWays when the set has no other.
    std::size_t NextFrom(std::size_t way) const {
        if (way >= kLinkWays || count == 0) {
            return kLinkWays;
        }
        std::size_t word = way / 64;
        std::uint64_t bits = words[word] & ~std::uint64_t{0} << (way % 64);
        while (bits == 0 && ++word < words.size()) {
            bits = words[word];
        }
        return bits == 0 ? kLinkWays : word * 64 + static_cast<std::size_t>(std::countr_zero(bits));
    }

  private:
    std::array<std::uint64_t, kLinkWays / 64> words{};
    std::size_t count = 0;
};

}  // namespace vexil
