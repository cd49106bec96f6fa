// What a watcher is sent, byte by byte.
#include "driver/MonitorPackets.h"

#include <gtest/gtest.h>

#include <string>

#include "driver/ControlChannel.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kNote = {0x90, 0x3C, 0x40};
// That of the header's example.
const Bytes kData = {2, 0, 0, 0, 0, 0xCA, 0x9A, 0x3B, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0x90, 0x3C, 0x40};

Bytes DataOf(const MonitorPacket& packet) {
    return {packet.Data().begin(), packet.Data().end()};
}

Bytes Changed(std::size_t at, std::uint8_t byte) {
    Bytes data = kData;
    data[at] = byte;
    return data;
}

TEST(MonitorPackets, APieceIsPackedToTheByte) {
    MonitorPacket packet(2);
    EXPECT_TRUE(packet.Add({1'000'000'000, 0, kMonitoredOutput, 0, kNote}));
    EXPECT_EQ(kData, DataOf(packet));
    EXPECT_EQ(packet.Count(), 1U);
}

TEST(MonitorPackets, WhatIsPackedIsRead) {
    MonitorPacket packet(0);
    const Bytes exclusive = {0xF0, 1};
    ASSERT_TRUE(packet.Add({0x0102030405060708, 63, kMonitoredTest, 0x1234, exclusive}));
    ASSERT_TRUE(packet.Add({9, 7, kMonitoredInput, 0, kNote}));
    const auto monitored = UnpackMonitoredPieces(packet.Data());
    ASSERT_TRUE(monitored);
    ASSERT_EQ(monitored->pieces.size(), 2U);
    const MonitoredPiece& first = monitored->pieces[0];
    EXPECT_EQ(first.time, 0x0102030405060708U);
    EXPECT_EQ(first.port, 63);
    EXPECT_EQ(first.side, kMonitoredTest);
    EXPECT_EQ(first.stream, 0x1234);
    EXPECT_EQ(Bytes(first.bytes.begin(), first.bytes.end()), exclusive);
    EXPECT_EQ(monitored->pieces[1].side, kMonitoredInput);
}

TEST(MonitorPackets, OnlyACountIsAPacketToo) {
    const auto monitored = UnpackMonitoredPieces(MonitorPacket(7).Data());
    ASSERT_TRUE(monitored);
    EXPECT_EQ(monitored->leftOut, 7U);
    EXPECT_TRUE(monitored->pieces.empty());
}

TEST(MonitorPackets, MalformedDataAreNone) {
    ASSERT_TRUE(UnpackMonitoredPieces(kData));
    for (std::size_t size = 0; size < kData.size(); ++size) {
        const bool isCount = size == 4;
        EXPECT_EQ(isCount, UnpackMonitoredPieces(std::span(kData).first(size)).has_value()) << size;
    }
    EXPECT_FALSE(UnpackMonitoredPieces(Changed(12, 64))) << "a port";
    EXPECT_FALSE(UnpackMonitoredPieces(Changed(13, 3))) << "a side";
    EXPECT_FALSE(UnpackMonitoredPieces(Changed(16, 0))) << "a piece without bytes";
    EXPECT_FALSE(UnpackMonitoredPieces(Changed(16, 4))) << "a piece that is longer than what is there";
    EXPECT_FALSE(UnpackMonitoredPieces(Changed(19, 0xFF))) << "a length that overflows";
}

TEST(MonitorPackets, APacketTakesWhatAReplyHolds) {
    MonitorPacket packet(0);
    const Bytes longest(kMaxControlData - 20, 1);
    EXPECT_FALSE(packet.Add({0, 0, kMonitoredOutput, 0, Bytes(longest.size() + 1, 1)}));
    EXPECT_TRUE(packet.Add({0, 0, kMonitoredOutput, 0, longest}));
    EXPECT_EQ(packet.Data().size(), kMaxControlData);
    EXPECT_FALSE(packet.Add({0, 0, kMonitoredOutput, 0, kNote}));
    EXPECT_EQ(packet.Count(), 1U);
}

}  // namespace
}  // namespace vexil
