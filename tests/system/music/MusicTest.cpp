#include <gtest/gtest.h>

#include "tests/system/music/MidiPattern.h"
#include "tests/system/music/Sounding.h"
#include "tests/system/music/WildPlayer.h"

namespace vexil {
namespace {

void Hear(PatternListener& listener, const MidiBytes& message) {
    listener.Hear(message.data(), message.size());
}

TEST(PatternListenerTest, HearsThePatternOfItsSeedWithoutFault) {
    MidiPattern pattern(5);
    PatternListener listener(5);
    for (int i = 0; i < 20000; ++i) {
        Hear(listener, pattern.Next());
    }
    EXPECT_EQ(listener.Fault(), "");
    EXPECT_EQ(listener.Messages(), 20000U);
}

TEST(PatternListenerTest, CountsRealtimeMessagesApartWhereverTheyStand) {
    MidiPattern pattern(5);
    PatternListener listener(5);
    MidiBytes message = pattern.Next();
    message.insert(message.begin() + 1, 0xF8);
    Hear(listener, message);
    EXPECT_EQ(listener.Fault(), "");
    EXPECT_EQ(listener.Messages(), 1U);
    EXPECT_EQ(listener.Realtime(), 1U);
}

TEST(PatternListenerTest, NoticesALostMessage) {
    MidiPattern pattern(5);
    PatternListener listener(5);
    Hear(listener, pattern.Next());
    pattern.Next();
    for (int i = 0; i < 3; ++i) {
        Hear(listener, pattern.Next());
    }
    EXPECT_TRUE(listener.Fault().starts_with("message 1, byte ")) << listener.Fault();
}

TEST(PatternListenerTest, NoticesAMessageThatCameTwice) {
    MidiPattern pattern(5);
    PatternListener listener(5);
    const MidiBytes message = pattern.Next();
    Hear(listener, message);
    Hear(listener, message);
    EXPECT_TRUE(listener.Fault().starts_with("message 1, byte ")) << listener.Fault();
}

class SoundingTest : public testing::Test {
  protected:
    std::string RestAfter(const MidiBytes& stream) {
        sounding.Hear(stream.data(), stream.size());
        return sounding.Rest();
    }
    Sounding sounding;
};

TEST_F(SoundingTest, NoteSoundsUntilItsNoteOff) {
    EXPECT_EQ(RestAfter({0x92, 60, 1}), "note 60 on channel 3");
    EXPECT_EQ(RestAfter({0x82, 61, 64}), "note 60 on channel 3");
    EXPECT_EQ(RestAfter({0x82, 60, 64}), "");
}

TEST_F(SoundingTest, NoteEndsByVelocityNoneAndByRunningStatus) {
    EXPECT_EQ(RestAfter({0x90, 60, 1, 62, 1}), "note 60 on channel 1, note 62 on channel 1");
    EXPECT_EQ(RestAfter({0x90, 60, 0, 62, 0}), "");
}

TEST_F(SoundingTest, PedalAndWheelsCountUntilTheyArePutBack) {
    EXPECT_EQ(RestAfter({0xB0, 64, 127, 0xB1, 1, 5, 0xEF, 0, 65}),
              "pedal on channel 1, modulation on channel 2, bend on channel 16");
    EXPECT_EQ(RestAfter({0xB0, 64, 0, 0xB1, 1, 0, 0xEF, 0, 64}), "");
}

TEST_F(SoundingTest, WhatAWildPlayerLeavesHisReleasesPutBack) {
    WildPlayer player(3);
    std::string rest;
    for (int i = 0; i < 500; ++i) {
        rest = RestAfter(player.Next());
    }
    EXPECT_NE(rest, "");
    for (MidiBytes message = player.NextRelease(); !message.empty(); message = player.NextRelease()) {
        rest = RestAfter(message);
    }
    EXPECT_EQ(rest, "");
}

}  // namespace
}  // namespace vexil
