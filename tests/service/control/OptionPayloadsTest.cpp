// What the driver reads out of payloads, beside what the panel's side builds.
#include "service/control/OptionPayloads.h"

#include <gmock/gmock.h>

#include <random>
#include <string>

#include "driver/DriverOptions.h"
#include "driver/MidiPacketList.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::ElementsAre;

Bytes RecordOf(int port, const PortEntry& entry, const std::string& target, const std::string& source) {
    const PortHosts hosts{source.c_str(), target.c_str()};
    Bytes record(TestOutputRecordLength(hosts));
    PutTestOutputRecord(record.data(), port, entry, hosts);
    return record;
}

// A packet list of packets of these lengths, filled with counted bytes, and all their data.
struct List {
    Bytes bytes;
    Bytes data;
};
List ListOf(const std::vector<std::size_t>& lengths) {
    List list;
    list.bytes.resize(65536 * (lengths.size() + 1));
    std::uint8_t* packet = MidiPacketListInit(list.bytes.data(), list.bytes.size());
    for (const std::size_t length : lengths) {
        Bytes data(length);
        for (std::uint8_t& byte : data) {
            byte = static_cast<std::uint8_t>(list.data.size());
            list.data.push_back(byte);
        }
        packet = MidiPacketListAdd(list.bytes.data(), list.bytes.size(), packet, 0x1122334455667788, length,
                                   data.data());
    }
    list.bytes.resize(MidiPacketListLength(list.bytes.data()));
    return list;
}

TEST(Uint32Payload, IsFourBytesLowestFirst) {
    EXPECT_EQ(0x04030201U, ReadUint32Payload(Bytes{1, 2, 3, 4}));
}

TEST(Uint32Payload, OfAnotherLengthIsNone) {
    EXPECT_FALSE(ReadUint32Payload({}));
    EXPECT_FALSE(ReadUint32Payload(Bytes{1, 2, 3}));
    EXPECT_FALSE(ReadUint32Payload(Bytes{1, 2, 3, 4, 5}));
}

TEST(TestOutputPayload, HasWhatThePanelPutIn) {
    const auto test = ReadTestOutputPayload(RecordOf(9, {0xC1, 0, 3, 17}, "alpha", "b"));
    ASSERT_TRUE(test);
    EXPECT_EQ(9, test->port);
    EXPECT_EQ((PortEntry{0xC1, 0, 3, 17}), test->record.entry);
    EXPECT_EQ("alpha", test->record.targetComputer);
    EXPECT_EQ("b", test->record.sourceComputer);
}

TEST(TestOutputPayload, OfEmptyNamesIsSevenBytes) {
    const auto test = ReadTestOutputPayload(Bytes{0, 63, 0, 0, 0, 0, 0});
    ASSERT_TRUE(test);
    EXPECT_EQ(63, test->port);
    EXPECT_EQ("", test->record.targetComputer);
    EXPECT_EQ("", test->record.sourceComputer);
}

TEST(TestOutputPayload, LastByteMeansNothing) {
    EXPECT_TRUE(ReadTestOutputPayload(Bytes{0, 1, 0, 0, 'a', 0, 'b', 0, 0xFF}));
}

TEST(TestOutputPayload, OfAPortBeyondTheLastIsNone) {
    EXPECT_FALSE(ReadTestOutputPayload(RecordOf(64, {}, "a", "b")));
    EXPECT_FALSE(ReadTestOutputPayload(RecordOf(255, {}, "a", "b")));
}

TEST(TestOutputPayload, ReadsBackWhateverThePanelBuilds) {
    std::minstd_rand generator;
    for (int run = 0; run < 2000; ++run) {
        const auto text = [&] {
            std::string made(generator() % 40, ' ');
            for (char& character : made) {
                character = static_cast<char>(1 + generator() % 255);
            }
            return made;
        };
        const int port = static_cast<int>(generator() % 64);
        const PortEntry entry{static_cast<std::uint8_t>(generator()), 0,
                              static_cast<std::uint8_t>(generator()), static_cast<std::uint8_t>(generator())};
        const std::string target = text();
        const std::string source = text();
        const auto test = ReadTestOutputPayload(RecordOf(port, entry, target, source));
        ASSERT_TRUE(test);
        EXPECT_EQ(port, test->port);
        EXPECT_EQ(entry, test->record.entry);
        EXPECT_EQ(target, test->record.targetComputer);
        EXPECT_EQ(source, test->record.sourceComputer);
    }
}

TEST(TestOutputPayload, CutAnywhereIsNone) {
    const Bytes record = RecordOf(9, {0xC1, 0, 3, 17}, "alpha", "b");
    for (std::size_t length = 0; length < record.size(); ++length) {
        EXPECT_FALSE(ReadTestOutputPayload(std::span(record).first(length))) << length;
    }
}

TEST(TestOutputPayload, WithAByteTooManyIsNone) {
    Bytes record = RecordOf(9, {0xC1, 0, 3, 17}, "alpha", "b");
    record.push_back(0);
    EXPECT_FALSE(ReadTestOutputPayload(record));
    record.back() = 'x';
    EXPECT_FALSE(ReadTestOutputPayload(record));
}

TEST(PacketListPayload, GivesTheDataOfAllPacketsInOrder) {
    const List list = ListOf({3, 0, 18, 1});
    EXPECT_EQ(list.data, ReadPacketListPayload(list.bytes));
}

TEST(PacketListPayload, MayBeEmpty) {
    EXPECT_EQ(Bytes{}, ReadPacketListPayload(Bytes{0, 0, 0, 0}));
}

TEST(PacketListPayload, TakesTheLongestPacket) {
    const List list = ListOf({65535});
    EXPECT_EQ(list.data, ReadPacketListPayload(list.bytes));
}

TEST(PacketListPayload, CutAnywhereIsNone) {
    const List list = ListOf({3, 0, 18});
    for (std::size_t length = 0; length < list.bytes.size(); ++length) {
        EXPECT_FALSE(ReadPacketListPayload(std::span(list.bytes).first(length))) << length;
    }
}

TEST(PacketListPayload, WithAByteTooManyIsNone) {
    List list = ListOf({3});
    list.bytes.push_back(0);
    EXPECT_FALSE(ReadPacketListPayload(list.bytes));
}

TEST(PacketListPayload, WithACountAboveItsPacketsIsNone) {
    List list = ListOf({3});
    for (const std::uint8_t byte : {std::uint8_t{2}, std::uint8_t{0xFF}}) {
        list.bytes[0] = byte;
        EXPECT_FALSE(ReadPacketListPayload(list.bytes));
    }
    list.bytes[3] = 0xFF;
    EXPECT_FALSE(ReadPacketListPayload(list.bytes));
}

TEST(PacketListPayload, WithACountBelowItsPacketsIsNone) {
    List list = ListOf({3, 3});
    list.bytes[0] = 1;
    EXPECT_FALSE(ReadPacketListPayload(list.bytes));
}

}  // namespace
}  // namespace vexil
