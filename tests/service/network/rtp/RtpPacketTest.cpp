// Packets of RTP-MIDI: every form of their commands as it may be read, and the one form that is written.
#include <gmock/gmock.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include "service/network/rtp/RtpCodec.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t kTime = 1000;

// What came out of a packet, piece by piece, as text: "1000 90 3C 64". A system exclusive has "(" in front of
// the first piece and ")" behind the last.
std::string Text(const RtpCommand& command) {
    std::string text = std::to_string(command.timestamp);
    const bool exclusive = command.piece.systemExclusive;
    text += exclusive && command.piece.first ? " (" : "";
    for (const std::uint8_t byte : command.piece.bytes) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text += {' ', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text + (exclusive && command.piece.last ? " )" : "");
}

Bytes Packet(const Bytes& section) {
    Bytes packet = {0x80, 0x61, 0x12, 0x34, 0, 0, 0x03, 0xE8, 0xAA, 0xBB, 0xCC, 0xDD};
    packet.insert(packet.end(), section.begin(), section.end());
    return packet;
}

// A packet of a list alone; `timed`: it begins with a delta time.
Bytes ListPacket(const Bytes& list, bool timed = false) {
    Bytes section = {static_cast<std::uint8_t>(0x80 | (timed ? 0x20 : 0) | list.size() >> 8),
                     static_cast<std::uint8_t>(list.size())};
    section.insert(section.end(), list.begin(), list.end());
    return Packet(section);
}

struct Heard {
    std::vector<std::string> commands;
    bool malformed = false;
};

Heard Read(const Bytes& datagram, ExclusiveInput& exclusive) {
    Heard heard;
    const auto packet = ReadRtpPacket(datagram);
    EXPECT_TRUE(packet);
    if (packet) {
        RtpCommandReader reader(*packet, exclusive);
        while (const auto command = reader.Next()) {
            heard.commands.push_back(Text(*command));
        }
        heard.malformed = reader.IsMalformed();
    }
    return heard;
}

// What comes out of lists, a packet each, one behind the other.
std::vector<std::string> Commands(std::initializer_list<Bytes> lists) {
    ExclusiveInput exclusive;
    std::vector<std::string> commands;
    for (const Bytes& list : lists) {
        const Heard heard = Read(ListPacket(list), exclusive);
        EXPECT_FALSE(heard.malformed);
        commands.insert(commands.end(), heard.commands.begin(), heard.commands.end());
    }
    return commands;
}

std::vector<std::string> BeforeTheFault(const Bytes& list, bool timed = false) {
    ExclusiveInput exclusive;
    const Heard heard = Read(ListPacket(list, timed), exclusive);
    EXPECT_TRUE(heard.malformed);
    EXPECT_FALSE(exclusive.IsUnderWay());
    return heard.commands;
}

TEST(RtpPacket, HeaderIsRead) {
    const Bytes datagram = Packet({0x43, 0x90, 0x3C, 0x64, 0x20, 0x12, 0x33});
    const auto packet = ReadRtpPacket(datagram);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->header.sequence, 0x1234);
    EXPECT_EQ(packet->header.timestamp, kTime);
    EXPECT_EQ(packet->header.ssrc, 0xAABBCCDDU);
    EXPECT_THAT(packet->list, ElementsAre(0x90, 0x3C, 0x64));
    EXPECT_TRUE(packet->hasJournal);
    EXPECT_THAT(packet->journal, ElementsAre(0x20, 0x12, 0x33));
}

TEST(RtpPacket, MarkerPaddingSourcesAndExtensionCountForNothing) {
    Bytes datagram = {0xB2, 0xE1, 0x12, 0x34, 0, 0, 0x03, 0xE8, 0xAA, 0xBB, 0xCC, 0xDD};
    datagram.insert(datagram.end(), {1, 1, 1, 1, 2, 2, 2, 2});              // two sources
    datagram.insert(datagram.end(), {0xBE, 0xDE, 0, 1, 9, 9, 9, 9});        // an extension of one word
    datagram.insert(datagram.end(), {0x03, 0x90, 0x3C, 0x64, 0, 0, 0, 4});  // four bytes of padding
    ExclusiveInput exclusive;
    EXPECT_THAT(Read(datagram, exclusive).commands, ElementsAre("1000 90 3C 64"));
}

