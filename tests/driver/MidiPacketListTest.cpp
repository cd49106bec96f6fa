#include "driver/MidiPacketList.h"

#include <gtest/gtest.h>

#include <vector>

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

TEST(MidiPacketList, EmptyListIsACountOfZero) {
    Bytes list(8, 0xEE);
    EXPECT_EQ(list.data() + 4, MidiPacketListInit(list.data(), list.size()));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}), list);
    EXPECT_EQ(4U, MidiPacketListLength(list.data()));
}

TEST(MidiPacketList, AListWithoutRoomForItsCountIsNotStarted) {
    Bytes list(3, 0xEE);
    EXPECT_EQ(nullptr, MidiPacketListInit(list.data(), list.size()));
    EXPECT_EQ(Bytes(3, 0xEE), list);
}

TEST(MidiPacketList, PacketsFollowEachOtherPacked) {
    Bytes list(40, 0xEE);
    const Bytes first = {0x90, 60, 100};
    const Bytes second = {0xF8};
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    packet = MidiPacketListAdd(list.data(), list.size(), packet, 0x0102030405060708, 3, first.data());
    ASSERT_EQ(list.data() + 17, packet);
    packet = MidiPacketListAdd(list.data(), list.size(), packet, 0x1112131415161718, 1, second.data());
    ASSERT_EQ(list.data() + 28, packet);

    const Bytes expected = {2,    0,    0,    0,                                          // count
                            8,    7,    6,    5,    4,    3,    2,    1,                  // time
                            3,    0,    0x90, 60,   100,                                  // length, data
                            0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11, 1, 0, 0xF8};  // second packet
    EXPECT_EQ(expected, Bytes(list.begin(), list.begin() + 28));
    EXPECT_EQ(Bytes(12, 0xEE), Bytes(list.begin() + 28, list.end()));
    EXPECT_EQ(28U, MidiPacketListLength(list.data()));
}

TEST(MidiPacketList, APacketMayFillTheListToTheLastByte) {
    Bytes list(17, 0xEE);
    const Bytes data = {1, 2, 3};
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    EXPECT_EQ(list.data() + 17, MidiPacketListAdd(list.data(), list.size(), packet, 0, 3, data.data()));
}

TEST(MidiPacketList, APacketThatDoesNotFitLeavesTheListUnchanged) {
    Bytes list(17, 0xEE);
    const Bytes data = {1, 2, 3, 4};
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    const Bytes before = list;
    EXPECT_EQ(nullptr, MidiPacketListAdd(list.data(), list.size(), packet, 0, 4, data.data()));
    EXPECT_EQ(before, list);
}

TEST(MidiPacketList, APacketWithoutRoomForItsHeaderLeavesTheListUnchanged) {
    Bytes list(13, 0xEE);
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    const Bytes before = list;
    EXPECT_EQ(nullptr, MidiPacketListAdd(list.data(), list.size(), packet, 0, 0, nullptr));
    EXPECT_EQ(before, list);
}

TEST(MidiPacketList, APacketHoldsUpTo65535Bytes) {
    Bytes list(70000);
    const Bytes data(65536, 0x55);
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    EXPECT_EQ(nullptr, MidiPacketListAdd(list.data(), list.size(), packet, 0, 65536, data.data()));
    EXPECT_NE(nullptr, MidiPacketListAdd(list.data(), list.size(), packet, 0, 65535, data.data()));
    EXPECT_EQ(4U + 10 + 65535, MidiPacketListLength(list.data()));
}

TEST(MidiPacketList, APacketWithoutDataIsTenBytes) {
    Bytes list(14, 0xEE);
    std::uint8_t* packet = MidiPacketListInit(list.data(), list.size());
    EXPECT_EQ(list.data() + 14, MidiPacketListAdd(list.data(), list.size(), packet, 0, 0, nullptr));
    EXPECT_EQ(14U, MidiPacketListLength(list.data()));
}

}  // namespace
}  // namespace vexil
