// Loopback alone; nothing leaves this computer.
#include <net/if.h>
#include <poll.h>

#include <memory>
#include <variant>

#include "platform/linux/network/UdpSocket.h"
#include "tests/doubles/DatagramSocketContract.h"
#include "tests/doubles/FaultyDatagramSocket.h"
#include "tests/doubles/MemoryWire.h"

namespace vexil {
namespace {

const NetworkAddress kLoopbackV4 = NetworkAddress::V4({127, 0, 0, 1});
const NetworkAddress kLoopbackV6 = NetworkAddress::V6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});

std::unique_ptr<UdpSocket> OpenOnLoopback() {
    UdpOptions options;
    options.port = 0;
    options.interfaces = InterfaceChoice::Loopback();
    auto opened = UdpSocket::Open(options);
    auto* socket = std::get_if<std::unique_ptr<UdpSocket>>(&opened);
    return socket == nullptr ? nullptr : std::move(*socket);
}

class UdpSubject {
  public:
    explicit UdpSubject(const NetworkAddress& address) : host(address.WithInterface(if_nametoindex("lo"))) {}

    static std::string Obstacle() { return ""; }
    DatagramSocket& First() { return *first; }
    DatagramSocket& Second() { return *second; }
    NetworkAddress AddressOfFirst() const { return host.WithPort(first->Port()); }
    NetworkAddress AddressOfSecond() const { return host.WithPort(second->Port()); }
    NetworkAddress ManyOfSecond() const {
        return NetworkAddress::V4({127, 255, 255, 255}, second->Port(), host.interface);
    }
    static void Await(DatagramSocket& socket) {
        pollfd watched{socket.EventDescriptor(), POLLIN, 0};
        poll(&watched, 1, 10000);
    }

  private:
    NetworkAddress host;
    std::unique_ptr<UdpSocket> first = OpenOnLoopback();
    std::unique_ptr<UdpSocket> second = OpenOnLoopback();
};

struct UdpV4Subject : UdpSubject {
    UdpV4Subject() : UdpSubject(kLoopbackV4) {}
};

struct UdpV6Subject : UdpSubject {
    UdpV6Subject() : UdpSubject(kLoopbackV6) {}
    static std::string Obstacle() {
        const auto socket = OpenOnLoopback();
        const std::vector<std::uint8_t> nothing;
        const bool hasIt =
            socket && socket->HasV6() &&
            socket->Send(kLoopbackV6.WithPort(socket->Port()), NetworkAddress(), nothing) == SendResult::Sent;
        return hasIt ? "" : "this computer has no ::1";
    }
};

class MemorySubject {
  public:
    static std::string Obstacle() { return ""; }
    DatagramSocket& First() { return first; }
    DatagramSocket& Second() { return second; }
    static NetworkAddress AddressOfFirst() { return NetworkAddress::V4({10, 0, 0, 1}, kLinkPort, 2); }
    static NetworkAddress AddressOfSecond() { return NetworkAddress::V4({10, 0, 0, 2}, kLinkPort, 2); }
    static NetworkAddress ManyOfSecond() { return NetworkAddress::V4({255, 255, 255, 255}, kLinkPort, 2); }
    void Await(DatagramSocket& /*socket*/) { wire.GoOn(); }

  private:
    MemoryWire wire;
    MemoryDatagramSocket first{wire, {AddressOfFirst()}};
    MemoryDatagramSocket second{wire, {AddressOfSecond()}};
};

class FaultySubject : public MemorySubject {
  public:
    DatagramSocket& First() { return faultyFirst; }
    DatagramSocket& Second() { return faultySecond; }
    FaultyDatagramSocket& Faulty() { return faultyFirst; }

  private:
    FaultyDatagramSocket faultyFirst{MemorySubject::First()};
    FaultyDatagramSocket faultySecond{MemorySubject::Second()};
};

INSTANTIATE_TYPED_TEST_SUITE_P(UdpV4, DatagramSocketContract, UdpV4Subject);
INSTANTIATE_TYPED_TEST_SUITE_P(UdpV6, DatagramSocketContract, UdpV6Subject);
INSTANTIATE_TYPED_TEST_SUITE_P(Memory, DatagramSocketContract, MemorySubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Faulty, DatagramSocketContract, FaultySubject);

TEST(FaultyDatagramSocket, SendsNothingWhileItFails) {
    FaultySubject subject;
    const std::vector<std::uint8_t> bytes = {1};
    std::vector<std::uint8_t> into(kLongestDatagram);
    subject.Faulty().FailSending(SendResult::Full, ENOBUFS);
    EXPECT_EQ(subject.First().Send(FaultySubject::AddressOfSecond(), NetworkAddress(), bytes),
              SendResult::Full);
    EXPECT_EQ(subject.First().Failure(), ENOBUFS);
    subject.Await(subject.Second());
    EXPECT_FALSE(subject.Second().Receive(into));
    subject.Faulty().FailSending(SendResult::Sent, 0);
    EXPECT_EQ(subject.First().Send(FaultySubject::AddressOfSecond(), NetworkAddress(), bytes),
              SendResult::Sent);
    subject.Await(subject.Second());
    EXPECT_TRUE(subject.Second().Receive(into));
}

TEST(MemoryWire, ASeedLosesDelaysAndDoublesTheSameDatagrams) {
    const auto run = [](unsigned seed) {
        MemoryWire wire(seed);
        wire.conditions.loss = 0.3;
        wire.conditions.duplicates = 0.2;
        wire.conditions.jitter = 50'000'000;
        MemoryDatagramSocket first(wire, {MemorySubject::AddressOfFirst()});
        MemoryDatagramSocket second(wire, {MemorySubject::AddressOfSecond()});
        for (std::uint8_t number = 0; number < 200; ++number) {
            const std::vector<std::uint8_t> bytes = {number};
            first.Send(MemorySubject::AddressOfSecond(), NetworkAddress(), bytes);
        }
        std::vector<std::uint8_t> heard;
        std::vector<std::uint8_t> into(kLongestDatagram);
        while (wire.GoOn()) {
            while (second.Receive(into)) {
                heard.push_back(into[0]);
            }
        }
        return heard;
    };
    const auto heard = run(1);
    EXPECT_EQ(heard, run(1));
    EXPECT_NE(heard, run(2));
    EXPECT_GT(heard.size(), 100U);
    EXPECT_LT(heard.size(), 220U);
    EXPECT_FALSE(std::is_sorted(heard.begin(), heard.end()));
    auto sorted = heard;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_NE(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
}

}  // namespace
}  // namespace vexil
