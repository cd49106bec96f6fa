// What the times in a peer's bodies say: the round trip, and how late something is. No clock of its own;
// nothing is allocated.
#pragma once

#include <array>
#include <cstdint>

#include "service/network/LinkCodec.h"

namespace vexil {

class PeerClock {
  public:
    void Reset() { *this = PeerClock(); }

    // The header of a body that arrived.
    void Take(std::uint64_t now, const BodyHeader& header);
    // The two fields of a header that is to leave now.
    void Fill(std::uint64_t now, BodyHeader& header) const;

    // Smoothed, microseconds; 0: not known yet.
    std::uint64_t RoundTrip() const { return roundTrip; }
    // When a record was due, in the low bits of our microseconds: as if the quickest datagram of the last 30
    // s had taken no time.
    std::uint32_t DueHere(const BodyHeader& header, std::uint16_t age) const {
        return header.time - age * kAgeUnit + Smallest();
    }

  private:
    static constexpr std::uint64_t kSpan = 10'000'000;  // of one of the three parts of the 30 s

    std::uint32_t Smallest() const;

    bool heard = false;
    std::uint32_t newest = 0;    // time of the peer's newest body
    std::uint64_t newestAt = 0;  // when it arrived
    std::uint64_t roundTrip = 0;
    std::uint64_t spanBegin = 0;
    std::array<std::uint32_t, 3> smallest{};  // arrival less the peer's time, the present span first
};

}  // namespace vexil
