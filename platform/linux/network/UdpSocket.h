// The UDP socket of the link on Linux: one socket for IPv6 and, in IPv6's form, IPv4; for IPv4 alone where
// the system has no IPv6. One descriptor, one queue and one receive call serve both; two sockets would have
// been two of each.
//
// It keeps to the interfaces that were chosen. With one of them, loopback included, the kernel ties the
// socket to it (SO_BINDTODEVICE), so nothing leaves or arrives by another one whatever the routing says. With
// several, every datagram is looked at by its interface: those that came by another are dropped, and one is
// only sent when the interface by which it will leave is known and chosen.
//
// Datagrams are never fragmented: one that is too long for its way is an error of Send. One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>

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
    std::uint32_t InterfaceToward(const NetworkAddress& to) const;
    SendResult Fail(int error);
    bool Fill();

    Descriptor socket;
    InterfaceChoice choice;
    bool hasV6 = false;
    bool checksInterfaces = false;  // the kernel does not: each datagram is looked at
    std::uint16_t port = 0;
    int failure = 0;
    SocketCounters counters;
    std::array<Verdict, 16> verdicts;
    std::unique_ptr<Batch> batch;
};

}  // namespace vexil
