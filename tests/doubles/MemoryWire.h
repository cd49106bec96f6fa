// A network in memory, in virtual time: every socket on it hears every other. A seed chooses what is lost,
// late or doubled.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
#include <vector>

#include "service/network/DatagramSocket.h"

namespace vexil {

// What happens to datagrams. Times are nanoseconds. Jitter is added to the delay, evenly; with more of it
// than there is between two datagrams, they overtake each other.
struct WireConditions {
    double loss = 0;
    double duplicates = 0;
    std::uint64_t delay = 200'000;
    std::uint64_t jitter = 0;
    bool cut = false;                   // nothing gets through
    NetworkAddress deaf{};              // nothing gets through to this one
    std::size_t longest = 1472;         // bytes of a datagram; longer ones are refused
    std::size_t longestThrough = 1472;  // longer ones vanish
};

class MemoryDatagramSocket;

class MemoryWire {
  public:
    explicit MemoryWire(unsigned seed = 1) : random(seed) {}

    WireConditions conditions;

    std::uint64_t Now() const { return now; }
    void Advance(std::uint64_t nanoseconds) { now += nanoseconds; }
    // When the next datagram arrives anywhere; null when nothing is under way.
    std::optional<std::uint64_t> NextArrival() const {
        const auto first = std::min_element(under.begin(), under.end(), Earlier);
        return first == under.end() ? std::nullopt : std::optional(first->time);
    }
    // Lets time pass until the next datagram arrives; false when nothing is under way.
    bool GoOn() {
        const std::optional<std::uint64_t> next = NextArrival();
        now = next ? std::max(now, *next) : now;
        return next.has_value();
    }
    // Datagrams that were sent, lost ones too.
    std::uint64_t Sent() const { return sent; }

  private:
    friend class MemoryDatagramSocket;

    struct Datagram {
        std::uint64_t time = 0;
        std::uint64_t order = 0;
        const MemoryDatagramSocket* to = nullptr;
        NetworkAddress from;
        NetworkAddress own;
        std::vector<std::uint8_t> bytes;
    };
    static bool Earlier(const Datagram& first, const Datagram& second) {
        return first.time != second.time ? first.time < second.time : first.order < second.order;
    }
    double Chance() { return static_cast<double>(random() >> 11) / 9007199254740992.0; }
    inline void Put(const MemoryDatagramSocket& from, const NetworkAddress& source, const NetworkAddress& to,
                    ByteView bytes);

    std::mt19937_64 random;
    std::uint64_t now = 1'000'000'000;
    std::uint64_t order = 0;
    std::uint64_t sent = 0;
    std::vector<Datagram> under;
    std::vector<const MemoryDatagramSocket*> sockets;
};

// A socket of one computer on the wire, with any number of addresses there. All addresses carry the index of
// the computer's interface and the socket's port.
class MemoryDatagramSocket : public DatagramSocket {
  public:
    // The wire outlives the socket.
    MemoryDatagramSocket(MemoryWire& itsWire, std::vector<NetworkAddress> own)
        : wire(itsWire), addresses(std::move(own)) {
        wire.sockets.push_back(this);
    }
    ~MemoryDatagramSocket() override { std::erase(wire.sockets, this); }
    MemoryDatagramSocket(const MemoryDatagramSocket&) = delete;
    MemoryDatagramSocket& operator=(const MemoryDatagramSocket&) = delete;

    // The computer has other addresses from now on.
    void Move(std::vector<NetworkAddress> own) { addresses = std::move(own); }

    int EventDescriptor() const override { return -1; }
    std::uint16_t Port() const override { return addresses.front().port; }
    int Failure() const override { return failure; }
    SocketCounters Counters() const override { return counters; }

    SendResult Send(const NetworkAddress& to, const NetworkAddress& own, ByteView datagram) override {
        const auto source =
            std::find_if(addresses.begin(), addresses.end(), [&](const NetworkAddress& address) {
                const bool isChosen = !own.IsThere() || own.family != to.family || own.IsSameHost(address);
                return address.family == to.family && isChosen;
            });
        const bool isHere =
            source != addresses.end() && (to.interface == 0 || to.interface == source->interface);
        if (!isHere) {
            failure = ENETUNREACH;
            return SendResult::Unreachable;
        }
        if (datagram.size() > wire.conditions.longest) {
            failure = EMSGSIZE;
            return SendResult::TooLong;
        }
        wire.Put(*this, *source, to, datagram);
        return SendResult::Sent;
    }

    std::optional<ReceivedDatagram> Receive(std::span<std::uint8_t> into) override {
        for (;;) {
            auto next = wire.under.end();
            for (auto each = wire.under.begin(); each != wire.under.end(); ++each) {
                const bool isMine = each->to == this && each->time <= wire.now;
                if (isMine && (next == wire.under.end() || MemoryWire::Earlier(*each, *next))) {
                    next = each;
                }
            }
            if (next == wire.under.end()) {
                return std::nullopt;
            }
            const MemoryWire::Datagram datagram = std::move(*next);
            wire.under.erase(next);
            if (datagram.bytes.empty() || datagram.bytes.size() > into.size()) {
                ++counters.oversize;
                continue;
            }
            std::copy(datagram.bytes.begin(), datagram.bytes.end(), into.begin());
            return ReceivedDatagram{datagram.bytes.size(), datagram.from, datagram.own, datagram.time};
        }
    }

    // Of the addresses, the one to which a datagram for `to` comes; null when it is not for this socket.
    const NetworkAddress* Hears(const NetworkAddress& to) const {
        const auto found =
            std::find_if(addresses.begin(), addresses.end(), [&to](const NetworkAddress& address) {
                const bool isFor = to.IsForMany() ? to.family == address.family : to.IsSameHost(address);
                return isFor && to.port == address.port;
            });
        return found == addresses.end() ? nullptr : &*found;
    }

  private:
    MemoryWire& wire;
    std::vector<NetworkAddress> addresses;
    SocketCounters counters;
    int failure = 0;
};

inline void MemoryWire::Put(const MemoryDatagramSocket& from, const NetworkAddress& source,
                            const NetworkAddress& to, ByteView bytes) {
    ++sent;
    for (const MemoryDatagramSocket* socket : sockets) {
        const NetworkAddress* address = socket->Hears(to);
        const int copies = address == nullptr ? 0 : Chance() < conditions.duplicates ? 2 : 1;
        for (int copy = 0; copy < copies; ++copy) {
            const bool isDeaf = conditions.deaf.IsThere() && conditions.deaf.IsSameHost(*address);
            if (socket != &from && (conditions.cut || isDeaf || bytes.size() > conditions.longestThrough ||
                                    Chance() < conditions.loss)) {
                continue;
            }
            Datagram datagram;
            datagram.time = now + conditions.delay + random() % (conditions.jitter + 1);
            datagram.order = order++;
            datagram.to = socket;
            datagram.from = source.WithInterface(address->interface);
            datagram.own = to.IsForMany() ? NetworkAddress() : address->WithPort(0);
            datagram.bytes.assign(bytes.begin(), bytes.end());
            under.push_back(std::move(datagram));
        }
    }
}

}  // namespace vexil
