// The checks of the random runs: mistakes are planted, and the checks have to find them.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/service/network/LinkPlans.h"
#include "tests/service/network/LinkWorld.h"

namespace vexil::test {
namespace {

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
        found += ComplaintOf(plan, 2 * kSecond).empty() ? 0 : 1;
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
