// A source that several programs write to, whom nobody can tell apart: one of them goes, or something of
// theirs is lost on its way here.
#include "service/engine/Engine.h"
#include "service/engine/Merger.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;

constexpr std::uint64_t kMillisecond = 1'000'000;

class SharedSourceTest : public ::testing::Test {
  protected:
    SharedSourceTest() {
        ways[3] = To(7);
        ways[4] = To(7);
        PostWays();
    }
    void PostWays() {
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Write(const Bytes& bytes) { engine.Write(3, now, bytes); }
    void OneGone() { engine.OneWriterGone(3, now); }
    void Run() { engine.Run(now + 1, sink); }
    std::vector<Bytes> Heard() {
        Run();
        return sink.MessagesOf(7);
    }
    std::uint64_t Dropped() const { return engine.CountersOfSource(3).dropped; }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 1000 * kMillisecond;
};

TEST_F(SharedSourceTest, WhatSoundsIsReleasedAndRunningStatusStays) {
    Write({0x90, 60, 100});
    OneGone();
    Write({62, 100});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}, Bytes{0x90, 62, 100}));
}

TEST_F(SharedSourceTest, AMessageOfWhichAPartIsStillToComeStaysWhole) {
    Write({0x90, 60});
    OneGone();
    Write({100});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}));
}

TEST_F(SharedSourceTest, ASystemExclusiveGoesOnAndTheReleaseComesBehindIt) {
    Write({0x90, 60, 100, 0xF0, 1});
    Run();
    OneGone();
    Run();
    now += kLongestSilence / 2;
    Write({2});
    Run();
    now += kLongestSilence / 2;
    Write({3, 0xF7});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{2}, Bytes{3, 0xF7},
                                     Bytes{0x80, 60, 64}));
    EXPECT_EQ(Dropped(), 0U);
    EXPECT_FALSE(engine.NextDue().has_value());
}

TEST_F(SharedSourceTest, ASystemExclusiveThatFallsSilentIsEndedAfterASecondAndCounted) {
    Write({0x90, 60, 100, 0xF0, 1});
    OneGone();
    Run();
    EXPECT_EQ(engine.NextDue(), now + kLongestSilence);
    now += kLongestSilence - 1;
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}));
    EXPECT_EQ(Dropped(), 0U);
    ++now;
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x80, 60, 64}));
    EXPECT_EQ(Dropped(), 1U);
    EXPECT_FALSE(engine.NextDue().has_value());
}

TEST_F(SharedSourceTest, AClockBesideItDoesNotKeepASilentSystemExclusiveFromItsEnd) {
    Write({0xF0, 1});
    OneGone();
    for (int tick = 0; tick < 100; ++tick) {
        now += 20 * kMillisecond;
        Write({0xF8});
        Run();
    }
    EXPECT_EQ(Dropped(), 1U);
}

TEST_F(SharedSourceTest, WhatComesOfTheSystemExclusiveAfterItsEndIsLeftOut) {
    Write({0xF0, 1});
    OneGone();
    now += 2 * kLongestSilence;
    Run();
    Write({2, 0xF7, 0xC0, 5});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0xC0, 5}));
}

TEST_F(SharedSourceTest, AnotherMessageThatEndsTheSystemExclusiveComesBehindTheRelease) {
    Write({0x90, 60, 100, 0xF0, 1});
    OneGone();
    Write({0x90, 62, 100});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1, 0xF7}, Bytes{0x80, 60, 64},
                                     Bytes{0x90, 62, 100}));
}

TEST_F(SharedSourceTest, WhenTheLastOneGoesTheSystemExclusiveIsEndedAtOnce) {
    Write({0x90, 60, 100, 0xF0, 1});
    OneGone();
    engine.WriterGone(3, now);
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x80, 60, 64}));
    now += 2 * kLongestSilence;
    Run();
    EXPECT_EQ(Dropped(), 0U);
}

TEST_F(SharedSourceTest, ASilentSystemExclusiveThatWasEndedForAnotherSourceIsCountedOnce) {
    Write({0x90, 60, 100, 0xF0, 1});
    Run();
    engine.Write(4, now, Bytes{0xC0, 5});
    now += kLongestSilence / 2;
    OneGone();
    now += kLongestSilence / 2;
    Run();
    now += kLongestSilence;
    const std::vector<Bytes> heard = Heard();
    EXPECT_THAT(heard, ::testing::UnorderedElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{0xF7},
                                                       Bytes{0xC0, 5}, Bytes{0x80, 60, 64}));
    EXPECT_EQ(Dropped(), 1U);
}

TEST_F(SharedSourceTest, AWayThatIsLedElsewhereMeanwhileOwesNothingMore) {
    Write({0x90, 60, 100, 0xF0, 1});
    OneGone();
    ways[3] = To(8);
    PostWays();
    Run();
    Write({2, 0xF7, 0x90, 62, 100});
    Run();
    EXPECT_THAT(sink.MessagesOf(7),
                ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x80, 60, 64}));
    EXPECT_THAT(sink.MessagesOf(8), ElementsAre(Bytes{0x90, 62, 100}));
    EXPECT_FALSE(engine.NextDue().has_value());
}

TEST_F(SharedSourceTest, MessagesThatWereLostCountAndEndTheWayThere) {
    Write({0x90, 60, 100, 0xB0, 64, 127});
    engine.MessagesLost(3, now, 5);
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0xB0, 64, 127}, Bytes{0x80, 60, 64},
                                     Bytes{0xB0, 64, 0}));
    EXPECT_EQ(Dropped(), 5U);
}

TEST_F(SharedSourceTest, ASystemExclusiveOfWhichAPartMayBeLostIsEndedAndItsRestLeftOut) {
    Write({0xF0, 1});
    engine.MessagesLost(3, now, 1);
    Write({2, 0xF7, 0x90, 62, 100});
    EXPECT_THAT(Heard(), ElementsAre(Bytes{0xF0, 1}, Bytes{0xF7}, Bytes{0x90, 62, 100}));
}

}  // namespace
}  // namespace vexil
