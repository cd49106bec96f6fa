// What somebody who watches the engine sees.
#include "service/engine/MessageTap.h"

#include "tests/service/engine/CountingWaker.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Seen {
    TapSide side = TapSide::Output;
    int port = 0;
    Bytes bytes;
    std::uint64_t time = 0;
    bool operator==(const Seen&) const = default;
};

class MessageTapTest : public ::testing::Test {
  protected:
    MessageTapTest() { tap.SetWaker(&waker); }

    void SetWay(int port, const Way& way) {
        ways[static_cast<std::size_t>(port)] = way;
        ASSERT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }
    void Write(int source, const Bytes& bytes) { engine.Write(source, now, bytes); }
    void Run() { engine.Run(now + 1, sink); }
    std::vector<Seen> TakeAll() {
        std::vector<Seen> seen;
        for (TappedPiece piece; tap.Take(piece);) {
            seen.push_back(
                {piece.side, piece.port, Bytes(piece.bytes.begin(), piece.bytes.end()), piece.time});
        }
        return seen;
    }

    Engine engine;
    MessageTap& tap = engine.Tap();
    CountingWaker waker;
    MemorySink sink;
    WayTable ways;
    std::uint64_t now = 1'000'000'000;
};

TEST_F(MessageTapTest, WhileNobodyWatchesNothingIsSeen) {
    SetWay(3, To(7));
    Write(3, {0x90, 60, 100});
    Run();
    EXPECT_THAT(TakeAll(), IsEmpty());
    EXPECT_EQ(waker.wakes, 0);
}

TEST_F(MessageTapTest, WhatAnOutputIsGivenAndAnInputHearsIsSeenInItsOrder) {
    SetWay(3, To(7));
    tap.Open();
    Write(3, {0x90, 60, 100});
    Run();
    EXPECT_THAT(TakeAll(), ElementsAre(Seen{TapSide::Output, 3, {0x90, 60, 100}, now},
                                       Seen{TapSide::Input, 7, {0x90, 60, 100}, now}));
}

TEST_F(MessageTapTest, WhatLeadsNowhereIsSeen) {
    tap.Open();
    Write(3, {0x90, 60, 100});
    EXPECT_THAT(TakeAll(), ElementsAre(Seen{TapSide::Output, 3, {0x90, 60, 100}, now}));
}

TEST_F(MessageTapTest, WhatLeadsToAnotherComputerIsSeenOnceWhereItIsPlayed) {
    SetWay(3, {Destination::Remote(5, 8, 3)});
    tap.Open();
    Write(3, {0x90, 60, 100});
    Run();
    EXPECT_THAT(TakeAll(), ElementsAre(Seen{TapSide::Output, 3, {0x90, 60, 100}, now}));
}

TEST_F(MessageTapTest, WhatAnotherComputerPlaysIsSeenOnceWhereItIsHeard) {
    const std::optional<int> source = engine.TakeSource(To(7), now);
    ASSERT_TRUE(source.has_value());
    tap.Open();
    engine.TakeArrivals(0);
    Write(*source, {0x90, 60, 100});
    Run();
    EXPECT_THAT(TakeAll(), ElementsAre(Seen{TapSide::Input, 7, {0x90, 60, 100}, now}));
}

TEST_F(MessageTapTest, TheProgramsOfAnOutputAndItsTestOutputAreToldApart) {
    const std::optional<int> writer = engine.TakeWriter(3);
    ASSERT_TRUE(writer.has_value());
    tap.Open();
    Write(*writer, {0x90, 60, 100});
    ASSERT_TRUE(engine.PostTestBytes(3, Bytes{0x91, 60, 100}));
    engine.TakeCommands(now);
    TappedPiece piece;
    ASSERT_TRUE(tap.Take(piece));
    EXPECT_EQ(piece.side, TapSide::Output);
    EXPECT_EQ(piece.port, 3);
    EXPECT_EQ(piece.stream, *writer);
    ASSERT_TRUE(tap.Take(piece));
    EXPECT_EQ(piece.side, TapSide::Test);
    EXPECT_EQ(piece.port, 3);
}

TEST_F(MessageTapTest, ASystemExclusiveIsSeenInParts) {
    tap.Open();
    Write(3, {0xF0, 1, 2});
    Write(3, {3, 0xF8, 4, 0xF7});
    EXPECT_THAT(TakeAll(),
                ElementsAre(Seen{TapSide::Output, 3, {0xF0, 1, 2}, now}, Seen{TapSide::Output, 3, {3}, now},
                            Seen{TapSide::Output, 3, {0xF8}, now}, Seen{TapSide::Output, 3, {4, 0xF7}, now}));
}

TEST_F(MessageTapTest, TheReaderIsWokenOnceForWhatItHasNotYetRead) {
    tap.Open();
    Write(3, {0x90, 60, 100, 0x90, 61, 100});
    EXPECT_EQ(waker.wakes, 1);
    TakeAll();
    Write(3, {0x90, 62, 100});
    EXPECT_EQ(waker.wakes, 2);
}

TEST_F(MessageTapTest, WhatFindsNoRoomIsLeftOutAndCountedAndTheEngineGoesOn) {
    SetWay(3, To(7));
    tap.Open();
    constexpr int kMessages = 30'000;
    for (int message = 0; message < kMessages; ++message) {
        Write(3, {0x90, 60, 100});
        if (message % 1000 == 0) {
            Run();
        }
    }
    Run();
    EXPECT_EQ(sink.heard[7].size(), static_cast<std::size_t>(kMessages));
    const std::size_t seen = TakeAll().size();
    EXPECT_GT(seen, 10'000U);
    EXPECT_EQ(seen + tap.LeftOut(), 2U * kMessages);
}

TEST_F(MessageTapTest, WhatCameBeforeSomebodyWatchedAgainIsNotSeen) {
    tap.Open();
    Write(3, {0x90, 60, 100});
    tap.Close();
    Write(3, {0x90, 61, 100});
    tap.Open();
    Write(3, {0x90, 62, 100});
    EXPECT_THAT(TakeAll(), ElementsAre(Seen{TapSide::Output, 3, {0x90, 62, 100}, now}));
}

}  // namespace
}  // namespace vexil
