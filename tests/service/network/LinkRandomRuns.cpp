// Usage: link_random_runs [FIRST [COUNT]]: so many random runs of two computers on a wire in memory, from a
// seed on. Prints the first that fails and how it fails; exit status 0 when all pass.
#include <cstdio>
#include <cstdlib>

#include "tests/service/network/LinkPlans.h"
#include "tests/service/network/LinkWorld.h"

int main(int count, char** arguments) {
    using namespace vexil::test;
    const unsigned long first = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 1;
    const unsigned long runs = count > 2 ? std::strtoul(arguments[2], nullptr, 10) : 100'000;
    for (unsigned long run = 0; run < runs; ++run) {
        LinkWorld world(RandomPlan(static_cast<unsigned>(first + run)));
        world.Live(kSecond);
        if (world.Complaint().empty()) {
            world.HealAndCheck();
        }
        if (!world.Complaint().empty()) {
            std::printf("%s\n", world.Complaint().c_str());
            return 1;
        }
    }
    std::printf("%lu runs from seed %lu: nothing wrong\n", runs, first);
    return 0;
}
