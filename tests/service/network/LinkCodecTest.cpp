// What the codecs refuse, by tables of bytes, and what they do at their limits.
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "service/network/LinkCodec.h"
#include "service/network/PlainDatagram.h"

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Joined(std::initializer_list<Bytes> parts) {
    Bytes whole;
    for (const Bytes& part : parts) {
        whole.insert(whole.end(), part.begin(), part.end());
    }
    return whole;
}
const Bytes kHeader(kBodyHeaderSize);

// A body with one frame of records, number 0, and these bytes as records.
Bytes BodyWithRecords(const Bytes& records) {
    return Joined({kHeader, {1, static_cast<std::uint8_t>(records.size() + 4), 0}, {0, 0, 0, 0}, records});
}

Bytes Answer(const std::string& name) {
    ComputerAnswer computer;
    computer.port = 11188;
    computer.name = name;
    Bytes bytes(kLongestDatagram);
    bytes.resize(WriteAnswer(Nonce{}, computer, bytes));
    return bytes;
}

TEST(PlainDatagrams, TheFirstByteSaysWhatADatagramIs) {
    EXPECT_EQ(KindOfDatagram({}), DatagramKind::Foreign);
    for (int first = 0; first < 256; ++first) {
        const Bytes datagram = {static_cast<std::uint8_t>(first)};
        const DatagramKind expected = first == 'V'                 ? DatagramKind::Plain
                                      : first >= 20 && first <= 63 ? DatagramKind::Sealed
                                                                   : DatagramKind::Foreign;
        EXPECT_EQ(KindOfDatagram(datagram), expected) << first;
    }
}

TEST(PlainDatagrams, NoAnswerIsLongerThanAQuery) {
    EXPECT_EQ(Answer(std::string(kLongestComputerName, 'x')).size(), kLongestAnswer);
    EXPECT_LE(kLongestAnswer, kQuerySize);
}

TEST(PlainDatagrams, AShortQueryIsNoQuery) {
    Bytes query(kQuerySize);
    ASSERT_EQ(WriteQuery(Nonce{}, query), kQuerySize);
    EXPECT_TRUE(ReadPlainDatagram(query));
    query.pop_back();
    EXPECT_FALSE(ReadPlainDatagram(query));
}

TEST(PlainDatagrams, AQueryOfAnotherVersionIsStillAQuery) {
    Bytes query(kQuerySize);
    WriteQuery(Nonce{7}, query);
    query[1] = 9;
    const auto read = ReadPlainDatagram(query);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->version, 9);
    EXPECT_EQ(read->nonce[0], 7);
}

TEST(PlainDatagrams, AnAnswerOfAnotherVersionHasNothingButItsHeader) {
    Bytes answer = Answer("studio");
    answer[1] = 2;
    answer.resize(kPlainHeaderSize);
    const auto read = ReadPlainDatagram(answer);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->version, 2);
    EXPECT_FALSE(read->computer);
}

TEST(PlainDatagrams, CutAnywhereTheyAreMalformed) {
    const Bytes answer = Answer("studio");
    for (std::size_t size = 0; size < answer.size(); ++size) {
        EXPECT_FALSE(ReadPlainDatagram(ByteView(answer).first(size))) << size;
    }
}

TEST(PlainDatagrams, HostileNamesAreRefused) {
    for (const std::string& name : {std::string(), std::string("a\nb"), std::string("a\0b", 3),
                                    std::string("\x7F"), std::string("\x1B[2J"), std::string(256, 'x')}) {
        EXPECT_FALSE(IsComputerName(name));
        EXPECT_TRUE(Answer(name).empty());
    }
    EXPECT_TRUE(IsComputerName("caf\xC3\xA9"));
    Bytes answer = Answer("studio");
    answer.back() = '\n';
    EXPECT_FALSE(ReadPlainDatagram(answer));
}

