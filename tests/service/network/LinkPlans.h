// What a seed makes of a world.
#pragma once

#include <random>
#include <string>

#include "tests/service/network/LinkWorld.h"

namespace vexil::test {

inline WorldPlan RandomPlan(unsigned seed) {
    std::mt19937 random(seed);
    const auto share = [&random] { return static_cast<double>(random()) / 4294967296.0; };
    WorldPlan plan;
    plan.seed = seed;
    plan.faults.loss = share() < 0.2 ? 0 : 0.3 * share();
    plan.faults.duplicates = share() < 0.5 ? 0 : 0.2 * share();
    plan.faults.delay = random() % 3 == 0 ? random() % 30000 : random() % 1000;
    plan.faults.jitter = random() % 2 == 0 ? random() % 300 : random() % 20000;
    plan.ways = 1 + static_cast<int>(random() % 6);
    plan.meanInterval = random() % 4 == 0 ? 700 : 2000 + random() % 20000;
    plan.exclusive = random() % 2 == 0 ? 0 : 0.1 * share();
    plan.longestExclusive = random() % 8 == 0 ? 20000 : 1500;
    plan.wayChange = random() % 2 == 0 ? 0 : 0.02;
    plan.restart = random() % 4 == 0 ? 0.05 : 0;
    plan.cut = random() % 4 == 0 ? 0.05 : 0;
    return plan;
}

// What is wrong in a world that lives so long with its faults, and then without them; empty: nothing.
inline std::string ComplaintOf(const WorldPlan& plan, Microseconds span) {
    LinkWorld world(plan);
    world.Live(span);
    if (world.Complaint().empty()) {
        world.HealAndCheck();
    }
    return world.Complaint();
}

}  // namespace vexil::test
