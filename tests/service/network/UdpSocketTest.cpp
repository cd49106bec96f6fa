// On which interfaces the socket speaks, and what it says when it cannot. Two networks of this process's own.
#include "platform/linux/network/UdpSocket.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <thread>
#include <variant>
#include <vector>

#include "service/network/LinkCodec.h"
#include "tests/service/network/Namespaces.h"

namespace vexil {
namespace {

using test::Ip;
using Bytes = std::vector<std::uint8_t>;

const Bytes kSecret = {'n', 'o', 't', ' ', 'b', 'y', ' ', 'a', ' ', 'w', 'i', 'r', 'e'};
const Bytes kOpen = {'b', 'y', ' ', 'a', ' ', 'w', 'i', 'r', 'e'};
const NetworkAddress kHere = NetworkAddress::V4({10, 77, 0, 1});
const NetworkAddress kThere = NetworkAddress::V4({10, 77, 0, 2});

std::unique_ptr<UdpSocket> Open(const char* choice, std::uint16_t port = 0) {
    UdpOptions options;
    options.port = port;
    options.interfaces = InterfaceChoice::FromText(choice).value();
    auto opened = UdpSocket::Open(options);
    auto* socket = std::get_if<std::unique_ptr<UdpSocket>>(&opened);
    EXPECT_NE(socket, nullptr) << (socket == nullptr ? std::get<UdpFailure>(opened).sentence : "");
    return socket == nullptr ? nullptr : std::move(*socket);
}

struct Arrived {
    ReceivedDatagram told;
    Bytes bytes;
};

std::optional<Arrived> Take(UdpSocket& socket) {
    Bytes into(kLongestDatagram);
    const auto told = socket.Receive(into);
    if (!told) {
        return std::nullopt;
    }
    into.resize(told->size);
    return Arrived{*told, into};
}

std::optional<Arrived> Next(UdpSocket& socket) {
    auto arrived = Take(socket);
    if (!arrived) {
        pollfd watched{socket.EventDescriptor(), POLLIN, 0};
        poll(&watched, 1, 10000);
        arrived = Take(socket);
    }
    return arrived ? arrived : Take(socket);
}

// Sees every frame that comes by the wire.
class Capture {
  public:
    Capture() : packets(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))) {}
    bool IsOpen() const { return packets.IsOpen(); }
    // Reads frames until one holds `last`; whether one before it held `searched`. Fails when `last` never
    // comes.
    bool SawBefore(const Bytes& searched, const Bytes& last) const {
        bool saw = false;
        for (;;) {
            pollfd watched{packets.Number(), POLLIN, 0};
            Bytes frame(65536);
            if (poll(&watched, 1, 10000) != 1) {
                ADD_FAILURE() << "the wire is silent";
                return saw;
            }
            const ssize_t count = recv(packets.Number(), frame.data(), frame.size(), 0);
            frame.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
            saw = saw || Holds(frame, searched);
            if (Holds(frame, last)) {
                return saw;
            }
        }
    }

  private:
    static bool Holds(const Bytes& frame, const Bytes& content) {
        return std::search(frame.begin(), frame.end(), content.begin(), content.end()) != frame.end();
    }
    Descriptor packets;
};

class UdpSocketTest : public testing::Test {
  protected:
    void SetUp() override {
        std::string reason;
        if (!test::EnterOwnNetwork(reason)) {
            GTEST_SKIP() << reason;
        }
        networks.emplace();
        if (!networks->IsThere()) {
            GTEST_SKIP() << "this kernel has no pairs of network interfaces (veth)";
        }
        networks->EnterThere();
        there = Open("on");
        wireThere = if_nametoindex("wire1");
        networks->EnterHere();
        wireHere = if_nametoindex("wire0");
        loopback = if_nametoindex("lo");
    }
    NetworkAddress There() const { return kThere.WithPort(there->Port()); }

    std::optional<test::TwoNetworks> networks;
    std::unique_ptr<UdpSocket> there;
    std::uint32_t wireHere = 0;
    std::uint32_t wireThere = 0;
    std::uint32_t loopback = 0;
};

