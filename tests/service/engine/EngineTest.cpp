#include "service/engine/Engine.h"
#include "service/engine/Merger.h"
#include "tests/service/engine/CountingWaker.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint64_t kMillisecond = 1'000'000;

class EngineTest : public ::testing::Test {
  protected:
    void SetWay(int port, const Way& way) {
        ways[static_cast<std::size_t>(port)] = way;
        PostWays();
    }
    void PostWays() {
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Write(int port, const Bytes& bytes) { engine.Write(port, now, bytes); }
    void Run() { engine.Run(now + 1, sink); }
    std::vector<Bytes> Heard(int port) {
        Run();
        return sink.MessagesOf(port);
    }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 1000 * kMillisecond;
};

TEST_F(EngineTest, WithoutAWayMessagesAreFilteredAndCounted) {
    Write(3, {0x90, 60, 100, 62, 100, 0xF0, 1, 0xF7});
    Run();
    EXPECT_EQ(engine.CountersOfSource(3).messages, 3U);
    EXPECT_EQ(engine.CountersOfSource(3).filtered, 3U);
    EXPECT_EQ(engine.CountersOfSource(3).bytes, 8U);
    EXPECT_FALSE(engine.NextDue().has_value());
}

TEST_F(EngineTest, AMessageReachesTheInputOfItsWay) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}));
    EXPECT_EQ(sink.heard[7][0].time, now);
    EXPECT_EQ(engine.CountersOfInput(7).messages, 1U);
    EXPECT_EQ(engine.CountersOfInput(7).bytes, 3U);
    EXPECT_EQ(engine.CountersOfSource(3).filtered, 0U);
}

TEST_F(EngineTest, NothingLeavesBeforeItIsDue) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    engine.Run(now, sink);
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
    EXPECT_EQ(engine.NextDue(), now);
}

TEST_F(EngineTest, MessagesLeaveTogetherAtTheNextMultiple) {
    engine.PostQuantization(20);
    SetWay(3, To(7));
    now += 1;
    Write(3, {0x90, 60, 100});
    now += kMillisecond;
    Write(3, {0x90, 62, 100});
    Run();
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
    EXPECT_EQ(engine.NextDue(), 1002 * kMillisecond);
    engine.Run(kForever, sink);
    EXPECT_THAT(sink.heard[7], ElementsAre(Delivery{1002 * kMillisecond, {0x90, 60, 100}},
                                           Delivery{1002 * kMillisecond, {0x90, 62, 100}}));
}

TEST_F(EngineTest, AMessageExactlyOnAMultipleLeavesAtOnce) {
    engine.PostQuantization(20);
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    EXPECT_EQ(engine.NextDue(), now);
}

TEST_F(EngineTest, AnImmediateWayIsNotHeldBack) {
    engine.PostQuantization(20);
    SetWay(3, To(7, true));
    now += 1;
    Write(3, {0x90, 60, 100});
    EXPECT_EQ(engine.NextDue(), now);
}

TEST_F(EngineTest, AnOutlandishGranularityCountsAsTheLongest) {
    engine.PostQuantization(0xFFFFFFFF);
    SetWay(3, To(7));
    now += 1;
    Write(3, {0x90, 60, 100});
    EXPECT_EQ(engine.NextDue(), 1010 * kMillisecond);
}

TEST_F(EngineTest, TheOrderWithinASourceOutlivesAShorterQuantization) {
    engine.PostQuantization(100);
    SetWay(3, To(7));
    now += 1;
    Write(3, {0x90, 60, 100});
    engine.PostQuantization(0);
    engine.TakeCommands(now);
    Write(3, {0x80, 60, 0});
    engine.Run(kForever, sink);
    EXPECT_THAT(sink.MessagesOf(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 0}));
}

TEST_F(EngineTest, SourcesMergeInTheOrderOfTime) {
    ways[4] = To(7);
    SetWay(3, To(7));
    engine.Write(3, now + 2, Bytes{0x90, 1, 1});
    engine.Write(4, now + 1, Bytes{0x90, 2, 1});
    engine.Write(4, now + 3, Bytes{0x90, 3, 1});
    engine.Run(kForever, sink);
    EXPECT_THAT(sink.MessagesOf(7), ElementsAre(Bytes{0x90, 2, 1}, Bytes{0x90, 1, 1}, Bytes{0x90, 3, 1}));
}

