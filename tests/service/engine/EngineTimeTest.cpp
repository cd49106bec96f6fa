// When messages leave where more than one rule has a say.
#include "tests/service/engine/EngineFixture.h"

namespace vexil {
namespace {

using ::testing::ElementsAre;

constexpr std::uint64_t kMillisecond = 1'000'000;

class EngineTimeTest : public ::testing::Test {
  protected:
    EngineTimeTest() {
        WayTable ways;
        ways[3] = To(7);
        EXPECT_TRUE(engine.PostWays(ways));
        engine.TakeCommands(now);
    }

    Engine engine;
    MemorySink sink;
    std::uint64_t now = 1000 * kMillisecond;
};

TEST_F(EngineTimeTest, ASystemExclusiveIsHeldBackOnceAndNotWithEachOfItsPieces) {
    ASSERT_TRUE(engine.PostQuantization(100));
    engine.TakeCommands(now);
    engine.Write(3, 1001 * kMillisecond, Bytes{0xF0, 1});
    engine.Run(1011 * kMillisecond, sink);
    engine.Write(3, 1012 * kMillisecond, Bytes{2});
    engine.Run(1013 * kMillisecond, sink);
    engine.Write(3, 1013 * kMillisecond, Bytes{3, 0xF7});
    engine.Run(1014 * kMillisecond, sink);
    EXPECT_THAT(sink.heard[7],
                ElementsAre(Delivery{1010 * kMillisecond, {0xF0, 1}}, Delivery{1012 * kMillisecond, {2}},
                            Delivery{1013 * kMillisecond, {3, 0xF7}}));
}

TEST_F(EngineTimeTest, AnInputThatHeardSomethingBeforeALossHearsByTheNewClock) {
    engine.Write(3, now, Bytes{0x90, 60, 100});
    engine.Run(now + 1, sink);
    engine.Forget();
    MemorySink fresh;
    engine.Write(3, 5, Bytes{0x90, 62, 100});
    engine.Run(6, fresh);
    EXPECT_THAT(fresh.heard[7], ElementsAre(Delivery{5, {0x90, 62, 100}}));
}

}  // namespace
}  // namespace vexil
