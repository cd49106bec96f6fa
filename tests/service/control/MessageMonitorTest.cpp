// When the service looks at what passes through the engine, and what it then gives.
#include "service/control/MessageMonitor.h"

#include <gmock/gmock.h>
#include <poll.h>

#include "tests/service/control/ServiceFixture.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;

class MessageMonitorTest : public ::testing::Test {
  protected:
    void Play(const Bytes& bytes) { engine.Write(3, time, bytes); }
    bool IsReadable() const {
        pollfd state{watch.EventDescriptor(), POLLIN, 0};
        return poll(&state, 1, 0) == 1;
    }
    // The pieces that came once it was time.
    std::vector<Bytes> TakeLater() {
        EXPECT_FALSE(watch.Take());
        now += MessageMonitor::kGathering;
        std::vector<Bytes> pieces;
        if (const std::optional<MonitorBatch> batch = watch.Take()) {
            for (const MonitoredPiece& piece : batch->pieces) {
                pieces.emplace_back(piece.bytes.begin(), piece.bytes.end());
            }
        }
        return pieces;
    }

    Engine engine{std::size_t{1} << 20};
    std::uint64_t time = 5'000'000'000;
    MessageMonitor::Clock::time_point now{1h};
    MessageMonitor watch{engine, [this] { return now; }};
};

TEST_F(MessageMonitorTest, WhileNobodyWatchesNothingWakesIt) {
    Play({0x90, 60, 100});
    EXPECT_FALSE(IsReadable());
    EXPECT_EQ(watch.Timeout(), -1);
}

TEST_F(MessageMonitorTest, WhatComesWithinAMomentComesTogether) {
    watch.Set(true);
    EXPECT_EQ(watch.Timeout(), -1);
    Play({0x90, 60, 100});
    ASSERT_TRUE(IsReadable());
    EXPECT_FALSE(watch.Take());
    EXPECT_EQ(watch.Timeout(), MessageMonitor::kGathering.count());
    Play({0x80, 60, 64, 0xF0, 1, 0xF7});
    EXPECT_FALSE(IsReadable()) << "the look is due already";
    EXPECT_THAT(TakeLater(),
                ::testing::ElementsAre(Bytes{0x90, 60, 100}, Bytes{0x80, 60, 64}, Bytes{0xF0, 1, 0xF7}));
    EXPECT_EQ(watch.Timeout(), -1);
    EXPECT_FALSE(IsReadable());
}

TEST_F(MessageMonitorTest, TimesAreThoseOfTheSteadyClock) {
    watch.Set(true);
    engine.SetClockLead(-2'000'000'000);
    Play({0x90, 60, 100});
    watch.Take();
    now += MessageMonitor::kGathering;
    const std::optional<MonitorBatch> batch = watch.Take();
    ASSERT_TRUE(batch);
    ASSERT_EQ(batch->pieces.size(), 1U);
    EXPECT_EQ(batch->pieces[0].time, 7'000'000'000U);
    EXPECT_EQ(batch->pieces[0].port, 3);
    EXPECT_EQ(batch->pieces[0].side, kMonitoredOutput);
}

TEST_F(MessageMonitorTest, ALongQueueIsReadInRounds) {
    watch.Set(true);
    const Bytes exclusive(900, 1);
    Play({0xF0});
    std::size_t played = 1;
    for (int piece = 0; piece < 400; ++piece, played += exclusive.size()) {
        Play(exclusive);
    }
    std::size_t taken = 0;
    int rounds = 0;
    watch.Take();
    now += MessageMonitor::kGathering;
    do {
        const std::optional<MonitorBatch> batch = watch.Take();
        ASSERT_TRUE(batch);
        EXPECT_LE(batch->bytes.size(), MessageMonitor::kMostBytes + 1000);
        taken += batch->bytes.size();
        ++rounds;
    } while (watch.Timeout() == 0);
    EXPECT_EQ(taken, played);
    EXPECT_EQ(rounds, 2);
}

TEST_F(MessageMonitorTest, WhatTheEngineLeftOutIsTold) {
    watch.Set(true);
    constexpr std::uint64_t kMessages = 25'000;
    for (std::uint64_t message = 0; message < kMessages; ++message) {
        Play({0x90, 60, 100});
    }
    watch.Take();
    now += MessageMonitor::kGathering;
    std::optional<MonitorBatch> batch = watch.Take();
    ASSERT_TRUE(batch);
    EXPECT_GT(batch->leftOut, 0U);
    EXPECT_EQ(batch->leftOut + batch->pieces.size(), kMessages);
    Play({0x90, 60, 100});
    EXPECT_EQ(TakeLater().size(), 1U);
    EXPECT_EQ(engine.Tap().LeftOut(), batch->leftOut) << "nothing is left out any more";
}

TEST_F(MessageMonitorTest, NobodyWatchesAnyMore) {
    watch.Set(true);
    Play({0x90, 60, 100});
    watch.Take();
    watch.Set(false);
    EXPECT_EQ(watch.Timeout(), -1);
    EXPECT_FALSE(engine.Tap().IsOpen());
    now += 1s;
    EXPECT_FALSE(watch.Take());
}

}  // namespace
}  // namespace vexil