TEST(RtpPacket, WhatIsNoPacketIsRefused) {
    Bytes version = Packet({0x03, 0x90, 0x3C, 0x64});
    version[0] = 0x40;
    EXPECT_FALSE(ReadRtpPacket(version));
    Bytes type = Packet({0x03, 0x90, 0x3C, 0x64});
    type[1] = 0x60;
    EXPECT_FALSE(ReadRtpPacket(type));
    Bytes padding = Packet({0x03, 0x90, 0x3C, 0x09});
    padding[0] = 0xA0;
    EXPECT_FALSE(ReadRtpPacket(padding));
    padding.back() = 0;
    EXPECT_FALSE(ReadRtpPacket(padding));
    EXPECT_FALSE(ReadRtpPacket(Bytes{0xFF, 0xFF, 'I', 'N'}));
}

TEST(RtpPacket, EveryPacketThatIsCutInFrontOfItsJournalIsRefused) {
    const Bytes whole = Packet({0x83, 0x00});
    Bytes longer = whole;
    longer.insert(longer.end(), 0x300, 0x00);
    ASSERT_TRUE(ReadRtpPacket(longer));
    for (std::size_t size = 0; size < longer.size(); ++size) {
        EXPECT_FALSE(
            ReadRtpPacket(Bytes(longer.begin(), longer.begin() + static_cast<std::ptrdiff_t>(size))));
    }
}

TEST(RtpPacket, AnEmptyListGivesNothing) {
    EXPECT_THAT(Commands({{}}), IsEmpty());
}

TEST(RtpPacket, ShortAndLongLengthAreRead) {
    ExclusiveInput exclusive;
    EXPECT_THAT(Read(Packet({0x03, 0x90, 0x3C, 0x64}), exclusive).commands, ElementsAre("1000 90 3C 64"));
    EXPECT_THAT(Read(Packet({0x80, 0x03, 0x90, 0x3C, 0x64}), exclusive).commands,
                ElementsAre("1000 90 3C 64"));
}

TEST(RtpPacket, DeltaTimesAreReadInAllTheirLengthsAndAddUp) {
    ExclusiveInput exclusive;
    const Heard heard = Read(ListPacket({0x0A, 0x90, 0x3C, 0x64,                    // 10
                                         0x81, 0x00, 0x90, 0x3D, 0x64,              // 128
                                         0x81, 0x80, 0x00, 0x90, 0x3E, 0x64,        // 16384
                                         0x81, 0x80, 0x80, 0x00, 0x90, 0x3F, 0x64,  // 2097152
                                         0x80, 0x80, 0x80, 0x00, 0x90, 0x40, 0x64},
                                        true),
                             exclusive);
    EXPECT_THAT(heard.commands, ElementsAre("1010 90 3C 64", "1138 90 3D 64", "17522 90 3E 64",
                                            "2114674 90 3F 64", "2114674 90 40 64"));
}

TEST(RtpPacket, TimeWithoutACommandIsRead) {
    ExclusiveInput exclusive;
    EXPECT_THAT(Read(ListPacket({0x81, 0x00}, true), exclusive).commands, IsEmpty());
    EXPECT_THAT(Commands({{0x90, 0x3C, 0x64, 0x0A}}), ElementsAre("1000 90 3C 64"));
}

TEST(RtpPacket, ADeltaTimeOfFiveBytesOrOneThatIsCutIsMalformed) {
    EXPECT_THAT(BeforeTheFault({0x90, 0x3C, 0x64, 0x80, 0x80, 0x80, 0x80, 0x00, 0xF8}),
                ElementsAre("1000 90 3C 64"));
    EXPECT_THAT(BeforeTheFault({0x81}, true), IsEmpty());
}

