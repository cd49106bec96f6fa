// What comes from other computers: posted by a third thread, in one order.
#include <atomic>
#include <thread>

#include "service/engine/Engine.h"
#include "tests/service/engine/CountingWaker.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ArrivalTest : public ::testing::Test {
  protected:
    int Take(const Way& way) {
        const std::optional<int> source = engine.TakeSource(way, kNow);
        EXPECT_TRUE(source.has_value());
        return source.value_or(-1);
    }
    bool Post(Arrival::Kind kind, int source, const Bytes& bytes = {}, std::uint64_t time = kNow) {
        return engine.PostArrival({kind, source, time}, bytes);
    }
    void Turn(std::uint64_t delay = 0, std::uint64_t end = kForever) {
        engine.TakeArrivals(delay);
        engine.Run(end, sink);
    }

    static constexpr std::uint64_t kNow = 1'000'000;

    Engine engine;
    MemorySink sink;
};

TEST_F(ArrivalTest, WhatIsPostedBehindTheTakingOfASourceIsHeardInItsOrder) {
    const int source = Take(To(7));
    EXPECT_TRUE(Post(Arrival::Kind::Message, source, {0x90, 60, 100}));
    EXPECT_TRUE(Post(Arrival::Kind::Exclusive, source, {0xF0, 1}));
    EXPECT_TRUE(Post(Arrival::Kind::Exclusive, source, {2, 0xF7}));
    EXPECT_TRUE(Post(Arrival::Kind::Message, source, {0xE0, 0, 64}));
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
    Turn();
    EXPECT_EQ(sink.StreamOf(7), (Bytes{0x90, 60, 100, 0xF0, 1, 2, 0xF7, 0xE0, 0, 64}));
}

TEST_F(ArrivalTest, AGivingBackStaysBehindTheMessagesAndReleasesThem) {
    const int source = Take(To(7));
    Post(Arrival::Kind::Message, source, {0x90, 60, 100});
    Post(Arrival::Kind::GiveBack, source);
    Post(Arrival::Kind::Message, source, {0x90, 62, 100});
    Turn();
    EXPECT_THAT(sink.MessagesOf(7), ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}));
    EXPECT_EQ(Take(To(8)), source);
}

TEST_F(ArrivalTest, ACommandIsDoneWhenTheWaysThatArrivalsBeforeItEndAreReleased) {
    const int source = Take(To(7));
    Post(Arrival::Kind::Message, source, {0x90, 60, 100});
    Turn();
    Post(Arrival::Kind::GiveBack, source);
    ASSERT_TRUE(engine.PostWays({}));
    engine.TakeCommands(kNow);
    EXPECT_NE(engine.Done(), engine.Posted());
    engine.TakeArrivals(1000);
    engine.Run(kNow, sink);
    EXPECT_NE(engine.Done(), engine.Posted()) << "the release is not due yet";
    Turn();
    EXPECT_EQ(sink.MessagesOf(7).size(), 2U);
    EXPECT_EQ(engine.Done(), engine.Posted());
}

TEST_F(ArrivalTest, AWayThatIsSetAgainEndsTheOneBefore) {
    const int source = Take(To(7));
    Post(Arrival::Kind::Exclusive, source, {0xF0, 1});
    EXPECT_TRUE(engine.PostArrival({Arrival::Kind::Way, source, kNow, Way{}}));
    Post(Arrival::Kind::Message, source, {0x90, 60, 100});
    Turn();
    EXPECT_EQ(sink.StreamOf(7), (Bytes{0xF0, 1, 0xF7}));
    EXPECT_EQ(engine.CountersOfSource(source).filtered, 1U);
}

TEST_F(ArrivalTest, ItIsDueADelayAfterItCameByTheClockOfTheEngine) {
    engine.SetClockLead(-300);
    EXPECT_EQ(engine.ClockLead(), -300);
    const int source = Take(To(7));
    Post(Arrival::Kind::Message, source, {0x90, 60, 100}, kNow + 20);
    Turn(5000, kNow + 20 + 4700);
    EXPECT_THAT(sink.MessagesOf(7), IsEmpty());
    Turn(5000, kNow + 20 + 4701);
    EXPECT_THAT(sink.heard[7], ElementsAre(Delivery{kNow + 20 + 4700, {0x90, 60, 100}}));
}

