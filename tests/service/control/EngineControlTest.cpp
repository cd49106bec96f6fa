// What the control thread's half of the engine does when the engine's queue is full.
#include "service/control/EngineControl.h"

#include <gtest/gtest.h>

#include "service/engine/Silencing.h"
#include "service/engine/TimedDriver.h"
#include "tests/doubles/ManualEngineClock.h"
#include "tests/doubles/MemoryMidiBackend.h"

namespace vexil {
namespace {

class EngineControlTest : public ::testing::Test {
  protected:
    // Changes test routes until the engine, which nobody drives, takes no more.
    void FillQueue() {
        control.Settle();
        ASSERT_FALSE(control.HasUnposted());
        for (int count = 0; count < 100'000 && !control.HasUnposted(); ++count) {
            control.SetTestRoute(count % kMaxPorts, Route{});
        }
        ASSERT_TRUE(control.HasUnposted());
    }

    Engine engine{std::size_t{1} << 20};
    MemoryMidiBackend backend;
    ManualEngineClock clock{backend.now};
    TimedDriver driver{engine, clock};
    EngineControl control{engine, backend, driver};
};

TEST_F(EngineControlTest, WithoutAMidiSystemEverythingIsCarriedOutAtOnce) {
    control.SetTestRoute(0, Route{});
    EXPECT_TRUE(control.IsCaughtUp());
}

TEST_F(EngineControlTest, APanicThatFoundNoRoomIsPostedOnceThereIsSome) {
    backend.Publish({{7, false, "Port 18", false}});
    backend.Start(engine);
    const auto listener = backend.NewProgram();
    ASSERT_TRUE(listener->ReadFrom("vexil3:Port 18"));
    FillQueue();
    control.Panic(std::uint64_t{1} << 7);
    for (int round = 0; round < 3; ++round) {
        backend.Cycle();
        control.Settle();
    }
    EXPECT_TRUE(control.IsCaughtUp());
    EXPECT_EQ(3 * kSilencingMessages, listener->Read().size());
}

TEST_F(EngineControlTest, WhatFoundNoRoomIsPostedAndCarriedOutInTheTurnInWhichTheMidiSystemHasGone) {
    backend.Start(engine);
    FillQueue();
    backend.LoseSystem();
    backend.HandleEvents();
    control.Settle();
    EXPECT_FALSE(control.HasUnposted());
    EXPECT_TRUE(control.IsCaughtUp());
}

TEST_F(EngineControlTest, WhatFoundNoRoomIsPostedOnceTheMidiSystemHasTakenTheRest) {
    backend.Start(engine);
    FillQueue();
    backend.Cycle();
    control.Settle();
    EXPECT_FALSE(control.HasUnposted());
    EXPECT_FALSE(control.IsCaughtUp());
    backend.Cycle();
    EXPECT_TRUE(control.IsCaughtUp());
}

}  // namespace
}  // namespace vexil
