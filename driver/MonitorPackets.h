// The messages that a watcher of the control channel is sent (request kind 9), as bytes. Each packet's data
// is the number of pieces that were left out in front of it, and then pieces:
//
//   data:  pieces left out (4 bytes), then one record for each piece
//   piece: time (8 bytes), index of the port (1), side (1), stream (2), length (4), and `length` bytes
//
// All integers are unsigned and little-endian. Example: output 11 is given note 60, and two pieces before it
// were left out:
//
//   02 00 00 00  00 CA 9A 3B 00 00 00 00  00  00  00 00  03 00 00 00  90 3C 40
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vexil {

// Values of MonitoredPiece::side.
inline constexpr std::uint8_t kMonitoredOutput = 0;  // a program wrote it to the output of the port
inline constexpr std::uint8_t kMonitoredInput = 1;   // the input of the port hears it
inline constexpr std::uint8_t kMonitoredTest = 2;    // the panel plays it on the test output of the port

// A whole short message, or a part of a system exclusive: a piece that begins with a data byte, or with F7,
// goes on with the system exclusive of its side, port and stream.
struct MonitoredPiece {
    std::uint64_t time = 0;  // when it was written or is heard: nanoseconds of CLOCK_MONOTONIC
    std::uint8_t port = 0;   // 0 to 63
    std::uint8_t side = kMonitoredOutput;
    std::uint16_t stream = 0;               // tells apart what several programs write to one output
    std::span<const std::uint8_t> bytes{};  // not owned
};

// Packs pieces into the data of one packet.
class MonitorPacket {
  public:
    explicit MonitorPacket(std::uint32_t leftOut);

    // False, with nothing added, when the packet has no room for it.
    bool Add(const MonitoredPiece& piece);
    // Pieces that were added.
    std::uint32_t Count() const { return count; }
    std::span<const std::uint8_t> Data() const { return data; }

  private:
    std::vector<std::uint8_t> data;
    std::uint32_t count = 0;
};

struct MonitoredPieces {
    std::uint32_t leftOut = 0;  // pieces in front of these
    std::vector<MonitoredPiece> pieces;
};
// Null when the data are malformed: shorter or longer than they say, a port above 63, an unknown side, a
// piece without bytes. The pieces point into the data.
std::optional<MonitoredPieces> UnpackMonitoredPieces(std::span<const std::uint8_t> data);

}  // namespace vexil
