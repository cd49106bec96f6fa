#include "service/engine/MidiParser.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <vector>

namespace vexil {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Messages = std::vector<Bytes>;

// Puts the pieces of system exclusive messages together. A realtime message between two pieces stays in its
// place: what had come of the exclusive before it is an entry of its own, without an end, and so is the rest
// behind it.
class Collector {
  public:
    void Take(const MidiPiece& piece) {
        EXPECT_FALSE(piece.bytes.empty());
        EXPECT_LE(piece.bytes.size(), kLongestPiece);
        longest = std::max(longest, piece.bytes.size());
        const Bytes bytes(piece.bytes.begin(), piece.bytes.end());
        if (!piece.systemExclusive) {
            EXPECT_TRUE(piece.first && piece.last);
            messages.push_back(bytes);
            growing = false;
            return;
        }
        EXPECT_EQ(piece.first, bytes.front() == 0xF0);
        EXPECT_EQ(piece.last, bytes.back() == 0xF7);
        EXPECT_NE(piece.first, inside);
        inside = !piece.last;
        if (!growing) {
            messages.emplace_back();
        }
        messages.back().insert(messages.back().end(), bytes.begin(), bytes.end());
        growing = inside;
    }

    Messages messages;
    std::size_t longest = 0;

  private:
    bool inside = false;   // of a system exclusive
    bool growing = false;  // the last entry of `messages` is the part of one that is still to grow
};

void Feed(MidiParser& parser, Collector& collector, std::span<const std::uint8_t> bytes) {
    while (const auto piece = parser.Next(bytes)) {
        collector.Take(*piece);
    }
    EXPECT_TRUE(bytes.empty());
}

Messages Parse(const Bytes& bytes) {
    MidiParser parser;
    Collector collector;
    Feed(parser, collector, bytes);
    return collector.messages;
}

TEST(MidiParserTest, EveryChannelMessageComesOutAsItIs) {
    for (int status = 0x80; status < 0xF0; ++status) {
        Bytes message{static_cast<std::uint8_t>(status), 0x7F, 0x00};
        if (status >> 4 == 0xC || status >> 4 == 0xD) {
            message.pop_back();
        }
        EXPECT_EQ(Parse(message), Messages{message}) << status;
    }
}

TEST(MidiParserTest, EverySystemCommonMessageComesOutAsItIs) {
    for (const Bytes& message : Messages{{0xF1, 0x12}, {0xF2, 0x34, 0x56}, {0xF3, 0x07}, {0xF6}}) {
        EXPECT_EQ(Parse(message), Messages{message});
    }
}

TEST(MidiParserTest, EveryRealtimeMessageComesOutAsItIs) {
    for (const std::uint8_t status : Bytes{0xF8, 0xFA, 0xFB, 0xFC, 0xFE, 0xFF}) {
        EXPECT_EQ(Parse({status}), Messages{{status}});
    }
}

TEST(MidiParserTest, RunningStatusIsResolved) {
    EXPECT_EQ(Parse({0x91, 60, 100, 62, 101, 0xC2, 5, 6, 0xE0, 1, 2, 3, 4}),
              (Messages{{0x91, 60, 100}, {0x91, 62, 101}, {0xC2, 5}, {0xC2, 6}, {0xE0, 1, 2}, {0xE0, 3, 4}}));
}

TEST(MidiParserTest, RealtimeLeavesRunningStatusAsItIs) {
    for (const std::uint8_t status : Bytes{0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF}) {
        const Messages messages = Parse({0x90, 60, 100, status, 62, 101});
        EXPECT_EQ(messages.back(), (Bytes{0x90, 62, 101})) << int{status};
    }
}

TEST(MidiParserTest, RealtimeInsideAMessageComesOutInFrontOfIt) {
    EXPECT_EQ(Parse({0x90, 0xF8, 60, 0xFE, 100}), (Messages{{0xF8}, {0xFE}, {0x90, 60, 100}}));
}

TEST(MidiParserTest, RealtimeInsideSystemExclusiveKeepsItsPlace) {
    EXPECT_EQ(Parse({0xF0, 1, 0xF8, 2, 3, 0xFA, 0xF7}),
              (Messages{{0xF0, 1}, {0xF8}, {2, 3}, {0xFA}, {0xF7}}));
}

TEST(MidiParserTest, UndefinedRealtimeInsideAMessageIsLeftOut) {
    EXPECT_EQ(Parse({0xF0, 1, 0xF9, 2, 0xFD, 0xF7, 0x90, 0xFD, 60, 0xF9, 100}),
              (Messages{{0xF0, 1, 2, 0xF7}, {0x90, 60, 100}}));
}

TEST(MidiParserTest, UndefinedCommonStatusIsLeftOutWithItsDataAndEndsRunningStatus) {
    for (const std::uint8_t status : Bytes{0xF4, 0xF5}) {
        EXPECT_EQ(Parse({0x90, 60, 100, status, 62, 101, 0x80, 60, 0}),
                  (Messages{{0x90, 60, 100}, {0x80, 60, 0}}));
    }
}

TEST(MidiParserTest, SystemCommonEndsRunningStatus) {
    EXPECT_EQ(Parse({0x90, 60, 100, 0xF3, 1, 62, 101}), (Messages{{0x90, 60, 100}, {0xF3, 1}}));
    EXPECT_EQ(Parse({0x90, 60, 100, 0xF6, 62, 101}), (Messages{{0x90, 60, 100}, {0xF6}}));
    EXPECT_EQ(Parse({0x90, 60, 100, 0xF0, 0xF7, 62, 101}), (Messages{{0x90, 60, 100}, {0xF0, 0xF7}}));
}

TEST(MidiParserTest, DataBytesThatBelongToNoMessageAreLeftOut) {
    EXPECT_EQ(Parse({1, 2, 3, 0xF8, 4, 0x90, 60, 100}), (Messages{{0xF8}, {0x90, 60, 100}}));
}

TEST(MidiParserTest, AStrayEndOfExclusiveIsLeftOutAndEndsRunningStatus) {
    EXPECT_EQ(Parse({0xF7, 0x90, 60, 100, 0xF7, 62, 101, 0xF7}), (Messages{{0x90, 60, 100}}));
}

TEST(MidiParserTest, AMessageThatAStatusByteCutsIsLeftOut) {
    EXPECT_EQ(Parse({0x90, 60, 0xB0, 7, 100, 0xF2, 1, 0xF6, 0x90, 0xF7}), (Messages{{0xB0, 7, 100}, {0xF6}}));
}

TEST(MidiParserTest, AStatusByteThatCutsASystemExclusiveEndsItAndBeginsItsOwnMessage) {
    EXPECT_EQ(Parse({0xF0, 1, 2, 0x90, 60, 100}), (Messages{{0xF0, 1, 2, 0xF7}, {0x90, 60, 100}}));
    EXPECT_EQ(Parse({0xF0, 1, 2, 0xF0, 3, 0xF7}), (Messages{{0xF0, 1, 2, 0xF7}, {0xF0, 3, 0xF7}}));
    EXPECT_EQ(Parse({0xF0, 0xF6}), (Messages{{0xF0, 0xF7}, {0xF6}}));
    EXPECT_EQ(Parse({0xF0, 1, 0xF4, 2, 0xF7}), (Messages{{0xF0, 1, 0xF7}}));
}

TEST(MidiParserTest, ASystemExclusiveOfSeveralMebibytesComesInBoundedPieces) {
    Bytes stream(3 * 1024 * 1024, 0x55);
    stream.front() = 0xF0;
    stream.back() = 0xF7;
    MidiParser parser;
    Collector collector;
    Feed(parser, collector, stream);
    EXPECT_EQ(collector.longest, kLongestPiece);
    EXPECT_EQ(collector.messages, Messages{stream});
}

TEST(MidiParserTest, ANewStreamKnowsNothingOfTheOldOne) {
    for (const Bytes& old : Messages{{0x90, 60}, {0x90, 60, 100}, {0xF0, 1}, {0xF2, 1}}) {
        MidiParser parser;
        Collector before;
        Feed(parser, before, old);
        parser.Reset();
        Collector after;
        Feed(parser, after, Bytes{61, 62, 0xF7, 0x80, 60, 0});
        EXPECT_EQ(after.messages, (Messages{{0x80, 60, 0}}));
    }
}

TEST(MidiParserTest, TheRestOfASkippedSystemExclusiveIsLeftOutButItsRealtime) {
    MidiParser parser;
    Collector before;
    Feed(parser, before, Bytes{0xF0, 1});
    parser.SkipSystemExclusive();
    Collector after;
    Feed(parser, after, Bytes{2, 0xF8, 3, 0xF7, 0xF0, 4, 0xF7, 0x90, 60, 100});
    EXPECT_EQ(after.messages, (Messages{{0xF8}, {0xF0, 4, 0xF7}, {0x90, 60, 100}}));
}

TEST(MidiParserTest, AStatusByteEndsTheSkippingOfASystemExclusive) {
    MidiParser parser;
    Collector before;
    Feed(parser, before, Bytes{0xF0, 1});
    parser.SkipSystemExclusive();
    Collector after;
    Feed(parser, after, Bytes{2, 0x90, 60, 100, 61, 101});
    EXPECT_EQ(after.messages, (Messages{{0x90, 60, 100}, {0x90, 61, 101}}));
}

TEST(MidiParserTest, SkippingOutsideASystemExclusiveLeavesNothingOut) {
    MidiParser parser;
    Collector collector;
    Feed(parser, collector, Bytes{0x90, 60});
    parser.SkipSystemExclusive();
    Feed(parser, collector, Bytes{100, 61, 101});
    EXPECT_EQ(collector.messages, (Messages{{0x90, 60, 100}, {0x90, 61, 101}}));
}

TEST(MidiParserTest, WithoutRunningStatusDataBelongsToNoMessage) {
    MidiParser parser;
    Collector collector;
    Feed(parser, collector, Bytes{0x90, 60, 100});
    parser.EndRunningStatus();
    Feed(parser, collector, Bytes{61, 101, 0x80, 60, 0});
    EXPECT_EQ(collector.messages, (Messages{{0x90, 60, 100}, {0x80, 60, 0}}));
}

// A stream with every kind of byte in it; status bytes are frequent enough that all of them meet one another.
Bytes RandomStream(std::mt19937& random, std::size_t length) {
    Bytes bytes(length);
    for (std::uint8_t& byte : bytes) {
        const auto draw = random();
        switch (draw % 8) {
            case 0:
                byte = static_cast<std::uint8_t>(0x80 | (draw >> 8 & 0x7F));
                break;
            case 1:
                byte = static_cast<std::uint8_t>(0xF0 | (draw >> 8 & 0x0F));
                break;
            default:
                byte = static_cast<std::uint8_t>(draw >> 8 & 0x7F);
                break;
        }
    }
    return bytes;
}

TEST(MidiParserTest, AnySplitOfAnyStreamGivesTheSameMessages) {
    for (unsigned seed = 1; seed <= 2000; ++seed) {
        std::mt19937 random(seed);
        const Bytes stream = RandomStream(random, 1 + random() % 600);
        const Messages whole = Parse(stream);
        MidiParser parser;
        Collector collector;
        const auto longest = 1 + random() % 20;
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t length = std::min<std::size_t>(random() % (longest + 1), stream.size() - at);
            Feed(parser, collector, std::span(stream).subspan(at, length));
            at += length;
        }
        ASSERT_EQ(collector.messages, whole) << "seed " << seed;
    }
}

TEST(MidiParserTest, WhatComesOutOfAnyStreamComesOutOfItselfUnchanged) {
    for (unsigned seed = 1; seed <= 500; ++seed) {
        std::mt19937 random(seed);
        const Messages messages = Parse(RandomStream(random, 400));
        Bytes again;
        for (const Bytes& message : messages) {
            again.insert(again.end(), message.begin(), message.end());
        }
        ASSERT_EQ(Parse(again), messages) << "seed " << seed;
    }
}

}  // namespace
}  // namespace vexil
