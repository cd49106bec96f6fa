// Several programs on one output, told apart; no sequencer is needed.
#include <random>

#include "service/backends/alsa/AlsaWriters.h"
#include "service/engine/Merger.h"
#include "tests/service/engine/EngineFixture.h"
#include "tests/service/engine/InputListener.h"

namespace vexil {
namespace {

constexpr AlsaAddress kA{130, 0};
constexpr AlsaAddress kB{131, 0};
constexpr AlsaAddress kC{131, 1};
constexpr std::uint64_t kSecond = 1'000'000'000;

class AlsaWritersTest : public ::testing::Test {
  protected:
    AlsaWritersTest() {
        WayTable ways;
        for (std::size_t port = 0; port < 8; ++port) {
            ways[port] = To(static_cast<int>(port));
        }
        engine.PostWays(ways);
        engine.TakeCommands(now);
    }
    void Play(AlsaAddress writer, const Bytes& messages, int port = 0) {
        writers.Hear(port, writer, ++now, messages);
    }
    void PlayExclusive(AlsaAddress writer, const Bytes& bytes, int port = 0) {
        writers.HearExclusive(port, writer, ++now, bytes);
    }
    Bytes Heard(int port = 0) {
        engine.Run(now + 1, sink);
        Bytes heard = sink.StreamOf(port);
        sink.heard[static_cast<std::size_t>(port)].clear();
        return heard;
    }

    Engine engine;
    MemorySink sink;
    std::uint64_t now = kSecond;
    AlsaWriters writers{engine};
};

TEST_F(AlsaWritersTest, MessagesOfAllArePassedAtOnce) {
    Play(kA, {0x90, 1, 2});
    Play(kB, {0x80, 3, 4});
    EXPECT_EQ(Heard(), (Bytes{0x90, 1, 2, 0x80, 3, 4}));
}

TEST_F(AlsaWritersTest, OthersWaitForTheEndOfASystemExclusive) {
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0xC0, 5});
    PlayExclusive(kA, {2, 3});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 2, 3}));
    PlayExclusive(kA, {0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF7, 0xC0, 5}));
}

TEST_F(AlsaWritersTest, RealtimeOfOthersDoesNotWait) {
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0xC0, 5});
    Play(kB, {0xF8});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF8}));
    PlayExclusive(kA, {2, 0xF7});
    EXPECT_EQ(Heard(), (Bytes{2, 0xF7, 0xC0, 5}));
}

TEST_F(AlsaWritersTest, SystemExclusivesOfSeveralComeOneAfterTheOther) {
    PlayExclusive(kA, {0xF0, 1});
    PlayExclusive(kB, {0xF0, 2});
    PlayExclusive(kC, {0xF0, 3});
    PlayExclusive(kB, {2, 0xF7});
    Play(kB, {0xC0, 2});
    PlayExclusive(kC, {3, 0xF7});
    PlayExclusive(kA, {1, 0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 1, 0xF7, 0xF0, 2, 2, 0xF7, 0xF0, 3, 3, 0xF7, 0xC0, 2}));
}

TEST_F(AlsaWritersTest, OneThatStillWritesKeepsTheRestWaiting) {
    PlayExclusive(kA, {0xF0, 1});
    PlayExclusive(kB, {0xF0, 2});
    Play(kC, {0xC0, 3});
    PlayExclusive(kA, {0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF7, 0xF0, 2}));
    PlayExclusive(kB, {0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF7, 0xC0, 3}));
}

TEST_F(AlsaWritersTest, OutputsDoNotWaitForEachOther) {
    PlayExclusive(kA, {0xF0, 1}, 0);
    Play(kB, {0xC0, 5}, 1);
    EXPECT_EQ(Heard(1), (Bytes{0xC0, 5}));
}

TEST_F(AlsaWritersTest, ItsOwnMessageEndsASystemExclusive) {
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0xC0, 5});
    Play(kA, {0xC1, 6});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF7, 0xC0, 5, 0xC1, 6}));
    // What is left of it belongs to no message.
    PlayExclusive(kA, {2, 3, 0xF7});
    EXPECT_EQ(Heard(), Bytes());
}

TEST_F(AlsaWritersTest, WhatDoesNotBelongIntoASystemExclusiveIsLeftOut) {
    PlayExclusive(kA, {1, 2, 0xF7});
    PlayExclusive(kA, {0x90, 60, 100});
    PlayExclusive(kA, {0xF0, 1, 0x90, 60, 100});
    PlayExclusive(kA, {0xF0, 2, 0xF0, 3, 0xF7, 4, 0xF0, 5, 0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF7, 0xF0, 2, 0xF7, 0xF0, 3, 0xF7, 0xF0, 5, 0xF7}));
}

