// Puts the pieces that a watcher of the service is sent together into whole messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <tuple>
#include <vector>

#include "driver/MonitorPackets.h"

namespace vexil {

struct MonitoredMessage {
    std::uint64_t time = 0;  // of its beginning: nanoseconds of CLOCK_MONOTONIC
    std::uint8_t port = 0;   // 0 to 63
    std::uint8_t side = kMonitoredOutput;
    std::vector<std::uint8_t> bytes;  // at least one
};

class MonitoredMessages {
  public:
    // A longer system exclusive comes out in parts.
    static constexpr std::size_t kLongest = std::size_t{1} << 20;

    // Calls `each` for each message that is whole now, in its order. A system exclusive whose beginning or
    // end was not seen comes out as what was seen of it.
    void Put(const MonitoredPiece& piece, const std::function<void(const MonitoredMessage&)>& each);

  private:
    using Stream = std::tuple<std::uint8_t, std::uint8_t, std::uint16_t>;  // side, port, stream

    std::map<Stream, MonitoredMessage> begun;
};

}  // namespace vexil
