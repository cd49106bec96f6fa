// The packets of the control channel, over which a panel and a driver that is not a kernel's exchange the
// socket options. Pure bytes, used on both sides. One request is one packet and is answered by one packet,
// a monitor by more; integers are unsigned, 32 bits, little-endian.
//
//   request: sequence, kind, number, length, then for a set option, a network command and a monitor
//            `length` bytes of payload
//   reply:   sequence, error (0 or a Linux errno), length, then `length` bytes, 0 unless a get, a status, a
//            network command, a watch or a panic succeeded
//
// The panel chooses the sequence, the reply returns it. Example: as its request 7 a panel sends option 191
// with the value 25, and the driver takes it:
//
//   07 00 00 00  02 00 00 00  BF 00 00 00  04 00 00 00  19 00 00 00
//   07 00 00 00  00 00 00 00  00 00 00 00
//
// As its request 8 it reads option 202 into a buffer of 8192 bytes and gets 3 bytes:
//
//   08 00 00 00  03 00 00 00  CA 00 00 00  00 20 00 00
//   08 00 00 00  00 00 00 00  03 00 00 00  4E 61 00
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vexil {

// Values of ControlRequest::kind.
inline constexpr std::uint32_t kControlAttach = 1;     // number: the unit; length 0
inline constexpr std::uint32_t kControlSetOption = 2;  // number: the option; length: that of the payload
inline constexpr std::uint32_t kControlGetOption = 3;  // number: the option; length: what the panel can take
// The following need no attachment and are for the service's own command line.
// Status: the reply's data is JSON text. number: the entry of its lists from which on it is told, 0 at first;
// length: what the asker can take.
inline constexpr std::uint32_t kControlStatus = 4;
inline constexpr std::uint32_t kControlReload =
    5;  // number and length 0: the driver reads its configuration again
// Network: the payload is words (PackControlWords), a command and what it needs; the reply's data is JSON
// text. number: 0; length: that of the payload.
inline constexpr std::uint32_t kControlNetwork = 6;
// Watch: the reply comes when the status has another number than the client knows, and its data is that
// number: 4 bytes. number: the one that the client knows, 0 at first; length 0.
inline constexpr std::uint32_t kControlWatch = 7;
// Panic: every note ends everywhere; the reply's data is JSON text. number and length 0.
inline constexpr std::uint32_t kControlPanic = 8;
// Monitor: from now on the client is sent what passes the ports of a mask, in replies with this request's
// sequence, whose data MonitorPackets.h gives. The payload is the mask, 8 bytes, bit p for the port of index
// p; 0 ends it. number: 0; length: 8.
inline constexpr std::uint32_t kControlMonitor = 9;

inline constexpr std::size_t kControlRequestHeaderSize = 16;
inline constexpr std::size_t kControlReplyHeaderSize = 12;
// Neither a payload nor the data of a reply is longer.
inline constexpr std::size_t kMaxControlData = 65536;
inline constexpr std::size_t kMaxControlRequestSize = kControlRequestHeaderSize + kMaxControlData;
inline constexpr std::size_t kMaxControlReplySize = kControlReplyHeaderSize + kMaxControlData;
inline constexpr std::size_t kMaxControlWordsSize = 4096;  // bytes of all words with their zeros

struct ControlRequest {
    std::uint32_t sequence = 0;
    std::uint32_t kind = 0;
    std::uint32_t number = 0;
    std::uint32_t length = 0;
    std::span<const std::uint8_t> payload{};  // not owned; `length` bytes where there is one, else empty
};

struct ControlReply {
    std::uint32_t sequence = 0;
    std::uint32_t error = 0;
    std::span<const std::uint8_t> data{};  // not owned
};

std::vector<std::uint8_t> PackControlRequest(const ControlRequest& request);
std::vector<std::uint8_t> PackControlReply(const ControlReply& reply);

// The request or reply that a packet holds, or null when the packet is malformed: shorter or longer than it
// says, data above kMaxControlData; a request of an unknown kind; a reply whose error is no errno or that has
// an error and data. The result points into the packet.
std::optional<ControlRequest> UnpackControlRequest(std::span<const std::uint8_t> packet);
std::optional<ControlReply> UnpackControlReply(std::span<const std::uint8_t> packet);

// Words as a payload, each ended by a zero byte. Null when the other side would not take them: see below.
std::optional<std::vector<std::uint8_t>> PackControlWords(const std::vector<std::string>& words);
// The words of a payload, or null when it is malformed: it has no word, an empty one, no zero at its end, or
// more than kMaxControlWordsSize bytes.
std::optional<std::vector<std::string>> UnpackControlWords(std::span<const std::uint8_t> payload);

}  // namespace vexil