TEST_F(EngineTest, OthersWaitWhileASystemExclusiveIsUnderWay) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0xF0, 1});
    Run();
    Write(4, {0x90, 60, 100, 0xF8});
    now += kLongestSilence - 1;
    Run();
    EXPECT_EQ(engine.NextDue(), now + 1);
    Write(3, {2, 0xFA, 0xF7});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1}, Bytes{2}, Bytes{0xFA}, Bytes{0xF7},
                                      Bytes{0x90, 60, 100}, Bytes{0xF8}));
}

TEST_F(EngineTest, ASystemExclusiveThatHasFallenSilentIsEndedForThoseWhoWait) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0xF0, 1});
    Run();
    Write(4, {0x90, 60, 100});
    now += kLongestSilence;
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x90, 60, 100}));
    EXPECT_EQ(engine.CountersOfSource(3).dropped, 1U);
    EXPECT_FALSE(engine.NextDue().has_value());
}

TEST_F(EngineTest, WhatComesOfASystemExclusiveAfterItsEndIsLeftOut) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0xF0, 1});
    Run();
    Write(4, {0x90, 60, 100});
    now += kLongestSilence;
    Run();
    Write(3, {2, 3, 0xF7, 0xC3, 5});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x90, 60, 100}, Bytes{0xC3, 5}));
}

TEST_F(EngineTest, ASystemExclusiveThatKeepsNobodyWaitingMayBeSilent) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0xF0, 1});
    Run();
    now += 10 * kLongestSilence;
    Run();
    EXPECT_FALSE(engine.NextDue().has_value());
    Write(3, {2, 0xF7});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1}, Bytes{2, 0xF7}));
}

TEST_F(EngineTest, NotesAreReleasedBehindASystemExclusiveThatHasFallenSilent) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(4, {0x90, 60, 100});
    Run();
    Write(3, {0xF0, 1});
    Run();
    engine.WriterGone(4, now);
    Write(3, {0xF8});
    now += kLongestSilence;
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{0xF8}, Bytes{0xF7},
                                      Bytes{0x80, 60, 64}));
}

TEST_F(EngineTest, ASystemExclusiveThatIsWholeIsDeliveredWhole) {
    SetWay(3, To(7));
    Bytes message(20000, 0x11);
    message.front() = 0xF0;
    message.back() = 0xF7;
    Write(3, message);
    EXPECT_THAT(Heard(7), ElementsAre(message));
    EXPECT_EQ(engine.CountersOfInput(7).messages, 1U);
}

TEST_F(EngineTest, ASystemExclusiveIsSplitByTheRoomOfItsInput) {
    SetWay(3, To(7));
    Bytes message(5000, 0x11);
    message.front() = 0xF0;
    message.back() = 0xF7;
    Write(3, message);
    for (int cycle = 0; cycle < 80; ++cycle) {
        sink.Refill(64);
        Run();
    }
    EXPECT_EQ(sink.StreamOf(7), message);
}

TEST_F(EngineTest, TwoSystemExclusivesOfOverOneMebibyteMergeWhole) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Bytes first(1536 * 1024, 0x11);
    first.front() = 0xF0;
    first.back() = 0xF7;
    Bytes second = first;
    std::fill(second.begin() + 1, second.end() - 1, std::uint8_t{0x22});
    for (std::size_t at = 0; at < first.size(); at += 32768) {
        engine.Write(3, now, std::span(first).subspan(at, 32768));
        engine.Write(4, now, std::span(second).subspan(at, 32768));
        sink.Refill(32768);
        Run();
        ++now;
    }
    for (int cycle = 0; cycle < 60; ++cycle) {
        sink.Refill(32768);
        Run();
    }
    Bytes both = first;
    both.insert(both.end(), second.begin(), second.end());
    EXPECT_TRUE(sink.StreamOf(7) == both);
    EXPECT_EQ(engine.CountersOfSource(4).dropped, 0U);
}

