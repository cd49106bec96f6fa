// A socket around another that fails on demand.
#pragma once

#include <cerrno>
#include <optional>
#include <span>

#include "service/network/DatagramSocket.h"

namespace vexil {

class FaultyDatagramSocket : public DatagramSocket {
  public:
    // `wrappedSocket` must outlive this object.
    explicit FaultyDatagramSocket(DatagramSocket& wrappedSocket) : wrapped(wrappedSocket) {}

    // From now on each Send ends so and sends nothing; Sent: as usual.
    void FailSending(SendResult result, int error) {
        sending = result;
        sendingError = error;
    }
    // From now on nothing that arrives is given; it is given when this ends.
    void FailReceiving(bool on) { deaf = on; }

    int EventDescriptor() const override { return wrapped.EventDescriptor(); }
    std::uint16_t Port() const override { return wrapped.Port(); }
    SendResult Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) override {
        return sending == SendResult::Sent ? wrapped.Send(to, own, datagram) : sending;
    }
    int Failure() const override { return sending == SendResult::Sent ? wrapped.Failure() : sendingError; }
    std::optional<ReceivedDatagram> Receive(std::span<std::uint8_t> into) override {
        return deaf ? std::nullopt : wrapped.Receive(into);
    }
    SocketCounters Counters() const override { return wrapped.Counters(); }

  private:
    DatagramSocket& wrapped;
    SendResult sending = SendResult::Sent;
    int sendingError = 0;
    bool deaf = false;
};

}  // namespace vexil
