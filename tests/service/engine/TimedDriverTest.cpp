#include "service/engine/TimedDriver.h"

#include "tests/doubles/ManualEngineClock.h"
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using std::chrono::milliseconds;

class TimedDriverTest : public ::testing::Test {
  protected:
    TimedDriverTest() {
        EXPECT_TRUE(engine.PostWay(kTestSourceBase, To(7)));
        EXPECT_TRUE(engine.PostQuantization(100));
        driver.Turn();
    }
    std::uint64_t Heard() const { return engine.CountersOfInput(7).messages; }

    std::uint64_t now = 1'003'000'000;
    Engine engine{0};
    ManualEngineClock clock{now};
    TimedDriver driver{engine, clock};
};

TEST_F(TimedDriverTest, NothingToDoNeedsNoTurn) {
    EXPECT_EQ(driver.UntilNextTurn(), std::nullopt);
}

TEST_F(TimedDriverTest, AMessageThatIsHeldBackLeavesInItsTime) {
    ASSERT_TRUE(engine.PostTestBytes(0, Bytes{0x90, 60, 100}));
    driver.Turn();
    EXPECT_EQ(Heard(), 0U);
    EXPECT_EQ(driver.UntilNextTurn(), milliseconds(7));
    now += 7'000'000;
    driver.Turn();
    EXPECT_EQ(Heard(), 1U);
    EXPECT_EQ(driver.UntilNextTurn(), std::nullopt);
}

TEST_F(TimedDriverTest, AMidiSystemThatTakesOverMayGoByAnEarlierTime) {
    ASSERT_TRUE(engine.PostQuantization(0));
    ASSERT_TRUE(engine.PostReleaseAll());
    driver.Turn();
    driver.Rest();
    MemorySink sink;
    ASSERT_TRUE(engine.PostTestBytes(0, Bytes{0x90, 60, 100}));
    engine.TakeCommands(5);
    engine.Run(6, sink);
    ASSERT_EQ(sink.heard[7].size(), 1U);
    EXPECT_EQ(sink.heard[7][0].time, 5U);
}

TEST_F(TimedDriverTest, ADestinationWithoutRoomIsTriedAgainAfterAWhile) {
    struct FullSink : SilentSink {
        std::size_t Room(const Destination&) const override { return 0; }
    };
    FullSink full;
    engine.SetRemoteSink(&full);
    ASSERT_TRUE(engine.PostWay(kTestSourceBase, {Destination::Remote(1, 7, 64), true}));
    ASSERT_TRUE(engine.PostTestBytes(0, Bytes{0x90, 60, 100}));
    driver.Turn();
    EXPECT_EQ(driver.UntilNextTurn(), milliseconds(10));
}

}  // namespace
}  // namespace vexil