TEST_F(EngineTest, AMessageWaitsForRoom) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    sink.Refill(2);
    EXPECT_THAT(Heard(7), IsEmpty());
    sink.Refill(3);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}));
}

TEST_F(EngineTest, HeldNotesAreReleasedWhenTheWriterHasGone) {
    SetWay(3, To(7));
    Write(3, {0x95, 60, 100, 64, 100, 60, 0});
    Run();
    engine.PostWriterGone(3);
    engine.TakeCommands(now);
    Run();
    EXPECT_EQ(sink.MessagesOf(7).back(), (Bytes{0x85, 64, 64}));
    EXPECT_EQ(sink.MessagesOf(7).size(), 4U);
}

TEST_F(EngineTest, PedalModulationAndBendGoBackToRestOnTheirChannels) {
    SetWay(3, To(7));
    Write(3, {0xB1, 64, 127, 0xB2, 1, 5, 0xE3, 1, 64, 0xB4, 64, 127, 64, 0, 0xE5, 0, 64});
    Run();
    sink.heard[7].clear();
    engine.WriterGone(3, now);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xB1, 64, 0}, Bytes{0xB2, 1, 0}, Bytes{0xE3, 0, 64}));
}

TEST_F(EngineTest, EveryPedalAndThePressureOfAChannelGoBackToRest) {
    SetWay(3, To(7));
    Write(3, {0xB1, 66, 127, 67, 1, 69, 64, 0xD2, 90});
    Run();
    sink.heard[7].clear();
    engine.WriterGone(3, now);
    EXPECT_THAT(Heard(7),
                ElementsAre(Bytes{0xB1, 66, 0}, Bytes{0xB1, 67, 0}, Bytes{0xB1, 69, 0}, Bytes{0xD2, 0}));
}

TEST_F(EngineTest, WhatAProgramPutBackItselfIsNotReleased) {
    SetWay(3, To(7));
    Write(3, {0xB1, 66, 127, 66, 0, 69, 1, 69, 0, 0xD2, 90, 0});
    Run();
    sink.heard[7].clear();
    engine.WriterGone(3, now);
    EXPECT_THAT(Heard(7), IsEmpty());
}

TEST_F(EngineTest, ReleasesGoToTheInputThatHeardTheNotes) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    SetWay(3, To(8));
    Write(3, {0x90, 62, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 62, 100}));
}

TEST_F(EngineTest, ReleasesWaitBehindWhatIsQueued) {
    engine.PostQuantization(100);
    SetWay(3, To(7));
    now += 1;
    Write(3, {0x90, 60, 100});
    engine.WriterGone(3, now);
    Run();
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
    engine.Run(kForever, sink);
    EXPECT_THAT(sink.MessagesOf(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
}

TEST_F(EngineTest, ANoteThatAnotherSourceStillHoldsIsReleasedByTheLastOne) {
    ways[4] = To(7);
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    Write(4, {0x90, 60, 100});
    Run();
    sink.heard[7].clear();
    engine.WriterGone(3, now);
    EXPECT_THAT(Heard(7), IsEmpty());
    engine.WriterGone(4, now);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x80, 60, 64}));
}

TEST_F(EngineTest, AWayThatEndsInsideASystemExclusiveIsClosedAndItsRestLeftOut) {
    SetWay(3, To(7));
    Write(3, {0xF0, 1, 2});
    SetWay(3, To(8));
    Write(3, {3, 4, 0xF7, 0x90, 60, 100});
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0xF0, 1, 2}, Bytes{0xF7}));
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 60, 100}));
}

TEST_F(EngineTest, OnlyTheSourcesWhoseWayChangedAreReleased) {
    ways[4] = To(8);
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    Write(4, {0x90, 60, 100});
    SetWay(3, Way{});
    Run();
    EXPECT_EQ(sink.MessagesOf(7).size(), 2U);
    EXPECT_EQ(sink.MessagesOf(8).size(), 1U);
}

TEST_F(EngineTest, SendImmediatelyChangesWithoutEndingTheWay) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    SetWay(3, To(7, true));
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}));
}

