// Whether full datagrams get through to a peer where small ones do: on some ways through a network they
// vanish without a word. Five that were lost in a row, each while a later datagram arrived, and over a
// fiftieth of a second at least, say that they do; a burst of ordinary losses is shorter.
//
// No clock and no socket: times come in, low bits of microseconds. Nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkCodec.h"

namespace vexil {

class FullDatagrams {
  public:
    void Reset() { *this = FullDatagrams(); }

    // A full one left with this record. Of many under way at once a few are watched.
    void Sent(std::uint32_t time, std::uint32_t record) {
        if (count < watched.size()) {
            watched[count++] = {time, record};
        }
    }

    // The peer says that what left at `echo` has arrived. `has`: whether it is known to have a record. True
    // when full ones are found to vanish.
    template <class Has>
    bool Judge(std::uint32_t echo, Has has) {
        bool anyArrived = false;
        std::size_t left = 0;
        std::uint32_t lostAt = echo;
        for (std::size_t index = 0; index < count; ++index) {
            const Datagram datagram = watched[index];
            if (has(datagram.record)) {
                anyArrived = true;
            } else if (Distance(echo, datagram.time) > 0) {
                lostAt = datagram.time;
            } else {
                watched[left++] = datagram;
            }
        }
        count = left;
        if (anyArrived) {
            lost = 0;
        } else if (lostAt != echo) {
            // Of several only one counts: nothing arrived meanwhile.
            firstLost = lost == 0 ? lostAt : firstLost;
            ++lost;
            return lost >= kMostLost && Distance(lostAt, firstLost) >= kLongestBurst;
        }
        return false;
    }

  private:
    static constexpr std::size_t kMostLost = 5;
    static constexpr std::int32_t kLongestBurst = 20'000;

    struct Datagram {
        std::uint32_t time = 0;
        std::uint32_t record = 0;
    };
    std::array<Datagram, 8> watched{};
    std::size_t count = 0;
    std::size_t lost = 0;  // in a row
    std::uint32_t firstLost = 0;
};

}  // namespace vexil
