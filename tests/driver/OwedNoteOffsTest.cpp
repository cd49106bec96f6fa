#include "driver/OwedNoteOffs.h"

#include <gtest/gtest.h>

#include <vector>

#include "driver/MidiPacketList.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes PacketList(const std::vector<Bytes>& packets) {
    Bytes list(512);
    std::uint8_t* place = MidiPacketListInit(list.data(), list.size());
    for (const Bytes& data : packets) {
        place = MidiPacketListAdd(list.data(), list.size(), place, 7, data.size(), data.data());
    }
    list.resize(MidiPacketListLength(list.data()));
    return list;
}

TEST(EndsNotes, AChordOfVelocityZeroDoes) {
    EXPECT_TRUE(EndsNotes(0, PacketList({{0x90, 40, 0, 0x90, 52, 0}})));
    EXPECT_TRUE(EndsNotes(63, PacketList({{0x90, 40, 0}, {0x90, 52, 0}})));
}

TEST(EndsNotes, TheStatusOfChannel16CountsToo) {
    EXPECT_TRUE(EndsNotes(9, PacketList({{0xFF, 40, 0, 0xFF, 52, 0}})));
}

TEST(EndsNotes, AChordWithANoteThatSoundsDoesNot) {
    EXPECT_FALSE(EndsNotes(9, PacketList({{0x90, 40, 100, 0x90, 52, 100}})));
    EXPECT_FALSE(EndsNotes(9, PacketList({{0x90, 40, 0, 0x90, 52, 1}})));
}

TEST(EndsNotes, AnotherOptionDoesNot) {
    EXPECT_FALSE(EndsNotes(64, PacketList({{0x90, 40, 0}})));
    EXPECT_FALSE(EndsNotes(192, PacketList({{0x90, 40, 0}})));
}

TEST(EndsNotes, WhatIsNoPacketListDoesNot) {
    Bytes list = PacketList({{0x90, 40, 0}});
    EXPECT_FALSE(EndsNotes(9, {}));
    for (std::size_t size = 0; size < list.size(); ++size) {
        EXPECT_FALSE(EndsNotes(9, std::span(list).first(size))) << size;
    }
    list.push_back(0);
    EXPECT_FALSE(EndsNotes(9, list));
    EXPECT_FALSE(EndsNotes(9, PacketList({})));
    EXPECT_FALSE(EndsNotes(9, PacketList({{0x90, 40, 0, 0}})));
    EXPECT_FALSE(EndsNotes(9, Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace vexil
