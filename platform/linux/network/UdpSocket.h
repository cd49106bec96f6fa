// The UDP socket of the link on Linux: one socket for IPv6 and, in IPv6's form, IPv4; for IPv4 alone where
// the system has no IPv6. One descriptor, one queue and one receive call serve both; two sockets would have
// been two of each.
//
// It keeps to the interfaces that were chosen. With loopback alone the kernel ties the socket to it
// (SO_BINDTODEVICE), so nothing leaves or arrives by another one, whatever the routing says. With a list
// every datagram is looked at by its interface: one that came by another is dropped, and one is only sent by
// an interface that is named and listed, for which the routing is asked first where the caller names none.
// The kernel is not used for a list: it holds a socket to one interface, by an index that an adapter which is
// plugged in again no longer has.
//
// Datagrams are never fragmented: one that is too long for its way is an error of Send. One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "platform/linux/network/RouteQuery.h"
#include "service/network/DatagramSocket.h"
#include "service/network/InterfaceChoice.h"
#include "shared/System/Descriptor.h"

namespace vexil {

struct UdpOptions {
    std::uint16_t port = kLinkPort;  // 0: any that is free
    InterfaceChoice interfaces;      // Off: Open fails
};

// Why a socket could not be opened.
struct UdpFailure {
    bool portTaken = false;  // another program has the port
    int error = 0;           // errno
    std::string sentence;    // "UDP port 11188 is used by another program"
};

class UdpSocket : public DatagramSocket {
  public:
    static std::variant<std::unique_ptr<UdpSocket>, UdpFailure> Open(const UdpOptions& options);
    ~UdpSocket() override;

    int EventDescriptor() const override { return socket.Number(); }
    std::uint16_t Port() const override { return port; }
    SendResult Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) override;
    int Failure() const override { return failure; }
    std::optional<ReceivedDatagram> Receive(std::span<std::uint8_t> into) override;
    SocketCounters Counters() const override { return counters; }

    // Whether IPv6 is there.
    bool HasV6() const { return hasV6; }

  private:
    struct Batch;
    // Whether an interface is one of the chosen, as it was looked up a moment ago.
    struct Verdict {
        std::uint32_t interface = 0;
        bool admitted = false;
        std::uint64_t until = 0;
    };

    UdpSocket(Descriptor opened, InterfaceChoice chosen, bool withV6);
    bool Admits(std::uint32_t interface);
    SendResult Refuse();
    int Transmit(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) const;
    bool Fill();

    Descriptor socket;
    InterfaceChoice choice;
    bool hasV6 = false;
    std::uint16_t port = 0;
    int failure = 0;
    SocketCounters counters;
    std::array<Verdict, 16> verdicts;
    RouteQuery routes;
    std::unique_ptr<Batch> batch;
};

}  // namespace vexil