TEST(RtpPacket, RunningStatusGoesOnThroughRealtimeMessages) {
    EXPECT_THAT(Commands({{0x90, 0x3C, 0x64, 0, 0x40, 0x64, 0, 0xF8, 0, 0x43, 0x64, 0, 0xC5, 0x07, 0, 0x08}}),
                ElementsAre("1000 90 3C 64", "1000 90 40 64", "1000 F8", "1000 90 43 64", "1000 C5 07",
                            "1000 C5 08"));
}

TEST(RtpPacket, RunningStatusEndsWithSystemMessagesAndWithThePacket) {
    EXPECT_THAT(BeforeTheFault({0x90, 0x3C, 0x64, 0, 0xF6, 0, 0x40, 0x64}),
                ElementsAre("1000 90 3C 64", "1000 F6"));
    EXPECT_THAT(BeforeTheFault({0x90, 0x3C, 0x64, 0, 0xF0, 0x01, 0xF7, 0, 0x40, 0x64}),
                ElementsAre("1000 90 3C 64", "1000 ( F0 01 F7 )"));
    EXPECT_THAT(BeforeTheFault({0x3C, 0x64}), IsEmpty());
}

TEST(RtpPacket, EveryKindOfMessageIsReadWithItsLength) {
    EXPECT_THAT(Commands({{0x80, 1, 2,    0, 0x91, 1,    2,    0, 0xA2, 1,    2,    0, 0xB3, 1, 2,   0, 0xC4,
                           1,    0, 0xD5, 1, 0,    0xE6, 1,    2, 0,    0xF1, 1,    0, 0xF2, 1, 2,   0, 0xF3,
                           1,    0, 0xF6, 0, 0xF8, 0,    0xFA, 0, 0xFB, 0,    0xFC, 0, 0xFE, 0, 0xFF}}),
                ElementsAre("1000 80 01 02", "1000 91 01 02", "1000 A2 01 02", "1000 B3 01 02", "1000 C4 01",
                            "1000 D5 01", "1000 E6 01 02", "1000 F1 01", "1000 F2 01 02", "1000 F3 01",
                            "1000 F6", "1000 F8", "1000 FA", "1000 FB", "1000 FC", "1000 FE", "1000 FF"));
}

TEST(RtpPacket, UndefinedMessagesAreLeftOut) {
    EXPECT_THAT(Commands({{0xF4, 1, 2, 3, 0xF7, 0, 0xF5, 0xF7, 0, 0xF9, 0, 0xFD, 0, 0x90, 0x3C, 0x64}}),
                ElementsAre("1000 90 3C 64"));
    EXPECT_THAT(BeforeTheFault({0xF4, 1, 2, 0x90, 0x3C, 0x64}), IsEmpty());
}

TEST(RtpPacket, AMessageThatIsCutOrHasAStatusByteInItIsMalformed) {
    EXPECT_THAT(BeforeTheFault({0x90, 0x3C}), IsEmpty());
    EXPECT_THAT(BeforeTheFault({0xF8, 0, 0x90, 0x3C, 0x80}), ElementsAre("1000 F8"));
    EXPECT_THAT(BeforeTheFault({0x90}), IsEmpty());
}

TEST(RtpPacket, AWholeSystemExclusiveIsRead) {
    EXPECT_THAT(Commands({{0xF0, 0x7E, 0x09, 0xF7}, {0xF0, 0xF7}}),
                ElementsAre("1000 ( F0 7E 09 F7 )", "1000 ( F0 F7 )"));
}

TEST(RtpPacket, SegmentsOfASystemExclusiveAreReadInOnePacketAndInSeveral) {
    EXPECT_THAT(Commands({{0xF0, 1, 2, 0xF0, 5, 0xF7, 3, 0xF0, 6, 0xF7, 4, 0xF7}}),
                ElementsAre("1000 ( F0 01 02", "1005 03", "1011 04 F7 )"));
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {}, {0xF7, 2, 0xF0}, {0xF7, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 02", "1000 F7 )"));
}