TEST_F(AlsaWritersTest, SilenceInsideASystemExclusiveEndsItWhenOthersWait) {
    PlayExclusive(kA, {0xF0, 1});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1}));
    EXPECT_EQ(engine.NextDue(), std::nullopt);
    Play(kB, {0xC0, 5});
    EXPECT_EQ(engine.NextDue(), kSecond + 1 + kLongestSilence);
    now += kLongestSilence - 2;
    EXPECT_EQ(Heard(), Bytes());
    ++now;
    EXPECT_EQ(Heard(), (Bytes{0xF7, 0xC0, 5}));
    EXPECT_EQ(engine.NextDue(), std::nullopt);
    PlayExclusive(kA, {2, 0xF7});
    EXPECT_EQ(Heard(), Bytes());
}

TEST_F(AlsaWritersTest, TheLastWriterLeavesNothingSounding) {
    Play(kA, {0x90, 60, 100, 0xB0, 64, 127});
    Heard();
    writers.Gone(0, kA, now);
    EXPECT_EQ(Heard(), (Bytes{0x80, 60, 64, 0xB0, 64, 0}));
}

TEST_F(AlsaWritersTest, OneWriterOfSeveralLeavesOnlyWhatOthersHold) {
    Play(kA, {0x90, 60, 100, 0x90, 61, 100});
    Play(kB, {0x90, 61, 100, 0x90, 62, 100});
    Heard();
    writers.Gone(0, kA, now);
    EXPECT_EQ(Heard(), (Bytes{0x80, 60, 64}));
    writers.Gone(0, kB, now);
    EXPECT_EQ(Heard(), (Bytes{0x80, 61, 64, 0x80, 62, 64}));
}

TEST_F(AlsaWritersTest, AWriterThatLeavesDoesNotCutTheSystemExclusiveOfAnother) {
    Play(kB, {0x90, 60, 100});
    PlayExclusive(kA, {0xF0, 1});
    Heard();
    writers.Gone(0, kB, now);
    EXPECT_EQ(Heard(), Bytes());
    PlayExclusive(kA, {2, 0xF7});
    EXPECT_EQ(Heard(), (Bytes{2, 0xF7, 0x80, 60, 64}));
}

TEST_F(AlsaWritersTest, AWriterThatLeavesInsideItsSystemExclusiveEndsIt) {
    Play(kB, {0xC0, 1});
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0xC0, 2});
    Heard();
    writers.Gone(0, kA, now);
    EXPECT_EQ(Heard(), (Bytes{0xF7, 0xC0, 2}));
}

TEST_F(AlsaWritersTest, WhatAWriterThatLeftHadWaitingIsPlayedAndReleased) {
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0x90, 60, 100});
    writers.Gone(0, kB, now);
    PlayExclusive(kA, {0xF7});
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF7, 0x90, 60, 100, 0x80, 60, 64}));
}

TEST_F(AlsaWritersTest, AProgramThatClosesIsGoneFromEveryOutput) {
    Play(kB, {0x90, 60, 100}, 0);
    Play(kC, {0x90, 61, 100}, 1);
    Play(kA, {0x90, 62, 100}, 2);
    PlayExclusive(kA, {0xF0, 1}, 3);
    Play(kB, {0x90, 63, 100}, 3);
    for (int port = 0; port < 4; ++port) {
        Heard(port);
    }
    writers.ClientGone(131, now);
    EXPECT_EQ(Heard(0), (Bytes{0x80, 60, 64}));
    EXPECT_EQ(Heard(1), (Bytes{0x80, 61, 64}));
    EXPECT_EQ(Heard(2), Bytes());
    PlayExclusive(kA, {0xF7}, 3);
    EXPECT_EQ(Heard(3), (Bytes{0xF7, 0x90, 63, 100, 0x80, 63, 64}));
}

TEST_F(AlsaWritersTest, APortThatIsDeletedIsGoneFromEveryOutputAndItsNeighbourPlaysOn) {
    Play(kB, {0x90, 60, 100}, 0);
    Play(kC, {0x90, 61, 100}, 0);
    Play(kB, {0x90, 62, 100}, 1);
    Heard(0);
    Heard(1);
    writers.PortGone(kB, now);
    EXPECT_EQ(Heard(0), (Bytes{0x80, 60, 64}));
    EXPECT_EQ(Heard(1), (Bytes{0x80, 62, 64}));
}

