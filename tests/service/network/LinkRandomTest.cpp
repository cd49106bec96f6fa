// Random runs of two computers, by seed: what must hold while everything goes wrong, and that it gets going
// again when the faults stop. LinkRandomRuns runs as many as you ask for.
#include <gtest/gtest.h>

#include "tests/service/network/LinkPlans.h"
#include "tests/service/network/LinkWorld.h"

namespace vexil::test {
namespace {

constexpr unsigned kRuns = 150;

std::string RunOne(const WorldPlan& plan, Microseconds span) {
    LinkWorld world(plan);
    world.Live(span);
    if (world.Complaint().empty()) {
        world.HealAndCheck();
    }
    return world.Complaint();
}

TEST(LinkRandom, NothingIsLostDoubledOrSwappedAndItGetsGoingAgain) {
    for (unsigned seed = 1; seed <= kRuns; ++seed) {
        ASSERT_EQ(RunOne(RandomPlan(seed), kSecond / 2), "");
    }
}

TEST(LinkRandom, WithoutRestartsAndCutsEverythingIsHeard) {
    for (unsigned seed = 1; seed <= kRuns; ++seed) {
        WorldPlan plan = RandomPlan(seed);
        plan.restart = plan.cut = plan.wayChange = 0;
        plan.faults.loss = std::min(plan.faults.loss, 0.2);
        LinkWorld world(plan);
        for (int tries = 0; tries < 12 && !world.BothUp(); ++tries) {
            world.Rest(kSecond / 2);
        }
        ASSERT_TRUE(world.BothUp()) << seed;
        world.Rest(kSecond);
        const long associations = world.Associations();
        world.Live(kSecond / 5);
        world.Rest(3 * kSecond);
        ASSERT_EQ(world.Complaint(), "");
        ASSERT_EQ(world.Associations(), associations) << seed;
        ASSERT_EQ(world.End(0).Counters().cutWays + world.End(1).Counters().cutWays, 0U) << seed;
        ASSERT_EQ(world.Heard(), world.Sent()) << seed;
    }
}

class PlantedFault : public testing::TestWithParam<Planted> {};

TEST_P(PlantedFault, IsFound) {
    int found = 0;
    for (unsigned seed = 1; seed <= 20; ++seed) {
        WorldPlan plan = RandomPlan(seed);
        plan.restart = 0;
        plan.cut = 0;
        plan.wayChange = 0.01;
        plan.exclusive = 0.1;
        plan.meanInterval = 1000;
        plan.faults.loss = std::max(plan.faults.loss, 0.1);
        plan.planted = GetParam();
        found += RunOne(plan, 2 * kSecond).empty() ? 0 : 1;
    }
    EXPECT_GE(found, 10);
}

INSTANTIATE_TEST_SUITE_P(LinkRandom, PlantedFault,
                         testing::Values(Planted::MessageSwallowed, Planted::MessageTwice,
                                         Planted::MessagesSwapped, Planted::EndSwallowed,
                                         Planted::ExclusiveDamaged, Planted::FalseAcknowledgement,
                                         Planted::WayNumbersShifted));

}  // namespace
}  // namespace vexil::test
