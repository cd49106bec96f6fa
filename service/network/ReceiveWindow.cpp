#include "service/network/ReceiveWindow.h"

#include <bit>

namespace vexil {

void ReceiveWindow::Reset() {
    allBelow = end = 0;
    words.fill(0);
}

void ReceiveWindow::Set(std::uint32_t number, bool has) {
    std::uint64_t& word = words[(number & (kSize - 1)) / 64];
    const std::uint64_t bit = std::uint64_t{1} << (number % 64);
    word = has ? word | bit : word & ~bit;
}

ReceiveWindow::Place ReceiveWindow::PlaceOf(std::uint32_t number) const {
    const std::int32_t ahead = Distance(number, allBelow);
    if (ahead < 0) {
        return Place::Duplicate;
    }
    if (ahead >= static_cast<std::int32_t>(kSize)) {
        return Place::TooFarAhead;
    }
    return Has(number) ? Place::Duplicate : Place::New;
}

void ReceiveWindow::Take(std::uint32_t number) {
    Set(number, true);
    if (Distance(number, end) >= 0) {
        end = number + 1;
    }
    while (allBelow != end && Has(allBelow)) {
        Set(allBelow++, false);
    }
}

// The first number from `number` on, below end, that has or has not been taken; end when there is no such
// number.
std::uint32_t ReceiveWindow::NextThat(bool has, std::uint32_t number) const {
    while (Distance(end, number) > 0) {
        std::uint64_t word = words[(number & (kSize - 1)) / 64];
        word = (has ? word : ~word) >> (number % 64);
        if (word != 0) {
            number += static_cast<std::uint32_t>(std::countr_zero(word));
            return Distance(end, number) > 0 ? number : end;
        }
        number += 64 - number % 64;
    }
    return end;
}

Gaps ReceiveWindow::ReadGaps() const {
    Gaps gaps;
    gaps.highest = end - 1;
    std::uint32_t number = allBelow;
    while (number != end && gaps.count < kMostHoles) {
        Hole& hole = gaps.holes[gaps.count];
        hole.first = NextThat(false, number);
        if (hole.first == end) {
            break;
        }
        hole.end = NextThat(true, hole.first);
        number = hole.end;
        ++gaps.count;
    }
    return gaps;
}

}  // namespace vexil