TEST_F(AlsaWritersTest, SeveralMessagesOfOneEventAreAllHeard) {
    Play(kA, {0xB0, 99, 1, 0xB0, 98, 2, 0xB0, 6, 3});
    EXPECT_EQ(Heard(), (Bytes{0xB0, 99, 1, 0xB0, 98, 2, 0xB0, 6, 3}));
    EXPECT_EQ(engine.CountersOfSource(0).messages, 3U);
}

TEST_F(AlsaWritersTest, WhatProgramsWriteCountsForTheirOutput) {
    Play(kA, {0x90, 60, 100});
    Play(kB, {0xF8});
    PlayExclusive(kC, {0xF0, 1, 0xF7});
    EXPECT_EQ(engine.CountersOfSource(0).messages, 3U);
    EXPECT_EQ(engine.CountersOfSource(0).bytes, 7U);
}

TEST_F(AlsaWritersTest, AnOutputThatIsWithdrawnBeginsAnew) {
    PlayExclusive(kA, {0xF0, 1});
    Play(kB, {0xC0, 5});
    writers.OutputGone(0, now);
    EXPECT_EQ(Heard(), (Bytes{0xF0, 1, 0xF7, 0xC0, 5}));
    Play(kB, {0xC0, 6});
    EXPECT_EQ(Heard(), (Bytes{0xC0, 6}));
}

TEST_F(AlsaWritersTest, MoreWritersThanAreToldApartLeaveNothingSounding) {
    for (int client = 0; client < 250; ++client) {
        for (int port = 0; port < 3; ++port) {
            Play({static_cast<std::uint8_t>(client), static_cast<std::uint8_t>(port)},
                 {0x90, static_cast<std::uint8_t>(client % 128), 100});
        }
    }
    for (int client = 0; client < 250; ++client) {
        writers.ClientGone(static_cast<std::uint8_t>(client), now);
    }
    engine.Run(kForever, sink);
    InputListener listener;
    for (const Delivery& delivery : sink.heard[0]) {
        listener.Hear(delivery.bytes);
    }
    EXPECT_TRUE(listener.IsAtRest());
}

// Whatever programs send and whenever they leave, every message is whole and nothing stays sounding.
TEST_F(AlsaWritersTest, AnythingAtAllIsMergedBetweenMessages) {
    std::mt19937 random(3);
    const std::array<AlsaAddress, 5> addresses = {{{130, 0}, {130, 1}, {131, 0}, {132, 0}, {133, 7}}};
    for (int round = 0; round < 100'000; ++round) {
        const std::size_t who = random() % addresses.size();
        const AlsaAddress writer = addresses[who];
        const auto own = static_cast<std::uint8_t>(who + 1);
        switch (random() % 12) {
            case 0:
                writers.Gone(0, writer, now);
                break;
            case 1:
                writers.ClientGone(writer.client, now);
                break;
            case 2:
                Play(writer, {0xF8});
                break;
            case 3:
            case 4:
                PlayExclusive(writer, {0xF0, own});
                break;
            case 5:
            case 6:
                PlayExclusive(writer, Bytes(random() % 300, own));
                break;
            case 7:
                PlayExclusive(writer, {own, 0xF7});
                break;
            case 8:
                writers.OutputGone(1, now);
                break;
            case 9:
                Play(writer, {0xB0, 64, static_cast<std::uint8_t>(random() % 2)});
                break;
            default:
                Play(writer,
                     {static_cast<std::uint8_t>(0x90 | random() % 3), static_cast<std::uint8_t>(random() % 9),
                      static_cast<std::uint8_t>(random() % 2)});
                break;
        }
        now += 10'000'000;
        engine.Run(now, sink);
    }
    for (const AlsaAddress writer : addresses) {
        writers.ClientGone(writer.client, now);
    }
    engine.Run(kForever, sink);
    InputListener listener;
    for (const Delivery& delivery : sink.heard[0]) {
        listener.Hear(delivery.bytes);
    }
    EXPECT_FALSE(listener.IsBroken());
    EXPECT_TRUE(listener.IsAtRest());
    EXPECT_GT(sink.heard[0].size(), 10'000U);
}

}  // namespace
}  // namespace vexil