TEST_F(UdpSocketTest, OnLoopbackAloneNothingLeavesByAWire) {
    networks->EnterThere();
    const Capture capture;
    ASSERT_TRUE(capture.IsOpen());
    networks->EnterHere();
    const auto socket = Open("lo");
    const NetworkAddress everybody = NetworkAddress::V4({255, 255, 255, 255}, there->Port());
    const NetworkAddress allNodes =
        NetworkAddress::V6({0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, there->Port());
    for (const NetworkAddress& target : {There(), everybody, allNodes, kHere.WithPort(there->Port())}) {
        for (const std::uint32_t interface : {std::uint32_t{0}, wireHere, loopback}) {
            EXPECT_EQ(socket->Send(target.WithInterface(interface), NetworkAddress(), kSecret),
                      SendResult::NotAllowed);
        }
    }
    // A loopback address by the wire, and from the wire's address.
    const NetworkAddress self = NetworkAddress::V4({127, 0, 0, 1}, there->Port());
    EXPECT_EQ(socket->Send(self.WithInterface(wireHere), NetworkAddress(), kSecret), SendResult::NotAllowed);
    EXPECT_EQ(socket->Counters().refused, 13U);
    socket->Send(self, kHere, kSecret);
    const auto free = Open("on");
    ASSERT_EQ(free->Send(There(), NetworkAddress(), kOpen), SendResult::Sent);
    EXPECT_FALSE(capture.SawBefore(kSecret, kOpen));
}

TEST_F(UdpSocketTest, OnLoopbackAloneNothingIsHeardFromAWire) {
    const auto socket = Open("lo");
    const auto free = Open("on");
    ASSERT_EQ(there->Send(kHere.WithPort(socket->Port()), NetworkAddress(), kSecret), SendResult::Sent);
    ASSERT_EQ(there->Send(kHere.WithPort(free->Port()), NetworkAddress(), kOpen), SendResult::Sent);
    ASSERT_TRUE(Next(*free));
    EXPECT_FALSE(Take(*socket));
}

TEST_F(UdpSocketTest, OnAListedInterfaceItSpeaksThereAlone) {
    const auto socket = Open("wire0,elsewhere");
    ASSERT_EQ(socket->Send(There(), NetworkAddress(), kOpen), SendResult::Sent);
    const auto arrived = Next(*there);
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->bytes, kOpen);
    ASSERT_EQ(there->Send(arrived->told.from, arrived->told.own, kOpen), SendResult::Sent);
    EXPECT_TRUE(Next(*socket));
    EXPECT_EQ(socket->Send(NetworkAddress::V4({127, 0, 0, 1}, 9), NetworkAddress(), kOpen),
              SendResult::NotAllowed);
}

TEST_F(UdpSocketTest, WhatComesByAnotherThanTheListedInterfacesIsDropped) {
    const auto socket = Open("elsewhere,lo");
    EXPECT_EQ(socket->Send(There(), NetworkAddress(), kSecret), SendResult::NotAllowed);
    EXPECT_EQ(socket->Send(There().WithInterface(wireHere), NetworkAddress(), kSecret),
              SendResult::NotAllowed);
    ASSERT_EQ(there->Send(kHere.WithPort(socket->Port()), NetworkAddress(), kSecret), SendResult::Sent);
    pollfd watched{socket->EventDescriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 10000), 1);
    EXPECT_FALSE(Take(*socket));
    EXPECT_EQ(socket->Counters().foreign, 1U);
}

TEST_F(UdpSocketTest, AListedInterfaceMayComeLater) {
    const auto socket = Open("wire0");
    ASSERT_TRUE(Ip("link set wire0 down") && Ip("link set wire0 name later0"));
    EXPECT_NE(socket->Send(There(), NetworkAddress(), kOpen), SendResult::Sent);
    ASSERT_TRUE(Ip("link set later0 name wire0") && Ip("link set wire0 up"));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (socket->Send(There(), NetworkAddress(), kOpen) != SendResult::Sent) {
        ASSERT_LT(std::chrono::steady_clock::now(), end);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

TEST_F(UdpSocketTest, ABroadcastLeavesByTheInterfaceThatIsNamed) {
    const auto socket = Open("on");
    const NetworkAddress everybody = NetworkAddress::V4({255, 255, 255, 255}, there->Port(), wireHere);
    ASSERT_EQ(socket->Send(everybody, NetworkAddress(), kOpen), SendResult::Sent);
    const auto arrived = Next(*there);
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->told.from, kHere.WithPort(socket->Port()).WithInterface(wireThere));
    EXPECT_FALSE(arrived->told.own.IsThere());
}

TEST_F(UdpSocketTest, AllNodesOfALinkAreReachedByV6) {
    if (!there->HasV6() || !Ip("address add fe80::77/64 dev wire0 nodad")) {
        GTEST_SKIP() << "this computer has no IPv6";
    }
    const auto socket = Open("on");
    const NetworkAddress allNodes =
        NetworkAddress::V6({0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, there->Port(), wireHere);
    const NetworkAddress own = ParseAddress("fe80::77").value();
    ASSERT_EQ(socket->Send(allNodes, own, kOpen), SendResult::Sent);
    const auto arrived = Next(*there);
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->told.from, own.WithPort(socket->Port()).WithInterface(wireThere));
    EXPECT_FALSE(arrived->told.own.IsThere());
}

TEST_F(UdpSocketTest, AnAnswerLeavesFromTheAddressThatWasAsked) {
    ASSERT_TRUE(Ip("address add 10.77.0.9/24 dev wire0"));
    const auto socket = Open("on");
    const NetworkAddress second = NetworkAddress::V4({10, 77, 0, 9}, socket->Port());
    ASSERT_EQ(there->Send(second, NetworkAddress(), kOpen), SendResult::Sent);
    const auto question = Next(*socket);
    ASSERT_TRUE(question);
    EXPECT_TRUE(question->told.own.IsSameHost(second));
    ASSERT_EQ(socket->Send(question->told.from, question->told.own, kOpen), SendResult::Sent);
    const auto answer = Next(*there);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->told.from.IsSameHost(second));
}

