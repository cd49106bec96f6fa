// A control server before a driver that only writes down, and clients of it.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>
#include <memory>

#include "service/control/ControlServer.h"
#include "tests/config/TemporaryFolder.h"
#include "tests/service/control/RawClient.h"
#include "tests/service/control/RecordingMediator.h"

namespace vexil {

class ControlServerFixture : public ::testing::Test {
  protected:
    using Bytes = RawClient::Bytes;
    using Reply = RawClient::Reply;

    explicit ControlServerFixture(std::optional<gid_t> group = std::nullopt,
                                  ControlServer::Passing passing = ControlServer::Passing::Refused) {
        sockaddr_un place{};
        place.sun_family = AF_UNIX;
        std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(0, bind(listening.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place));
        EXPECT_EQ(0, listen(listening.Number(), 2000));
        server = std::make_unique<ControlServer>(listening.Number(), group, driver, passing);
    }

    // Rounds until nothing is left to do.
    void Serve() {
        pollfd state{server->EventDescriptor(), POLLIN, 0};
        for (int round = 0; round < 5000 && poll(&state, 1, 0) > 0; ++round) {
            server->Serve();
        }
    }
    std::unique_ptr<RawClient> Connect() {
        auto client = std::make_unique<RawClient>(path);
        EXPECT_TRUE(client->IsConnected());
        Serve();
        return client;
    }
    std::unique_ptr<RawClient> Attached() {
        auto client = Connect();
        EXPECT_EQ(0U, Ask(*client, kControlAttach, kControlUnit).error);
        driver.asked.clear();
        return client;
    }
    // Sends and gives the reply.
    Reply Ask(const RawClient& client, std::uint32_t kind, std::uint32_t number, std::uint32_t length = 0,
              const Bytes& payload = {}) {
        EXPECT_TRUE(client.Send(77, kind, number, length, payload));
        Serve();
        const std::optional<Reply> reply = client.Receive();
        EXPECT_TRUE(reply);
        EXPECT_EQ(77U, reply ? reply->sequence : 0);
        return reply.value_or(Reply{});
    }
    std::uint32_t Set(const RawClient& client, std::uint32_t option, const Bytes& payload = {}) {
        return Ask(client, kControlSetOption, option, static_cast<std::uint32_t>(payload.size()), payload)
            .error;
    }

    test::TemporaryFolder folder;
    const std::string path = folder / "control";
    const Descriptor listening{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)};
    RecordingMediator driver;
    std::unique_ptr<ControlServer> server;
};

}  // namespace vexil
