#include "service/network/PeerClock.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::int32_t kLongestRoundTrip = 4'000'000;  // more is no measurement

std::uint32_t Smaller(std::uint32_t a, std::uint32_t b) {
    return Distance(a, b) < 0 ? a : b;
}

}  // namespace

void PeerClock::Take(std::uint64_t now, const BodyHeader& header) {
    const auto here = static_cast<std::uint32_t>(now);
    const std::uint32_t transit = here - header.time;
    if (!heard) {
        smallest.fill(transit);
        spanBegin = now;
    }
    while (now - spanBegin >= kSpan) {
        const bool isLongAgo = now - spanBegin >= 3 * kSpan;
        smallest = {transit, isLongAgo ? transit : smallest[0], isLongAgo ? transit : smallest[1]};
        spanBegin = isLongAgo ? now : spanBegin + kSpan;
    }
    smallest[0] = Smaller(transit, smallest[0]);
    if (!heard || Distance(header.time, newest) > 0) {
        newest = header.time;
        newestAt = now;
    }
    heard = true;
    const auto measured = static_cast<std::int32_t>(here - header.echo - header.held);
    if (header.held == kHeldTooLong || measured < 0 || measured > kLongestRoundTrip) {
        return;
    }
    const auto sample = std::max<std::uint64_t>(1, static_cast<std::uint64_t>(measured));
    roundTrip = roundTrip == 0 ? sample : (roundTrip * 7 + sample) / 8;
}

void PeerClock::Fill(std::uint64_t now, BodyHeader& header) const {
    header.echo = newest;
    const std::uint64_t held = now - newestAt;
    header.held = heard && held < kHeldTooLong ? static_cast<std::uint32_t>(held) : kHeldTooLong;
}

std::uint32_t PeerClock::Smallest() const {
    return Smaller(smallest[0], Smaller(smallest[1], smallest[2]));
}

}  // namespace vexil