TEST_F(ArrivalTest, SystemExclusiveCountsAsPassedOnWhenItIsDelivered) {
    const int source = Take(To(7));
    Bytes exclusive(600, 1);
    exclusive.front() = 0xF0;
    sink.Refill(250);
    Post(Arrival::Kind::Exclusive, source, exclusive);
    EXPECT_EQ(engine.ExclusivePassedOn(source), 0U);
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), sink.StreamOf(7).size());
    EXPECT_LE(engine.ExclusivePassedOn(source), 250U);
    sink.Refill(1000);
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), 600U);
    // It counts on.
    Post(Arrival::Kind::GiveBack, source);
    Turn();
    ASSERT_EQ(Take(To(7)), source);
    Post(Arrival::Kind::Exclusive, source, {0xF0, 1, 0xF7});
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), 603U);
}

TEST_F(ArrivalTest, SystemExclusiveThatIsLeftOutCountsAsPassedOn) {
    const int source = Take(Way{});
    Post(Arrival::Kind::Exclusive, source, {0xF0, 1, 0xF7});
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), 3U);
    EXPECT_TRUE(engine.PostArrival({Arrival::Kind::Way, source, kNow, To(7)}));
    sink.Refill(0);
    Post(Arrival::Kind::Exclusive, source, {0xF0, 1});
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), 3U);
    engine.Forget();
    Turn();
    EXPECT_EQ(engine.ExclusivePassedOn(source), 5U);
}

TEST_F(ArrivalTest, WithoutRoomNothingIsPostedUntilTheEngineHasTurned) {
    const int source = Take(To(7));
    std::size_t posted = 0;
    while (Post(Arrival::Kind::Message, source, {0x90, 60, 100})) {
        ++posted;
    }
    EXPECT_GT(posted, 10'000U);
    EXPECT_EQ(engine.TakeSource(To(7), kNow), std::nullopt);
    Turn();
    EXPECT_EQ(sink.MessagesOf(7).size(), posted);
    EXPECT_TRUE(Post(Arrival::Kind::GiveBack, source));
    EXPECT_TRUE(engine.TakeSource(To(7), kNow).has_value());
}

TEST_F(ArrivalTest, TheEngineIsWokenByWhatComesIntoAnEmptyRing) {
    CountingWaker waker;
    engine.SetWaker(&waker);
    const int source = Take(To(7));
    Post(Arrival::Kind::Message, source, {0x90, 60, 100});
    EXPECT_EQ(waker.wakes, 1);
    Turn();
    Post(Arrival::Kind::Message, source, {0x80, 60, 100});
    EXPECT_EQ(waker.wakes, 2);
}

TEST_F(ArrivalTest, ThreeThreadsMeetInTheEngine) {
    constexpr int kCount = 20'000;
    std::atomic<bool> over{false};
    std::thread network([&] {
        for (int sent = 0; sent < kCount;) {
            const std::optional<int> source = engine.TakeSource(To(7), 1);
            if (!source) {
                std::this_thread::yield();
                continue;
            }
            for (int note = 0; note < 10; ++note, ++sent) {
                while (
                    !Post(Arrival::Kind::Message, *source, {0x90, static_cast<std::uint8_t>(note), 1}, 1)) {
                    std::this_thread::yield();
                }
            }
            while (!Post(Arrival::Kind::GiveBack, *source, {}, 1)) {
                std::this_thread::yield();
            }
        }
        over = true;
    });
    std::thread control([&] {
        while (!over) {
            engine.PostQuantization(0);
            std::this_thread::yield();
        }
    });
    for (bool last = false; !last;) {
        last = over;
        engine.TakeCommands(1);
        Turn();
    }
    network.join();
    control.join();
    std::size_t on = 0;
    std::size_t off = 0;
    for (const Bytes& message : sink.MessagesOf(7)) {
        (message[0] == 0x90 ? on : off) += 1;
    }
    EXPECT_EQ(on, static_cast<std::size_t>(kCount));
    EXPECT_EQ(off, static_cast<std::size_t>(kCount));
}

}  // namespace
}  // namespace vexil
