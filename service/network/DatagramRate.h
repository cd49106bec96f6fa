// How many unsealed datagrams are looked at: 50 a second from one host, 500 in all. What is beyond that is
// dropped unread, so that a flood costs next to nothing. Pure; times are microseconds; nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/NetworkAddress.h"

namespace vexil {

class DatagramRate {
  public:
    static constexpr std::uint16_t kPerHost = 50;
    static constexpr std::size_t kInAll = 500;

    // Whether a datagram from there is to be looked at. Ports and interfaces of a host count together.
    bool Admit(std::uint64_t now, const NetworkAddress& from) {
        if (now - begun >= kWindow) {
            begun = now;
            hostCount = 0;
            count = 0;
        }
        if (count == kInAll) {
            return false;
        }
        Host* host = nullptr;
        for (std::size_t place = 0; place < hostCount && host == nullptr; ++place) {
            host = hosts[place].address.IsSameHost(from) ? &hosts[place] : nullptr;
        }
        if (host == nullptr) {
            // There is room: each host here has had a datagram admitted.
            host = &hosts[hostCount++];
            *host = {from, 0};
        }
        if (host->count == kPerHost) {
            return false;
        }
        ++host->count;
        ++count;
        return true;
    }

  private:
    static constexpr std::uint64_t kWindow = 1'000'000;

    struct Host {
        NetworkAddress address;
        std::uint16_t count = 0;
    };
    std::array<Host, kInAll> hosts;
    std::size_t hostCount = 0;
    std::size_t count = 0;
    std::uint64_t begun = 0;
};

}  // namespace vexil
