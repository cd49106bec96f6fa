#include "service/engine/RemoteRing.h"

#include <thread>

#include "tests/service/engine/CountingWaker.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

constexpr Destination kThere = Destination::Remote(1, 7, 3);

TEST(RemoteRingTest, WhatIsDeliveredIsTakenInItsOrder) {
    CountingWaker waker;
    RemoteRing ring(4096, waker);
    ring.Deliver(kThere, 5, Bytes{0x90, 60, 100});
    ring.Deliver(Destination::Remote(2, 8, 64), 6, Bytes{0xF8});
    RemoteRing::Delivery taken;
    ASSERT_TRUE(ring.Take(taken));
    EXPECT_EQ(taken.to, kThere);
    EXPECT_EQ(taken.time, 5U);
    EXPECT_EQ(Bytes(taken.bytes.begin(), taken.bytes.end()), (Bytes{0x90, 60, 100}));
    ASSERT_TRUE(ring.Take(taken));
    EXPECT_EQ(taken.to, Destination::Remote(2, 8, 64));
    EXPECT_FALSE(ring.Take(taken));
}

TEST(RemoteRingTest, TheReaderIsWokenAtTheEndOfATurnAndNotAgainUntilItHasEmptiedTheRing) {
    CountingWaker waker;
    RemoteRing ring(4096, waker);
    ring.Deliver(kThere, 5, Bytes{0xF8});
    ring.Deliver(kThere, 5, Bytes{0xF8});
    EXPECT_EQ(waker.wakes, 0);
    ring.EndTurn();
    EXPECT_EQ(waker.wakes, 1);
    ring.Deliver(kThere, 5, Bytes{0xF8});
    ring.EndTurn();
    EXPECT_EQ(waker.wakes, 1);
    RemoteRing::Delivery taken;
    while (ring.Take(taken)) {
    }
    ring.EndTurn();
    EXPECT_EQ(waker.wakes, 1);
    ring.Deliver(kThere, 5, Bytes{0xF8});
    ring.EndTurn();
    EXPECT_EQ(waker.wakes, 2);
}

TEST(RemoteRingTest, TheEngineEndsItsTurn) {
    CountingWaker waker;
    RemoteRing ring(4096, waker);
    Engine engine;
    engine.SetRemoteSink(&ring);
    WayTable ways;
    ways[3] = {kThere};
    ASSERT_TRUE(engine.PostWays(ways));
    engine.TakeCommands(1);
    engine.Write(3, 1, Bytes{0x90, 60, 100});
    engine.Write(3, 2, Bytes{0x90, 61, 100});
    EXPECT_EQ(waker.wakes, 0);
    SilentSink nobody;
    engine.Run(kForever, nobody);
    EXPECT_EQ(waker.wakes, 1);
}

TEST(RemoteRingTest, RoomShrinksToNothingAndComesBack) {
    CountingWaker waker;
    RemoteRing ring(100, waker);
    const Bytes bytes(ring.Room(kThere));
    ASSERT_GT(bytes.size(), 50U);
    ring.Deliver(kThere, 5, bytes);
    EXPECT_EQ(ring.Room(kThere), 0U);
    RemoteRing::Delivery taken;
    ASSERT_TRUE(ring.Take(taken));
    EXPECT_EQ(ring.Room(kThere), bytes.size());
}

TEST(RemoteRingTest, ASourceOfWhichNothingIsPassedOnLeavesRoomToOthers) {
    CountingWaker waker;
    RemoteRing ring(std::size_t{1} << 20, waker);
    const Bytes piece(992);
    RemoteRing::Delivery taken;
    std::size_t count = 0;
    while (ring.Room(kThere) >= piece.size()) {
        ring.Deliver(kThere, 5, piece);
        ASSERT_TRUE(ring.Take(taken));
        ++count;
    }
    EXPECT_LE(count * piece.size(), RemoteRing::kSourceBytes);
    EXPECT_GE(count * piece.size(), RemoteRing::kSourceBytes * 9 / 10);
    EXPECT_GT(ring.Room(Destination::Remote(1, 7, 4)), RemoteRing::kSourceBytes / 2);
    ring.PassedOn(kThere, piece.size());
    EXPECT_GE(ring.Room(kThere), piece.size());
}

// A network in memory: what the ring of one computer holds is written to the other's engine.
TEST(RemoteRingTest, WhatIsPlayedOnOneComputerIsHeardAndReleasedOnAnother) {
    CountingWaker waker;
    RemoteRing ring(4096, waker);
    Engine here;
    here.SetRemoteSink(&ring);
    WayTable ways;
    ways[3] = {kThere};
    ASSERT_TRUE(here.PostWays(ways));
    here.TakeCommands(1);
    Engine there;
    const std::optional<int> source = there.TakeSource(To(7), 1);
    ASSERT_TRUE(source);
    there.TakeArrivals(0);

    SilentSink nobody;
    MemorySink sink;
    const auto carry = [&] {
        here.TakeCommands(1);
        here.Run(kForever, nobody);
        RemoteRing::Delivery taken;
        while (ring.Take(taken)) {
            EXPECT_EQ(taken.to, kThere);
            ring.PassedOn(taken.to, taken.bytes.size());
            there.Write(*source, taken.time, taken.bytes);
        }
        there.Run(kForever, sink);
    };
    Bytes exclusive(5000, 1);
    exclusive.front() = 0xF0;
    exclusive.back() = 0xF7;
    here.Write(3, 1, exclusive);
    for (int round = 0; round < 5; ++round) {
        carry();
    }
    here.Write(3, 1, Bytes{0x90, 60, 100});
    carry();
    here.WriterGone(3, 1);
    carry();
    Bytes expected = exclusive;
    expected.insert(expected.end(), {0x90, 60, 100, 0x80, 60, 64});
    EXPECT_EQ(sink.StreamOf(7), expected);
}

TEST(RemoteRingTest, TwoThreadsMeetInIt) {
    CountingWaker waker;
    RemoteRing ring(1000, waker);
    constexpr std::uint64_t kCount = 100'000;
    std::thread writer([&] {
        for (std::uint64_t number = 0; number < kCount;) {
            const Bytes bytes(1 + number % 90, static_cast<std::uint8_t>(number));
            if (ring.Room(kThere) >= bytes.size()) {
                ring.Deliver(kThere, number++, bytes);
            } else {
                std::this_thread::yield();
            }
        }
    });
    RemoteRing::Delivery taken;
    for (std::uint64_t number = 0; number < kCount;) {
        if (!ring.Take(taken)) {
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(taken.time, number);
        ASSERT_EQ(taken.bytes.size(), 1 + number % 90);
        ASSERT_EQ(taken.bytes.back(), static_cast<std::uint8_t>(number));
        ring.PassedOn(taken.to, taken.bytes.size());
        ++number;
    }
    writer.join();
}

}  // namespace
}  // namespace vexil
