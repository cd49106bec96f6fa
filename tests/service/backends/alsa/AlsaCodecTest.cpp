// Events of the ALSA sequencer and MIDI bytes; no sequencer is needed.
#include <cstring>
#include <random>

#include "service/backends/alsa/AlsaCodec.h"
#include "service/engine/MidiParser.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

class AlsaCodecTest : public ::testing::Test {
  protected:
    Bytes Decoded(const snd_seq_event_t& event) {
        const AlsaBytes decoded = codec.Decode(event);
        return {decoded.bytes.begin(), decoded.bytes.end()};
    }
    AlsaCodec codec;
};

TEST_F(AlsaCodecTest, EveryMessageComesBackFromItsEvent) {
    const std::vector<Bytes> messages = {
        {0x80, 60, 1}, {0x9F, 127, 127}, {0x90, 60, 0}, {0xA1, 2, 3},    {0xB2, 0, 5},     {0xB2, 64, 127},
        {0xC3, 127},   {0xD4, 0},        {0xE5, 0, 0},  {0xE5, 0, 64},   {0xE5, 127, 127}, {0xF1, 0x7F},
        {0xF2, 1, 2},  {0xF3, 9},        {0xF6},        {0xF8},          {0xFA},           {0xFB},
        {0xFC},        {0xFE},           {0xFF},        {0xF0, 1, 0xF7}, {0xF0, 0xF7}};
    for (const Bytes& message : messages) {
        snd_seq_event_t event;
        ASSERT_TRUE(codec.Encode(message, event)) << ::testing::PrintToString(message);
        EXPECT_EQ(Decoded(event), message);
        EXPECT_EQ(codec.Decode(event).systemExclusive, message[0] == 0xF0);
    }
}

TEST_F(AlsaCodecTest, EveryChannelMessageComesBack) {
    for (unsigned status = 0x80; status < 0xF0; ++status) {
        for (unsigned data = 0; data < 128; ++data) {
            Bytes message{static_cast<std::uint8_t>(status), static_cast<std::uint8_t>(data)};
            if (status < 0xC0 || status >= 0xE0) {
                message.push_back(static_cast<std::uint8_t>(127 - data));
            }
            snd_seq_event_t event;
            ASSERT_TRUE(codec.Encode(message, event));
            ASSERT_EQ(Decoded(event), message);
        }
    }
}

TEST_F(AlsaCodecTest, PiecesOfSystemExclusiveAreNotKeptBack) {
    for (const Bytes& piece :
         {Bytes{0xF0}, Bytes{0xF0, 1}, Bytes{2}, Bytes(kAlsaPieceBytes, 3), Bytes{4, 0xF7}, Bytes{0xF7}}) {
        snd_seq_event_t event;
        ASSERT_TRUE(codec.Encode(piece, event));
        EXPECT_EQ(event.type, SND_SEQ_EVENT_SYSEX);
        EXPECT_EQ(Decoded(event), piece);
    }
}

TEST_F(AlsaCodecTest, WhatIsNoMessageIsNoEvent) {
    snd_seq_event_t event;
    EXPECT_FALSE(codec.Encode({}, event));
    EXPECT_FALSE(codec.Encode(Bytes{0x90, 60}, event));
    EXPECT_FALSE(codec.Encode(Bytes{0xF4}, event));
    EXPECT_FALSE(codec.Encode(Bytes{0xF9}, event));
    EXPECT_FALSE(codec.Encode(Bytes(kAlsaPieceBytes + 1, 0), event));
}

TEST_F(AlsaCodecTest, AnUnfinishedMessageLeavesNothingBehind) {
    snd_seq_event_t event;
    EXPECT_FALSE(codec.Encode(Bytes{0x90, 60}, event));
    ASSERT_TRUE(codec.Encode(Bytes{0xC1, 5}, event));
    EXPECT_EQ(Decoded(event), (Bytes{0xC1, 5}));
}

TEST_F(AlsaCodecTest, ALongControlIsTwoMessagesAndAParameterFour) {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_CONTROL14;
    event.data.control.channel = 2;
    event.data.control.param = 7;
    event.data.control.value = 129;
    EXPECT_EQ(Decoded(event), (Bytes{0xB2, 7, 1, 0xB2, 39, 1}));
    event.type = SND_SEQ_EVENT_NONREGPARAM;
    event.data.control.param = 130;
    EXPECT_EQ(Decoded(event), (Bytes{0xB2, 99, 1, 0xB2, 98, 2, 0xB2, 6, 1, 0xB2, 38, 1}));
}

TEST_F(AlsaCodecTest, ASystemExclusiveWithoutBytesOfItsOwnIsNothing) {
    snd_seq_event_t event;
    snd_seq_ev_clear(&event);
    event.type = SND_SEQ_EVENT_SYSEX;
    event.data.ext.len = 5000;
    event.data.ext.ptr = &event;
    event.flags = SND_SEQ_EVENT_LENGTH_FIXED;
    EXPECT_EQ(Decoded(event), Bytes());
    event.flags = SND_SEQ_EVENT_LENGTH_VARUSR;
    EXPECT_EQ(Decoded(event), Bytes());
    event.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
    event.data.ext.ptr = nullptr;
    EXPECT_EQ(Decoded(event), Bytes());
}

// Whatever stands in an event's fields, what comes out are whole messages.
TEST_F(AlsaCodecTest, AnyOtherEventIsNothingOrWholeMessages) {
    std::mt19937 random(5);
    std::array<std::uint8_t, sizeof(snd_seq_event_t)> raw{};
    for (int round = 0; round < 300'000; ++round) {
        for (std::uint8_t& byte : raw) {
            byte = static_cast<std::uint8_t>(random());
        }
        snd_seq_event_t event;
        std::memcpy(&event, raw.data(), sizeof event);
        event.type = static_cast<snd_seq_event_type_t>(round);
        if (event.type == SND_SEQ_EVENT_SYSEX && snd_seq_ev_is_variable(&event)) {
            continue;
        }
        const Bytes decoded = Decoded(event);
        MidiParser parser;
        std::span<const std::uint8_t> rest(decoded);
        Bytes parsed;
        while (const std::optional<MidiPiece> piece = parser.Next(rest)) {
            parsed.insert(parsed.end(), piece->bytes.begin(), piece->bytes.end());
        }
        ASSERT_EQ(parsed, decoded) << "type " << static_cast<int>(event.type);
    }
}

}  // namespace
}  // namespace vexil