TEST(PlainDatagrams, PortZeroAndUnknownKindsAndANonceInAnAnnouncementAreMalformed) {
    Bytes answer = Answer("studio");
    Bytes changed = answer;
    changed[kPlainHeaderSize + 16] = 0;
    changed[kPlainHeaderSize + 17] = 0;
    EXPECT_FALSE(ReadPlainDatagram(changed));
    for (const int kind : {0, 4, 255}) {
        changed = answer;
        changed[2] = static_cast<std::uint8_t>(kind);
        EXPECT_FALSE(ReadPlainDatagram(changed)) << kind;
    }
    changed = answer;
    changed[2] = 3;
    EXPECT_TRUE(ReadPlainDatagram(changed));
    changed[3] = 1;
    EXPECT_FALSE(ReadPlainDatagram(changed));
}

TEST(LinkCodec, MalformedBodiesAreRefusedAsAWhole) {
    const struct {
        const char* what;
        Bytes body;
    } kTable[] = {
        {"nothing", {}},
        {"a header cut short", Bytes(kBodyHeaderSize - 1)},
        {"a frame cut in its header", Joined({kHeader, {1, 0}})},
        {"a frame longer than the body", Joined({kHeader, {9, 2, 0, 0}})},
        {"a good frame and then a bad one", Joined({kHeader, {9, 0, 0}, {9, 1, 0}})},
        {"records without a number", Joined({kHeader, {1, 3, 0, 0, 0, 0}})},
        {"a record cut in its header", BodyWithRecords({0x32, 0, 0, 0, 0, 0})},
        {"a message without bytes", BodyWithRecords({0x02, 0, 0, 0, 0, 0, 0})},
        {"a message of four bytes", BodyWithRecords({0x42, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4})},
        {"a message cut short", BodyWithRecords({0x32, 0, 0, 0, 0, 0, 0, 0x90, 60})},
        {"a piece cut short", BodyWithRecords({0x33, 0, 0, 0, 0, 0, 0, 2, 0, 0xF0})},
        {"a piece of nothing", BodyWithRecords({0x33, 0, 0, 0, 0, 0, 0, 0, 0})},
        {"a source above the last", BodyWithRecords({0x01, 128, 0, 0, 0, 0, 0, 0, 0})},
        {"an input above the last", BodyWithRecords({0x01, 0, 64, 0, 0, 0, 0, 0, 0})},
        {"a record of no known type", BodyWithRecords({0x0F, 0, 0, 0, 0, 0, 0, 0, 0})},
        {"a state cut short", BodyWithRecords({0x05, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0})},
        {"a name with a control character", BodyWithRecords({0x06, 0, 0, 0, 0, 0, 0, 1, 0, 10})},
        {"gaps cut in the highest", Joined({kHeader, {2, 3, 0, 0, 0, 0}})},
        {"half a hole", Joined({kHeader, {2, 8, 0, 9, 0, 0, 0, 5, 0, 0, 0}})},
        {"an empty hole", Joined({kHeader, {2, 12, 0, 9, 0, 0, 0, 5, 0, 0, 0, 5, 0, 0, 0}})},
        {"a hole above the highest", Joined({kHeader, {2, 12, 0, 9, 0, 0, 0, 5, 0, 0, 0, 10, 0, 0, 0}})},
        {"holes that go down",
         Joined({kHeader, {2, 20, 0, 9, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0}})},
        {"holes that touch",
         Joined({kHeader, {2, 20, 0, 9, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0, 6, 0, 0, 0, 7, 0, 0, 0}})},
        {"a bye without a refusal", Joined({kHeader, {3, 1, 0, 1}})},
        {"a hello without a name", Joined({kHeader, {4, 11, 0, 1, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0}})},
        {"a hello of association 0", Joined({kHeader, {4, 12, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 'a'}})},
        {"a hello of no version", Joined({kHeader, {4, 12, 0, 2, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 'a'}})},
        {"a hello cut in its proof", Joined({kHeader, {4, 12, 0, 1, 1, 4, 1, 0, 0, 0, 0, 0, 0, 0, 'a'}})},
        {"a probe cut short", Joined({kHeader, {5, 7, 0, 1, 2, 3, 4, 5, 6, 7}})},
    };
    for (const auto& row : kTable) {
        EXPECT_FALSE(BodyReader::Open(row.body)) << row.what;
    }
}

