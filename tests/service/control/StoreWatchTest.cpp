// When the driver looks at its stored configuration.
#include "service/control/StoreWatch.h"

#include <gtest/gtest.h>

#include "tests/doubles/FaultyPreferenceWatch.h"
#include "tests/doubles/MemoryPreferenceWatch.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;

class StoreWatchTest : public ::testing::Test {
  protected:
    void Change() {
        watch.Happen();
        storeWatch.Serve();
    }
    void Pass(std::chrono::milliseconds time) {
        now += time;
        storeWatch.Serve();
    }

    MemoryPreferenceWatch watch;
    StoreWatch::Clock::time_point now{1h};
    std::optional<std::chrono::milliseconds> lookAgainIn;
    int looks = 0;
    StoreWatch storeWatch{{watch, [this] { return lookAgainIn; },
                           [this] {
                               ++looks;
                               lookAgainIn.reset();
                           },
                           [this] { return now; }}};
};

TEST_F(StoreWatchTest, WithoutAChangeItHasNothingToDo) {
    EXPECT_EQ(storeWatch.EventDescriptor(), watch.EventDescriptor());
    EXPECT_EQ(storeWatch.Timeout(), -1);
    storeWatch.Serve();
    EXPECT_EQ(looks, 0);
}

TEST_F(StoreWatchTest, LooksOnceAfterTheQuietTime) {
    Change();
    EXPECT_EQ(storeWatch.Timeout(), 300);
    Pass(299ms);
    EXPECT_EQ(looks, 0);
    EXPECT_EQ(storeWatch.Timeout(), 1);
    Pass(1ms);
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(storeWatch.Timeout(), -1);
    Pass(1h);
    EXPECT_EQ(looks, 1);
}

TEST_F(StoreWatchTest, EveryChangeBeginsTheQuietTimeAnew) {
    for (int change = 0; change < 20; ++change) {
        Change();
        Pass(200ms);
    }
    EXPECT_EQ(looks, 0);
    Pass(100ms);
    EXPECT_EQ(looks, 1);
}

TEST_F(StoreWatchTest, LooksAgainWhereTheStoreCouldNotBeParsed) {
    lookAgainIn = 250ms;
    EXPECT_EQ(storeWatch.Timeout(), 250);
    lookAgainIn = 0ms;
    storeWatch.Serve();
    EXPECT_EQ(looks, 1);
    EXPECT_EQ(storeWatch.Timeout(), -1);
}

TEST_F(StoreWatchTest, TheSoonerOfTheTwoTimesCounts) {
    Change();
    lookAgainIn = 250ms;
    EXPECT_EQ(storeWatch.Timeout(), 250);
    lookAgainIn = 400ms;
    EXPECT_EQ(storeWatch.Timeout(), 300);
}

TEST_F(StoreWatchTest, AWatchThatFailsTellsNothing) {
    FaultyPreferenceWatch faulty(watch);
    faulty.Fail(true);
    StoreWatch deaf({faulty, [] { return std::nullopt; }, [this] { ++looks; }, [this] { return now; }});
    watch.Happen();
    deaf.Serve();
    now += 1h;
    deaf.Serve();
    EXPECT_EQ(deaf.EventDescriptor(), -1);
    EXPECT_EQ(deaf.Timeout(), -1);
    EXPECT_EQ(looks, 0);
}

}  // namespace
}  // namespace vexil
