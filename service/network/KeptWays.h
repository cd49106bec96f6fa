// What is kept for each way of a peer, by WayIndex. Only ways that are used take up memory; there is room for
// all of them. Nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "service/network/WaySet.h"

namespace vexil {

template <class Kept>
class KeptWays {
  public:
    // `first`: what is kept for a way at first.
    explicit KeptWays(const Kept& first = Kept()) : unused(first) {
        rows.reserve(kLinkSources);
        kept.reserve(kLinkWays);
    }

    // Every way is as at first.
    void Clear() {
        rowOf.fill(0);
        rows.clear();
        kept.clear();
    }
    // Stays where it is until Clear.
    Kept& operator[](std::size_t way) {
        std::uint8_t& row = rowOf[way / kLinkInputs];
        if (row == 0) {
            rows.push_back({});
            row = static_cast<std::uint8_t>(rows.size());
        }
        std::uint16_t& place = rows[row - 1U][way % kLinkInputs];
        if (place == 0) {
            kept.push_back(unused);
            place = static_cast<std::uint16_t>(kept.size());
        }
        return kept[place - 1U];
    }
    const Kept& operator[](std::size_t way) const {
        const std::uint8_t row = rowOf[way / kLinkInputs];
        const std::uint16_t place = row == 0 ? std::uint16_t{0} : rows[row - 1U][way % kLinkInputs];
        return place == 0 ? unused : kept[place - 1U];
    }

  private:
    using Row = std::array<std::uint16_t, kLinkInputs>;

    // Places count from 1 on; 0: not used yet.
    Kept unused;
    std::array<std::uint8_t, kLinkSources> rowOf{};  // of a source, in `rows`
    std::vector<Row> rows;                           // of an input, in `kept`
    std::vector<Kept> kept;
};

}  // namespace vexil
