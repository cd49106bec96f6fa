// Clients that pass descriptors with their packets, among them connections that linger when they are closed.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>

#include <array>
#include <chrono>

#include "tests/service/control/ControlServerFixture.h"

namespace vexil {
namespace {

constexpr int kLinger = 60;                  // s
constexpr std::chrono::seconds kAtOnce{20};  // on a busy machine

int Pass(const RawClient& client, int descriptor, const RawClient::Bytes& packet) {
    RawClient::Bytes bytes = packet;
    iovec place{bytes.data(), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
    msghdr message{};
    message.msg_iov = &place;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* part = CMSG_FIRSTHDR(&message);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
    return sendmsg(client.Number(), &message, MSG_NOSIGNAL) == -1 ? errno : 0;
}

RawClient::Bytes Reload(std::uint32_t sequence) {
    return PackControlRequest({sequence, kControlReload, 0, 0, {}});
}

// A connection within this computer with bytes on their way that nobody reads: closing it waits.
struct Lingering {
    Lingering() {
        const Descriptor listening(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof place;
        auto* address = reinterpret_cast<sockaddr*>(&place);
        EXPECT_EQ(0, bind(listening.Number(), address, size));
        EXPECT_EQ(0, listen(listening.Number(), 1));
        EXPECT_EQ(0, getsockname(listening.Number(), address, &size));
        writer = Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        EXPECT_EQ(0, connect(writer.Number(), address, size));
        reader = Descriptor(accept4(listening.Number(), nullptr, nullptr, SOCK_CLOEXEC));
        const linger waits{1, kLinger};
        EXPECT_EQ(0, setsockopt(writer.Number(), SOL_SOCKET, SO_LINGER, &waits, sizeof waits));
        const std::string bytes(65536, 'x');
        while (send(writer.Number(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
        }
    }

    Descriptor reader;  // closing it ends the wait
    Descriptor writer;
};

class ControlServerPassingTest : public ControlServerFixture {
  protected:
    ControlServerPassingTest() : ControlServerFixture(std::nullopt, ControlServer::Passing::Dropped) {}

    void ServeAtOnce() {
        const auto start = std::chrono::steady_clock::now();
        Serve();
        EXPECT_LT(std::chrono::steady_clock::now() - start, kAtOnce);
    }
};

TEST_F(ControlServerPassingTest, ARequestWithADescriptorIsAnswered) {
    const auto client = Connect();
    ASSERT_EQ(0, Pass(*client, STDIN_FILENO, Reload(5)));
    Serve();
    EXPECT_EQ((Reply{5, 0, {}}), client->Receive());
}

TEST_F(ControlServerPassingTest, ADescriptorIsClosed) {
    std::array<int, 2> ends{};
    ASSERT_EQ(0, pipe2(ends.data(), O_CLOEXEC));
    const Descriptor readEnd(ends[0]);
    Descriptor writeEnd(ends[1]);
    const auto client = Connect();
    ASSERT_EQ(0, Pass(*client, writeEnd.Number(), Reload(5)));
    writeEnd.Close();
    Serve();
    pollfd waiting{readEnd.Number(), POLLIN, 0};
    EXPECT_EQ(1, poll(&waiting, 1, 20000));
}

TEST_F(ControlServerPassingTest, ADescriptorThatLingersKeepsNobodyWaiting) {
    Lingering connection;
    const auto client = Connect();
    ASSERT_EQ(0, Pass(*client, connection.writer.Number(), Reload(5)));
    connection.writer.Close();
    ServeAtOnce();
    EXPECT_EQ((Reply{5, 0, {}}), client->Receive());
    const auto other = Connect();
    ASSERT_TRUE(other->Send(Reload(6)));
    ServeAtOnce();
    EXPECT_EQ((Reply{6, 0, {}}), other->Receive());
}

TEST_F(ControlServerPassingTest, AClientThatPassesMoreWhileOneLingersIsClosed) {
    Lingering connection;
    const auto client = Connect();
    ASSERT_EQ(0, Pass(*client, connection.writer.Number(), Reload(5)));
    connection.writer.Close();
    Serve();
    ASSERT_EQ((Reply{5, 0, {}}), client->Receive());
    ASSERT_EQ(0, Pass(*client, STDIN_FILENO, Reload(6)));
    ServeAtOnce();
    EXPECT_TRUE(client->IsClosed());
}

TEST_F(ControlServerPassingTest, ADescriptorThatNobodyHasReceivedLingersNeither) {
    Lingering connection;
    const auto client = Connect();
    ASSERT_TRUE(client->Send(RawClient::Bytes{1, 2, 3}));  // for which it is closed
    ASSERT_TRUE(client->Send(RawClient::Bytes{}));         // which looks like the end
    ASSERT_EQ(0, Pass(*client, connection.writer.Number(), Reload(5)));
    connection.writer.Close();
    ServeAtOnce();
    EXPECT_TRUE(client->IsClosed());
}

TEST_F(ControlServerPassingTest, TheServersEndWaitsForNoDescriptor) {
    Lingering connection;
    const auto client = Connect();
    ASSERT_EQ(0, Pass(*client, connection.writer.Number(), Reload(5)));
    connection.writer.Close();
    Serve();
    const auto start = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, kAtOnce);
}

class ControlServerRefusalTest : public ControlServerFixture {};

TEST_F(ControlServerRefusalTest, DescriptorsAreRefusedWhereTheKernelCan) {
    const Descriptor probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    int passes = 1;
    socklen_t size = sizeof passes;
    if (getsockopt(probe.Number(), SOL_SOCKET, 83, &passes, &size) != 0) {
        GTEST_SKIP() << "this kernel does not refuse descriptors";
    }
    const auto client = Connect();
    EXPECT_EQ(EPERM, Pass(*client, STDIN_FILENO, Reload(5)));
    ASSERT_TRUE(client->Send(Reload(6)));
    Serve();
    EXPECT_EQ((Reply{6, 0, {}}), client->Receive());
}

}  // namespace
}  // namespace vexil