TEST_F(UdpSocketTest, FromAnAddressThatIsGoneItIsSentFromAnother) {
    const auto socket = Open("on");
    const NetworkAddress gone = NetworkAddress::V4({10, 1, 2, 3});
    ASSERT_EQ(socket->Send(There(), gone, kOpen), SendResult::Sent);
    const auto arrived = Next(*there);
    ASSERT_TRUE(arrived);
    EXPECT_TRUE(arrived->told.from.IsSameHost(kHere));
}

TEST_F(UdpSocketTest, NothingIsFragmented) {
    ASSERT_TRUE(Ip("link set wire0 mtu 600"));
    const auto socket = Open("on");
    EXPECT_EQ(socket->Send(There(), NetworkAddress(), Bytes(kLongestDatagram)), SendResult::TooLong);
    EXPECT_EQ(socket->Send(There(), NetworkAddress(), Bytes(kSmallDatagram - 28)), SendResult::Sent);
}

TEST_F(UdpSocketTest, EachReasonWhyNothingIsSentIsTold) {
    ASSERT_TRUE(Ip("route add prohibit 10.99.0.0/16") && Ip("route add unreachable 10.98.0.0/16"));
    const auto socket = Open("on");
    const auto send = [&](const NetworkAddress& target) {
        return socket->Send(target.WithPort(9), NetworkAddress(), kOpen);
    };
    EXPECT_EQ(send(NetworkAddress::V4({10, 99, 0, 1})), SendResult::NotAllowed);
    EXPECT_EQ(socket->Failure(), EACCES);
    EXPECT_EQ(send(NetworkAddress::V4({10, 98, 0, 1})), SendResult::Unreachable);
    EXPECT_EQ(send(NetworkAddress::V4({10, 97, 0, 1})), SendResult::Unreachable);
    EXPECT_EQ(socket->Failure(), ENETUNREACH);
    EXPECT_EQ(send(kThere.WithInterface(9999)), SendResult::Unreachable);
    ASSERT_TRUE(Ip("link set wire0 down"));
    EXPECT_EQ(send(kThere.WithInterface(wireHere)), SendResult::Unreachable);
}

TEST(UdpSocketOnLoopback, APortThatIsTakenIsNamed) {
    const auto first = Open("lo");
    UdpOptions options;
    options.port = first->Port();
    options.interfaces = InterfaceChoice::Loopback();
    const auto opened = UdpSocket::Open(options);
    const auto* failure = std::get_if<UdpFailure>(&opened);
    ASSERT_NE(failure, nullptr);
    EXPECT_TRUE(failure->portTaken);
    EXPECT_EQ(failure->sentence, "UDP port " + std::to_string(first->Port()) + " is used by another program");
}

TEST(UdpSocketOnLoopback, SwitchedOffThereIsNoSocket) {
    const auto opened = UdpSocket::Open(UdpOptions());
    const auto* failure = std::get_if<UdpFailure>(&opened);
    ASSERT_NE(failure, nullptr);
    EXPECT_FALSE(failure->portTaken);
    EXPECT_EQ(failure->sentence, "the network is switched off");
}

TEST(UdpSocketOnLoopback, TheTimeIsThatOfTheArrivalNotOfTheReading) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_BOOTTIME, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
               static_cast<std::uint64_t>(time.tv_nsec);
    };
    const auto socket = Open("lo");
    // The kernel begins to stamp datagrams some time after it was asked to.
    for (int attempt = 0; attempt < 200; ++attempt) {
        ASSERT_EQ(socket->Send(NetworkAddress::V4({127, 0, 0, 1}, socket->Port()), NetworkAddress(), kOpen),
                  SendResult::Sent);
        const std::uint64_t sent = now();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        const auto arrived = Next(*socket);
        ASSERT_TRUE(arrived);
        if (arrived->told.time <= sent) {
            return;
        }
    }
    FAIL() << "the time is that of the reading";
}

}  // namespace
}  // namespace vexil