TEST_F(EngineTest, ATestOutputSoundsAndIsReleasedWhenItsWayEnds) {
    engine.PostWay(kTestSourceBase + 5, To(7));
    engine.PostTestBytes(5, Bytes{0x90, 60, 100, 0x90, 64, 100});
    engine.TakeCommands(now);
    EXPECT_EQ(Heard(7).size(), 2U);
    PostWays();
    EXPECT_EQ(Heard(7).size(), 2U) << "the ways of outputs leave test outputs alone";
    engine.PostWay(kTestSourceBase + 5, Way{});
    engine.TakeCommands(now);
    Run();
    EXPECT_EQ(sink.MessagesOf(7).size(), 4U);
    EXPECT_EQ(sink.MessagesOf(7).back(), (Bytes{0x80, 64, 64}));
}

TEST_F(EngineTest, TestBytesDoNotGoOnWithTheRunningStatusOfTheOnesBefore) {
    engine.PostWay(kTestSourceBase + 5, To(7));
    engine.PostTestBytes(5, Bytes{0x90, 60, 100});
    engine.PostTestBytes(5, Bytes{0xFF, 61, 100});
    engine.TakeCommands(now);
    EXPECT_THAT(Heard(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xFF}));
}

TEST_F(EngineTest, MoreTestBytesThanFitAreNotPosted) {
    EXPECT_TRUE(engine.PostTestBytes(5, Bytes(kLongestTestBytes)));
    EXPECT_FALSE(engine.PostTestBytes(5, Bytes(kLongestTestBytes + 1)));
    EXPECT_EQ(engine.Posted(), 1U);
}

TEST_F(EngineTest, AllWaysEndAtTheEnd) {
    SetWay(3, To(7));
    engine.PostWay(kTestSourceBase + 5, To(8));
    engine.PostTestBytes(5, Bytes{0x90, 60, 100});
    engine.TakeCommands(now);
    Write(3, {0x90, 60, 100});
    engine.PostReleaseAll();
    engine.TakeCommands(now);
    EXPECT_NE(engine.Done(), engine.Posted()) << "nothing has been delivered";
    EXPECT_EQ(Heard(7).back(), (Bytes{0x80, 60, 64}));
    EXPECT_EQ(Heard(8).back(), (Bytes{0x80, 60, 64}));
    EXPECT_EQ(engine.Done(), engine.Posted());
}

TEST_F(EngineTest, WhoSleepsIsWokenAfterEachPost) {
    CountingWaker waker;
    engine.SetWaker(&waker);
    EXPECT_TRUE(engine.PostWays({}));
    EXPECT_TRUE(engine.PostWay(kTestSourceBase + 1, To(2)));
    EXPECT_TRUE(engine.PostTestBytes(1, Bytes{0xF8}));
    EXPECT_TRUE(engine.PostQuantization(3));
    EXPECT_TRUE(engine.PostWriterGone(1));
    EXPECT_TRUE(engine.PostReleaseAll());
    EXPECT_EQ(waker.wakes, 6);
    engine.SetWaker(nullptr);
    EXPECT_TRUE(engine.PostReleaseAll());
    EXPECT_EQ(waker.wakes, 6);
}

TEST_F(EngineTest, CommandsAreRefusedWhileNobodyTakesThem) {
    int posted = 0;
    while (posted < 10000 && engine.PostWriterGone(1)) {
        ++posted;
    }
    EXPECT_LT(posted, 10000);
    EXPECT_EQ(engine.Posted(), static_cast<std::uint64_t>(posted));
    engine.TakeCommands(now);
    EXPECT_EQ(engine.Done(), engine.Posted());
    EXPECT_TRUE(engine.PostWriterGone(1));
}

TEST_F(EngineTest, AfterALossNothingIsQueuedNothingSoundsAndTimeBeginsAnew) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    Run();
    Write(3, {0x90, 61, 100, 0xF0, 1});
    SetWay(3, To(8));
    engine.Forget();
    EXPECT_EQ(engine.CountersOfSource(3).dropped, 1U);
    EXPECT_EQ(engine.Done(), engine.Posted());
    EXPECT_FALSE(engine.NextDue().has_value());
    now = 5;
    sink = MemorySink();
    Write(3, {0x90, 62, 100});
    EXPECT_THAT(Heard(8), ElementsAre(Bytes{0x90, 62, 100}));
    EXPECT_EQ(sink.heard[8][0].time, now);
    EXPECT_THAT(Heard(7), IsEmpty());
}

