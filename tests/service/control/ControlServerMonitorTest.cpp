// Clients that watch the messages.
#include <gmock/gmock.h>

#include <cerrno>

#include "driver/LittleEndian.h"
#include "driver/MonitorPackets.h"
#include "tests/service/control/ControlServerFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ControlServerMonitorTest : public ControlServerFixture {
  protected:
    static constexpr std::uint32_t kSequence = 77;  // of Ask

    static Bytes Mask(std::uint64_t ports) {
        Bytes payload(8);
        PutLittleEndian(payload.data(), ports, 8);
        return payload;
    }
    Reply Watch(const RawClient& client, const Bytes& payload, std::uint32_t number = 0) {
        return Ask(client, kControlMonitor, number, static_cast<std::uint32_t>(payload.size()), payload);
    }
    std::unique_ptr<RawClient> Watching(std::uint64_t ports) {
        auto client = Connect();
        EXPECT_EQ((Reply{kSequence, 0, {}}), Watch(*client, Mask(ports)));
        return client;
    }
    MonitorBatch Batch(std::initializer_list<std::uint8_t> ports, std::uint64_t leftOut = 0) const {
        MonitorBatch batch;
        batch.leftOut = leftOut;
        for (const std::uint8_t port : ports) {
            batch.pieces.push_back({port * std::uint64_t{1000}, port, kMonitoredInput, 0, note});
        }
        return batch;
    }
    // The ports of what has come, and "+N" for so many pieces that were left out in front.
    static std::vector<std::string> Received(const RawClient& client) {
        std::vector<std::string> received;
        while (const std::optional<Reply> reply = client.Receive()) {
            EXPECT_EQ(reply->sequence, kSequence);
            const auto monitored = UnpackMonitoredPieces(reply->data);
            EXPECT_TRUE(monitored);
            if (monitored && monitored->leftOut != 0) {
                received.push_back("+" + std::to_string(monitored->leftOut));
            }
            for (const MonitoredPiece& piece :
                 monitored ? monitored->pieces : std::vector<MonitoredPiece>()) {
                received.push_back(std::to_string(piece.port));
            }
        }
        return received;
    }

    const Bytes note = {0x90, 60, 100};
    const Bytes exclusive = Bytes(30'000, 1);
};

TEST_F(ControlServerMonitorTest, AWatcherIsSentWhatPassesItsPorts) {
    const auto all = Watching(~std::uint64_t{0});
    const auto one = Watching(std::uint64_t{1} << 63);
    const auto none = Connect();
    server->Pass(Batch({5, 63, 5}));
    EXPECT_THAT(Received(*all), ElementsAre("5", "63", "5"));
    EXPECT_THAT(Received(*one), ElementsAre("63"));
    EXPECT_FALSE(none->Receive());
    server->Pass(Batch({5}));
    EXPECT_THAT(Received(*one), IsEmpty()) << "there is no packet without anything";
}

TEST_F(ControlServerMonitorTest, TheDriverIsToldWhenSomebodyWatchesAndWhenNobodyDoes) {
    auto first = Watching(1);
    auto second = Watching(2);
    EXPECT_THAT(driver.asked, ElementsAre("monitored"));
    first->Close();
    Serve();
    EXPECT_THAT(driver.asked, SizeIs(1)) << "the other one goes on";
    EXPECT_EQ(0U, Watch(*second, Mask(0)).error);
    EXPECT_THAT(driver.asked, ElementsAre("monitored", "unmonitored"));
    server->Pass(Batch({1}));
    EXPECT_FALSE(second->Receive());
    EXPECT_EQ(0U, Watch(*second, Mask(2)).error);
    second->Close();
    Serve();
    EXPECT_THAT(driver.asked, ElementsAre("monitored", "unmonitored", "monitored", "unmonitored"));
}

TEST_F(ControlServerMonitorTest, AnAttachedPanelMayWatch) {
    const auto panel = Attached();
    EXPECT_EQ(0U, Watch(*panel, Mask(1)).error);
    server->Pass(Batch({0}));
    EXPECT_THAT(Received(*panel), ElementsAre("0"));
    EXPECT_EQ(0U, Set(*panel, 190));
}

TEST_F(ControlServerMonitorTest, MalformedWishesAreRefused) {
    const auto client = Connect();
    EXPECT_EQ((Reply{kSequence, EINVAL, {}}), Watch(*client, {}));
    EXPECT_EQ((Reply{kSequence, EINVAL, {}}), Watch(*client, Bytes(7)));
    EXPECT_EQ((Reply{kSequence, EINVAL, {}}), Watch(*client, Bytes(9)));
    EXPECT_EQ((Reply{kSequence, EINVAL, {}}), Watch(*client, Mask(1), 1));
    EXPECT_THAT(driver.asked, IsEmpty());
}

TEST_F(ControlServerMonitorTest, WhatOnePacketDoesNotHoldComesInMore) {
    const auto client = Watching(1);
    MonitorBatch batch;
    for (int piece = 0; piece < 5; ++piece) {
        batch.pieces.push_back({0, 0, kMonitoredInput, 0, exclusive});
    }
    server->Pass(batch);
    int packets = 0;
    std::size_t pieces = 0;
    while (const std::optional<Reply> reply = client->Receive()) {
        const auto monitored = UnpackMonitoredPieces(reply->data);
        ASSERT_TRUE(monitored);
        pieces += monitored->pieces.size();
        ++packets;
    }
    EXPECT_EQ(packets, 3);
    EXPECT_EQ(pieces, 5U);
}

TEST_F(ControlServerMonitorTest, WhatTheEngineLeftOutIsToldToAll) {
    const auto one = Watching(1);
    const auto other = Watching(2);
    server->Pass(Batch({0}, 12));
    EXPECT_THAT(Received(*one), ElementsAre("+12", "0"));
    EXPECT_THAT(Received(*other), ElementsAre("+12"));
}

TEST_F(ControlServerMonitorTest, AWatcherThatDoesNotReadLosesSomeAndIsToldHowManyWhenThereIsRoom) {
    const auto slow = Watching(1);
    const auto quick = Watching(1);
    MonitorBatch batch;
    batch.pieces.assign(2, {0, 0, kMonitoredInput, 0, exclusive});
    constexpr int kRounds = 50;
    for (int round = 0; round < kRounds; ++round) {
        server->Pass(batch);
        EXPECT_THAT(Received(*quick), ElementsAre("0", "0")) << "nobody waits for the slow one";
    }
    pollfd state{server->EventDescriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&state, 1, 0), 0) << "while there is no room there is nothing to do";
    std::size_t received = Received(*slow).size();
    EXPECT_GT(received, 0U);
    EXPECT_LT(received, 2U * kRounds);
    Serve();
    EXPECT_THAT(Received(*slow), ElementsAre("+" + std::to_string(2 * kRounds - received)))
        << "also when nothing else comes";
    server->Pass(Batch({0}));
    EXPECT_THAT(Received(*slow), ElementsAre("0"));
    EXPECT_EQ(poll(&state, 1, 0), 0);
}

}  // namespace
}  // namespace vexil
