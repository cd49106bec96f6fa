// Turns of the engine that are limited, and who goes first then.
#include "service/engine/Engine.h"
#include "service/engine/Merger.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::Gt;
using ::testing::IsEmpty;

constexpr std::size_t kMany = 20 * kShare;

// Lets a turn go on so many times.
class CountedLimit : public TurnLimit {
  public:
    explicit CountedLimit(int times) : left(times) {}
    bool MayGoOn() override { return left-- > 0; }

  private:
    int left;
};

class TurnLimitTest : public ::testing::Test {
  protected:
    void SetWays(std::initializer_list<std::pair<int, int>> pairs) {
        for (const auto& [output, input] : pairs) {
            ways[static_cast<std::size_t>(output)] = To(input);
        }
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Flood(int output, std::size_t messages = kMany) {
        for (std::size_t i = 0; i < messages; ++i) {
            engine.Write(
                output, now,
                Bytes{0xA0, static_cast<std::uint8_t>(i >> 7 & 0x7F), static_cast<std::uint8_t>(i & 0x7F)});
        }
    }
    // A turn that goes on `times` times behind its first share.
    void Turn(int times = 0) {
        CountedLimit limit(times);
        engine.Run(now + 1, sink, &limit);
    }
    std::size_t HeardAt(int input) const { return sink.heard[static_cast<std::size_t>(input)].size(); }

    Engine engine;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 1'000'000'000;
};

TEST_F(TurnLimitTest, WithoutALimitEverythingIsDeliveredInOneTurn) {
    SetWays({{3, 7}});
    Flood(3);
    engine.Run(now + 1, sink);
    EXPECT_EQ(HeardAt(7), kMany);
}

TEST_F(TurnLimitTest, ATurnGivesWayAndTheNextOnesGoOnWhereItStopped) {
    SetWays({{3, 7}});
    Flood(3);
    Turn();
    EXPECT_EQ(HeardAt(7), kShare);
    EXPECT_EQ(engine.NextDue(), now);
    for (int turn = 0; turn < 100 && engine.NextDue(); ++turn) {
        Turn(1);
    }
    ASSERT_EQ(HeardAt(7), kMany);
    for (std::size_t i = 0; i < kMany; ++i) {
        ASSERT_EQ(sink.heard[7][i].bytes[1] * 128U + sink.heard[7][i].bytes[2], i);
    }
}

TEST_F(TurnLimitTest, WhoHasAShareLeftIsHeardInEachTurnHoweverManyWaitBeforeIt) {
    SetWays({{3, 7}, {4, 8}, {5, 9}});
    Flood(3);
    Flood(4);
    Turn();
    engine.Write(5, now, Bytes{0x90, 60, 100});
    Turn();
    EXPECT_THAT(sink.MessagesOf(9), ElementsAre(Bytes{0x90, 60, 100}));
    EXPECT_LT(HeardAt(7) + HeardAt(8), kMany);
}

TEST_F(TurnLimitTest, WhoHasAShareLeftIsHeardBeforeTheOthersOfOneInput) {
    SetWays({{3, 7}, {5, 7}});
    Flood(3);
    Turn();
    engine.Write(5, now, Bytes{0x90, 60, 100});
    const std::size_t before = HeardAt(7);
    Turn(1);
    ASSERT_THAT(HeardAt(7), Gt(before));
    EXPECT_EQ(sink.heard[7][before].bytes, (Bytes{0x90, 60, 100}));
}

TEST_F(TurnLimitTest, AnUnusedShareOfAnotherTimeCountsForNothing) {
    SetWays({{3, 7}});
    Flood(3);
    Turn();
    const std::size_t before = HeardAt(7);
    Turn();
    EXPECT_EQ(HeardAt(7), before);
    now += kShareTime;
    Turn();
    EXPECT_EQ(HeardAt(7), before + kShare);
}

TEST_F(TurnLimitTest, ThoseWhoHaveUsedUpTheirShareTakeTurns) {
    SetWays({{3, 7}, {4, 8}});
    Flood(3);
    Flood(4);
    for (int turn = 0; turn < 6; ++turn) {
        Turn(2);
    }
    EXPECT_GE(HeardAt(7), 4 * kShare);
    EXPECT_GE(HeardAt(8), 4 * kShare);
    EXPECT_LE(HeardAt(7), HeardAt(8) + 2 * kShare);
    EXPECT_LE(HeardAt(8), HeardAt(7) + 2 * kShare);
}

TEST_F(TurnLimitTest, OthersAreHeardBehindASystemExclusiveOfWhomHasUsedUpItsShare) {
    SetWays({{3, 7}, {5, 7}});
    Flood(3);
    engine.Write(3, now, Bytes{0xF0, 1});
    while (HeardAt(7) <= kMany) {
        Turn(1);
    }
    engine.Write(5, now, Bytes{0x90, 60, 100});
    engine.Write(3, now, Bytes{2, 0xF7});
    Flood(3);
    Turn();
    EXPECT_EQ(sink.heard[7][kMany + 1].bytes, (Bytes{2, 0xF7}));
    EXPECT_EQ(sink.heard[7][kMany + 2].bytes, (Bytes{0x90, 60, 100}));
}

TEST_F(TurnLimitTest, WhenEverythingIsDoneTheOrderIsThatOfTimeAgain) {
    SetWays({{3, 7}, {5, 7}});
    Flood(3);
    Turn();
    Turn(1000);
    ASSERT_FALSE(engine.NextDue().has_value());
    sink.heard[7].clear();
    engine.Write(3, now, Bytes{0x90, 1, 1});
    engine.Write(5, now, Bytes{0x90, 2, 1});
    Turn();
    EXPECT_THAT(sink.MessagesOf(7), ElementsAre(Bytes{0x90, 1, 1}, Bytes{0x90, 2, 1}));
}

TEST_F(TurnLimitTest, LongSystemExclusiveUsesTheLimitUp) {
    SetWays({{3, 7}});
    Bytes message(1000, 0x11);
    message.front() = 0xF0;
    message.back() = 0xF7;
    for (int i = 0; i < 100; ++i) {
        engine.Write(3, now, message);
    }
    Turn();
    EXPECT_LT(HeardAt(7), 10U);
}

TEST_F(TurnLimitTest, AWayThatGoesOnElsewhereIsCarriedOnThereInLimitedTurns) {
    SetWays({{3, 7}});
    Flood(3);
    engine.Write(3, now, Bytes{0x90, 60, 100});
    SetWays({{3, 2}});
    Flood(3);
    for (int turn = 0; turn < 200 && engine.NextDue(); ++turn) {
        Turn(1);
    }
    EXPECT_EQ(HeardAt(7), kMany + 2);
    EXPECT_EQ(sink.heard[7].back().bytes, (Bytes{0x80, 60, 64}));
    EXPECT_EQ(HeardAt(2), kMany);
    EXPECT_EQ(engine.Done(), engine.Posted());
}

}  // namespace
}  // namespace vexil
