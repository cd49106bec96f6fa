// Seam: the UDP socket of this computer's network, both IPv4 and IPv6.
//
// One thread at a time. Nothing waits, and nothing is allocated by Send and Receive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "service/network/LinkBytes.h"
#include "service/network/NetworkAddress.h"

namespace vexil {

// UDP port of the link; the number of ours that docs/link-protocol.md gives. No other protocol is registered
// there.
inline constexpr std::uint16_t kLinkPort = 11188;
// Those of RTP-MIDI sessions: two for each port, the first for control, the one above for data.
inline constexpr std::uint16_t kRtpPort = 5004;
inline constexpr std::uint16_t kLastRtpPort = kRtpPort + 2 * 64 - 1;

enum class SendResult : std::uint8_t {
    Sent,         // the system has taken it
    Full,         // the system has no room at the moment; a later one may go
    TooLong,      // longer than the way to that address carries in one part
    Unreachable,  // no way to that address, or its interface is down or gone
    NotAllowed,   // by a firewall of this computer, or not by an interface on which this socket may speak
    Failed,       // anything else; Failure says what
};
// What it means, as a part of a sentence: "there is no way to that address".
const char* SendResultText(SendResult result);

// A datagram that has arrived.
struct ReceivedDatagram {
    std::size_t size = 0;  // of its bytes, at least 1
    // The sender; `interface` is the one by which the datagram came. Sending to it is the answer.
    NetworkAddress from;
    // The address of this computer to which it was sent; an answer leaves from there. No address when it was
    // sent to many (broadcast, multicast).
    NetworkAddress own;
    // Nanoseconds of CLOCK_BOOTTIME when it arrived at this computer.
    std::uint64_t time = 0;
};

struct SocketCounters {
    std::uint64_t foreign = 0;   // came by an interface on which this socket may not speak; dropped
    std::uint64_t oversize = 0;  // longer than the caller's buffer, or without any byte; dropped
    std::uint64_t refused = 0;   // Sends that were NotAllowed
};

class DatagramSocket {
  public:
    virtual ~DatagramSocket() = default;

    // Readable when Receive has something to give that it has not looked for yet: Receive is to be called
    // until it gives nothing. -1: nothing is ever told, and the caller asks by time.
    virtual int EventDescriptor() const = 0;

    // The UDP port on which it hears; never 0.
    virtual std::uint16_t Port() const = 0;

    // Sends one datagram, whole and not fragmented. `to.interface`: it leaves by this one; 0: routing
    // decides. `own`: the address that it leaves from, of which the host counts alone; no address, or
    // one that this computer no longer has: the system chooses. `to` may be a broadcast or multicast address,
    // and then names the interface.
    virtual SendResult Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) = 0;

    // The errno value of the last Send that was not Sent; 0 before any.
    virtual int Failure() const = 0;

    // Takes the next datagram; null when all that have come so far are taken. `into` is at least
    // kLongestDatagram (LinkCodec.h) long; longer datagrams, and those without a byte, are passed over.
    virtual std::optional<ReceivedDatagram> Receive(std::span<std::uint8_t> into) = 0;

    virtual SocketCounters Counters() const = 0;
};

}  // namespace vexil
