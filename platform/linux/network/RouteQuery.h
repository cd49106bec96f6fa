// Asks the kernel by which interface a datagram would leave (rtnetlink). Sends nothing to the network.
//
// One thread; nothing is allocated by a question.
#pragma once

#include <cstdint>

#include "service/network/NetworkAddress.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class RouteQuery {
  public:
    RouteQuery();

    // The index of the interface; 0 when there is no way to that address or the kernel does not answer.
    std::uint32_t InterfaceToward(const NetworkAddress& address);

  private:
    Descriptor netlink;
    std::uint32_t sequence = 0;
};

}  // namespace vexil
