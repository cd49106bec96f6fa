#include "service/engine/TimedDriver.h"

#include <algorithm>

namespace vexil {

namespace {

// After which a destination without room is tried again.
constexpr std::chrono::milliseconds kRetry{10};

}  // namespace

void TimedDriver::Turn() {
    const std::uint64_t now = clock.Now();
    engine.SetClockLead(0);
    engine.TakeCommands(now);
    engine.TakeArrivals(0);
    // What is due at this very moment as well.
    engine.Run(now + 1, inputs);
}

std::optional<std::chrono::nanoseconds> TimedDriver::UntilNextTurn() const {
    const std::optional<std::uint64_t> due = engine.NextDue();
    if (!due) {
        return std::nullopt;
    }
    const std::uint64_t now = clock.Now();
    return *due > now ? std::chrono::nanoseconds(*due - now) : std::chrono::nanoseconds(kRetry);
}

}  // namespace vexil
