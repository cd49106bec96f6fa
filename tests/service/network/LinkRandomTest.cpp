// Random runs of two computers, by seed: what must hold while everything goes wrong, and that it gets going
// again when the faults stop. VEXIL_LINK_RUNS says how many; LinkRandomRuns runs as many as you ask for.
#include <gtest/gtest.h>

#include "tests/service/network/LinkPlans.h"
#include "tests/service/network/LinkWorld.h"

namespace vexil::test {
namespace {

constexpr unsigned kRuns = VEXIL_LINK_RUNS;

TEST(LinkRandom, NothingIsLostDoubledOrSwappedAndItGetsGoingAgain) {
    for (unsigned seed = 1; seed <= kRuns; ++seed) {
        ASSERT_EQ(ComplaintOf(RandomPlan(seed), kSecond / 2), "");
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

}  // namespace
}  // namespace vexil::test