// An engine with as little queue as there can be, and an input that takes nothing.
class EngineOverrunTest : public EngineTest {
  protected:
    EngineOverrunTest() : small(0) {
        small.PostWay(kTestSourceBase, To(7));
        small.TakeCommands(now);
    }
    void Play(const Bytes& bytes) {
        ASSERT_TRUE(small.PostTestBytes(0, bytes));
        small.TakeCommands(now);
    }
    std::uint64_t Dropped() const { return small.CountersOfSource(kTestSourceBase).dropped; }
    void Fill() {
        sink.Refill(0);
        while (Dropped() == 0) {
            Play({0xFE});
        }
    }
    void Drain() {
        sink.Refill(1'000'000);
        small.Run(kForever, sink);
    }

    Engine small;
};

TEST_F(EngineOverrunTest, ADroppedNoteOnLeavesNothingBehind) {
    Fill();
    Play({0x90, 60, 100});
    Drain();
    EXPECT_EQ(Dropped(), 2U);
    sink.heard[7].clear();
    small.PostReleaseAll();
    small.TakeCommands(now);
    Drain();
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
}

TEST_F(EngineOverrunTest, ANoteOffThatFindsNoRoomStillReleasesItsNote) {
    Play({0x90, 60, 100});
    Fill();
    Play({0x80, 60, 10});
    Drain();
    EXPECT_EQ(sink.MessagesOf(7).front(), (Bytes{0x90, 60, 100}));
    EXPECT_EQ(sink.MessagesOf(7).back(), (Bytes{0x80, 60, 64}));
}

TEST_F(EngineOverrunTest, WhatEndsAllNotesAndFindsNoRoomEndsTheWay) {
    for (const int number : {120, 121, 123, 124, 125, 126, 127}) {
        const auto control = static_cast<std::uint8_t>(number);
        sink.heard[7].clear();
        Play({0x90, 60, 100});
        const std::uint64_t before = Dropped();
        sink.Refill(0);
        while (Dropped() == before) {
            Play({0xFE});
        }
        Play({0xB0, control, 0});
        Drain();
        EXPECT_EQ(sink.MessagesOf(7).back(), (Bytes{0x80, 60, 64})) << number;
    }
}

TEST_F(EngineOverrunTest, APedalThatFindsNoRoomToBeLiftedIsLifted) {
    Play({0xB0, 67, 127, 0xD0, 5});
    Fill();
    Play({0xB0, 67, 0});
    Drain();
    const std::vector<Bytes> heard = sink.MessagesOf(7);
    EXPECT_EQ(heard[heard.size() - 2], (Bytes{0xB0, 67, 0}));
    EXPECT_EQ(heard.back(), (Bytes{0xD0, 0}));
}

TEST_F(EngineOverrunTest, ManyOverrunsInARowNeedNoMoreRoom) {
    Play({0x90, 60, 100, 0xE0, 5, 5});
    Fill();
    for (int round = 0; round < 1000; ++round) {
        Play({0x80, 60, 10, 0xE0, 6, 6});
    }
    Drain();
    const std::vector<Bytes> heard = sink.MessagesOf(7);
    EXPECT_EQ(heard[heard.size() - 2], (Bytes{0x80, 60, 64}));
    EXPECT_EQ(heard.back(), (Bytes{0xE0, 0, 64}));
}

TEST_F(EngineOverrunTest, ASystemExclusiveThatFindsNoRoomIsEndedAndItsRestLeftOut) {
    Play({0xF0, 1});
    Fill();
    Play({2, 3});
    Drain();
    Play({4, 0xF7, 0x90, 60, 100});
    Drain();
    const std::vector<Bytes> heard = sink.MessagesOf(7);
    EXPECT_EQ(heard.front(), (Bytes{0xF0, 1}));
    EXPECT_EQ(heard[heard.size() - 2], Bytes{0xF7});
    EXPECT_EQ(heard.back(), (Bytes{0x90, 60, 100}));
}

}  // namespace
}  // namespace vexil