TEST(LinkCodec, AFrameOfAnUnknownKindIsPassedOver) {
    const Bytes body = Joined({kHeader, {200, 3, 0, 1, 2, 3}, {3, 2, 0, 1, 0}});
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->NextFrame()->kind, 200);
    EXPECT_EQ(reader->NextFrame()->kind, 3);
    EXPECT_FALSE(reader->NextFrame());
}

TEST(LinkCodec, TwentyFourHolesAndNotOneMore) {
    Gaps gaps;
    gaps.highest = 1000;
    for (std::uint32_t hole = 0; hole < kMostHoles; ++hole) {
        gaps.holes[hole] = {10 * hole, 10 * hole + 1};
    }
    gaps.count = kMostHoles;
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    ASSERT_TRUE(writer.AddGaps(gaps));
    body.resize(writer.Size());
    EXPECT_TRUE(BodyReader::Open(body));
    // One hole more.
    body[kBodyHeaderSize + 1] = static_cast<std::uint8_t>(body[kBodyHeaderSize + 1] + 8);
    body = Joined({body, {0xF1, 0, 0, 0, 0xF2, 0, 0, 0}});
    EXPECT_FALSE(BodyReader::Open(body));
}

TEST(LinkCodec, HolesMayLieAcrossTheTurnOfTheNumbers) {
    Gaps gaps;
    gaps.highest = 5;
    gaps.holes[0] = {0xFFFFFFF0, 2};
    gaps.count = 1;
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    ASSERT_TRUE(writer.AddGaps(gaps));
    body.resize(writer.Size());
    EXPECT_TRUE(BodyReader::Open(body));
}

TEST(LinkCodec, ANoteTakesTenBytesAndABodyHoldsAHundredAndFourteen) {
    const Bytes note = {0x90, 60, 100};
    LinkRecord record;
    record.bytes = note;
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    std::uint32_t count = 0;
    while (writer.AddRecord(count, record)) {
        ++count;
    }
    EXPECT_EQ(SizeOfRecord(RecordType::Message, 3), 10U);
    EXPECT_EQ(count, 114U);
    EXPECT_LE(writer.Size(), kLongestBody);
    body.resize(writer.Size());
    EXPECT_TRUE(BodyReader::Open(body));
}

TEST(LinkCodec, WhatDoesNotFitLeavesTheBodyAsItWas) {
    const Bytes piece(kLongestLinkPiece, 1);
    LinkRecord record;
    record.type = RecordType::Piece;
    record.bytes = piece;
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    ASSERT_TRUE(writer.AddRecord(0, record));
    const std::size_t size = writer.Size();
    EXPECT_FALSE(writer.AddRecord(1, record));
    EXPECT_EQ(writer.Size(), size);
    body.resize(size);
    EXPECT_TRUE(BodyReader::Open(body));
}

TEST(LinkCodec, RecordsThatDoNotFollowEachOtherHaveFramesOfTheirOwn) {
    const Bytes note = {0xF8};
    LinkRecord record;
    record.bytes = note;
    Bytes body(kLongestBody);
    BodyWriter writer(body, {});
    ASSERT_TRUE(writer.AddRecord(7, record) && writer.AddRecord(8, record) && writer.AddRecord(10, record));
    body.resize(writer.Size());
    auto reader = BodyReader::Open(body);
    ASSERT_TRUE(reader);
    std::vector<std::uint32_t> numbers;
    while (const auto frame = reader->NextFrame()) {
        RecordReader records(frame->content);
        while (records.Next()) {
            numbers.push_back(records.Number());
        }
    }
    EXPECT_THAT(numbers, testing::ElementsAre(7, 8, 10));
}

}  // namespace
}  // namespace vexil