TEST(RtpPacket, ASegmentedMessageThatIsCancelledEnds) {
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {0xF7, 0xF4, 0, 0x90, 0x3C, 0x64}}),
                ElementsAre("1000 ( F0 01", "1000 F7 )", "1000 90 3C 64"));
    EXPECT_THAT(Commands({{0xF0, 1, 2, 0xF4, 0, 0xF8}}), ElementsAre("1000 F8"));
    EXPECT_THAT(Commands({{0xF7, 0xF4, 0, 0xF8}}), ElementsAre("1000 F8"));
}

TEST(RtpPacket, ADroppedEndIsPutBack) {
    EXPECT_THAT(Commands({{0xF0, 1, 2, 0xF5, 0, 0x90, 0x3C, 0x64}}),
                ElementsAre("1000 ( F0 01 02", "1000 F7 )", "1000 90 3C 64"));
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {0xF7, 2, 0xF5}, {0xF7, 3, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 02", "1000 F7 )"));
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {0xF7, 0xF5}}), ElementsAre("1000 ( F0 01", "1000 F7 )"));
}

TEST(RtpPacket, RealtimeMessagesInASystemExclusiveStandBetweenItsPieces) {
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0, 0, 0xF8, 0, 0xF7, 2, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 F8", "1000 02 F7 )"));
    EXPECT_THAT(Commands({{0xF0, 1, 0xF8, 2, 0xFD, 3, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 F8", "1000 02", "1000 03 F7 )"));
}

TEST(RtpPacket, AnotherMessageEndsASystemExclusive) {
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {0x90, 0x3C, 0x64, 0, 0xF7, 2, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 F7 )", "1000 90 3C 64"));
    EXPECT_THAT(Commands({{0xF0, 1, 0xF0}, {0xF0, 2, 0xF7}}),
                ElementsAre("1000 ( F0 01", "1000 F7 )", "1000 ( F0 02 F7 )"));
}

TEST(RtpPacket, ASegmentWithoutItsBeginningIsPassedOver) {
    EXPECT_THAT(Commands({{0xF7, 1, 2, 0xF0, 0, 0x90, 0x3C, 0x64}, {0xF7, 3, 0xF7, 0, 0xF8}}),
                ElementsAre("1000 90 3C 64", "1000 F8"));
}

TEST(RtpPacket, ASegmentWithoutAnEndGoesOnInTheNextPacket) {
    EXPECT_THAT(Commands({{0xF0, 1, 2}, {0xF7, 3, 0xF7}}), ElementsAre("1000 ( F0 01 02", "1000 03 F7 )"));
}

TEST(RtpPacket, AStatusByteInASegmentIsMalformedAndEndsTheMessage) {
    EXPECT_THAT(BeforeTheFault({0xF0, 1, 0xF0, 0, 0xF7, 2, 0x90, 0x3C, 0x64}),
                ElementsAre("1000 ( F0 01", "1000 F7 )"));
}

TEST(RtpPacket, AMessageThatIsMalformedFromItsBeginningIsNotHeard) {
    EXPECT_THAT(BeforeTheFault({0xF0, 1, 0x90, 0x3C, 0x64}), IsEmpty());
}

TEST(RtpPacket, EndGivesTheEndOfWhatIsUnderWayOnce) {
    ExclusiveInput exclusive;
    EXPECT_FALSE(exclusive.End());
    Read(ListPacket({0xF0, 1, 0xF0}), exclusive);
    EXPECT_TRUE(exclusive.IsUnderWay());
    const auto end = exclusive.End();
    ASSERT_TRUE(end);
    EXPECT_THAT(end->bytes, ElementsAre(0xF7));
    EXPECT_TRUE(end->last && !end->first && end->systemExclusive);
    EXPECT_FALSE(exclusive.End());
    EXPECT_THAT(Read(ListPacket({0xF7, 2, 0xF7}), exclusive).commands, IsEmpty());
}

TEST(RtpPacket, PiecesOfALongSegmentAreCut) {
    Bytes list(3000, 0x11);
    list.front() = 0xF0;
    list.back() = 0xF7;
    ExclusiveInput exclusive;
    const Bytes datagram = ListPacket(list);
    const auto packet = ReadRtpPacket(datagram);
    ASSERT_TRUE(packet);
    RtpCommandReader reader(*packet, exclusive);
    Bytes whole;
    std::vector<std::size_t> sizes;
    while (const auto command = reader.Next()) {
        EXPECT_EQ(command->piece.first, whole.empty());
        whole.insert(whole.end(), command->piece.bytes.begin(), command->piece.bytes.end());
        EXPECT_EQ(command->piece.last, whole.size() == list.size());
        sizes.push_back(command->piece.bytes.size());
    }
    EXPECT_EQ(whole, list);
    EXPECT_THAT(sizes, ElementsAre(992, 992, 992, 24));
}

// ---- Writing

constexpr std::size_t kJournalRoom = 100;

class WrittenPacket {
  public:
    explicit WrittenPacket(std::size_t size = kLongestRtpDatagram)
        : bytes(size), writer(bytes, RtpHeader{0x1234, kTime, 0xAABBCCDD}, kJournalRoom) {}

    RtpPacketWriter& Writer() { return writer; }
    Bytes Finish(const Bytes& journal = {}) {
        bytes.resize(writer.Finish(journal));
        return bytes;
    }

  private:
    Bytes bytes;
    RtpPacketWriter writer;
};

TEST(RtpPacketWriter, AMessageIsWrittenWithoutADeltaTimeAndWithAShortLength) {
    WrittenPacket packet;
    EXPECT_FALSE(packet.Writer().HasCommands());
    EXPECT_TRUE(packet.Writer().AddMessage(kTime, Bytes{0x90, 0x3C, 0x64}));
    EXPECT_TRUE(packet.Writer().HasCommands());
    EXPECT_EQ(packet.Finish({0x20, 0x12, 0x33}), Packet({0x43, 0x90, 0x3C, 0x64, 0x20, 0x12, 0x33}));
}

TEST(RtpPacketWriter, AnEmptyPacketHasALengthOfZero) {
    EXPECT_EQ(WrittenPacket().Finish(), Packet({0x00}));
    EXPECT_EQ(WrittenPacket(kSmallestRtpPacket).Finish(), Packet({0x00}));
    EXPECT_EQ(WrittenPacket().Finish({0x20, 0x12, 0x34}), Packet({0x40, 0x20, 0x12, 0x34}));
}

TEST(RtpPacketWriter, EveryMessageHasItsStatusAndADeltaTimeFromTheOneBefore) {
    WrittenPacket packet;
    packet.Writer().AddMessage(kTime + 10, Bytes{0x90, 0x3C, 0x64});
    packet.Writer().AddMessage(kTime + 138, Bytes{0x90, 0x40, 0x64});
    packet.Writer().AddMessage(kTime + 100, Bytes{0x90, 0x43, 0x64});  // earlier: due with the one before
    EXPECT_EQ(packet.Finish(),
              Packet({0x2D, 0x0A, 0x90, 0x3C, 0x64, 0x81, 0x00, 0x90, 0x40, 0x64, 0x00, 0x90, 0x43, 0x64}));
}

TEST(RtpPacketWriter, AListOfMoreThanFifteenBytesHasALongLength) {
    WrittenPacket packet;
    Bytes expected = {0xC0, 0x13};
    for (std::uint8_t note = 0x3C; note < 0x41; ++note) {
        packet.Writer().AddMessage(kTime, Bytes{0x90, note, 0x64});
        if (note > 0x3C) {
            expected.push_back(0);
        }
        expected.insert(expected.end(), {0x90, note, 0x64});
    }
    expected.insert(expected.end(), {0x20, 0x12, 0x33});
    EXPECT_EQ(packet.Finish({0x20, 0x12, 0x33}), Packet(expected));
}

TEST(RtpPacketWriter, WhatDoesNotFitLeavesThePacketAsItWas) {
    WrittenPacket packet(kSmallestRtpPacket + kJournalRoom + 8);
    EXPECT_TRUE(packet.Writer().AddMessage(kTime, Bytes{0x90, 0x3C, 0x64}));
    EXPECT_TRUE(packet.Writer().AddMessage(kTime, Bytes{0x90, 0x3D, 0x64}));
    EXPECT_FALSE(packet.Writer().AddMessage(kTime, Bytes{0xF8}));
    EXPECT_EQ(packet.Finish(), Packet({0x07, 0x90, 0x3C, 0x64, 0x00, 0x90, 0x3D, 0x64}));
}

TEST(RtpPacketWriter, ADelayThatADeltaTimeCannotSayDoesNotFit) {
    WrittenPacket packet;
    EXPECT_FALSE(packet.Writer().AddMessage(kTime + (1U << 28), Bytes{0xF8}));
    EXPECT_TRUE(packet.Writer().AddMessage(kTime + (1U << 28) - 1, Bytes{0xF8}));
    ExclusiveInput exclusive;
    EXPECT_THAT(Read(packet.Finish(), exclusive).commands, ElementsAre("268436455 F8"));
}

TEST(RtpPacketWriter, SystemExclusiveIsCutIntoSegmentsOfAtMost512Bytes) {
    Bytes message(1400, 0x22);
    message.front() = 0xF0;
    message.back() = 0xF7;
    ExclusiveOutput output;
    ExclusiveInput input;
    Bytes heard;
    // As it comes, in pieces of 992 bytes.
    const std::size_t cut = 992;
    for (const bool first : {true, false}) {
        const ByteView all = message;
        output.Take({first ? all.first(cut) : all.subspan(cut), true, first, !first});
        while (const auto segment = output.Next()) {
            WrittenPacket packet;
            EXPECT_TRUE(packet.Writer().AddSegment(kTime, *segment));
            const Bytes datagram = packet.Finish();
            EXPECT_LE(datagram.size(), 14U + 512);
            const auto read = ReadRtpPacket(datagram);
            ASSERT_TRUE(read);
            RtpCommandReader reader(*read, input);
            while (const auto command = reader.Next()) {
                heard.insert(heard.end(), command->piece.bytes.begin(), command->piece.bytes.end());
            }
        }
    }
    EXPECT_EQ(heard, message);
    EXPECT_FALSE(input.IsUnderWay());
}

// The segments of pieces that come one after another, as text: "F0 01 02 F0".
std::vector<Bytes> Segments(std::initializer_list<Bytes> pieces) {
    std::vector<Bytes> segments;
    ExclusiveOutput output;
    for (const Bytes& piece : pieces) {
        output.Take({piece, true, piece.front() == 0xF0, piece.back() == 0xF7});
        while (const auto segment = output.Next()) {
            Bytes& bytes = segments.emplace_back();
            bytes.push_back(segment->first ? 0xF0 : 0xF7);
            bytes.insert(bytes.end(), segment->data.begin(), segment->data.end());
            bytes.push_back(segment->last ? 0xF7 : 0xF0);
        }
    }
    return segments;
}

TEST(RtpPacketWriter, OnlyTheLastSegmentMayBeEmpty) {
    EXPECT_THAT(Segments({{0xF0, 1, 2, 0xF7}}), ElementsAre(Bytes{0xF0, 1, 2, 0xF7}));
    EXPECT_THAT(Segments({{0xF0}, {1}, {0xF7}}), ElementsAre(Bytes{0xF0, 1, 0xF0}, Bytes{0xF7, 0xF7}));
    EXPECT_THAT(Segments({{0xF0}, {0xF7}, {0xF0, 2, 0xF7}}),
                ElementsAre(Bytes{0xF0, 0xF7}, Bytes{0xF0, 2, 0xF7}));
}

}  // namespace
}  // namespace vexil
