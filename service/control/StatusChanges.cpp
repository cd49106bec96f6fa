#include "service/control/StatusChanges.h"

#include <algorithm>

#include "shared/System/Deadline.h"

namespace vexil {

void StatusChanges::SetWatched(bool on) {
    if (on == watched) {
        return;
    }
    watched = on;
    stateDue.reset();
    trafficDue.reset();
    state.clear();
    if (!watched) {
        return;
    }
    // Nobody has looked meanwhile.
    Count();
    state = parts.state();
    lastLook = parts.now();
    traffic = parts.traffic();
    AwaitTraffic();
}

void StatusChanges::Carried() {
    if (watched && !trafficDue) {
        LookAtTraffic();
    }
}

void StatusChanges::Settle() {
    if (!watched) {
        return;
    }
    const Clock::time_point now = parts.now();
    const auto isDue = [now](const std::optional<Clock::time_point>& due) { return due && now >= *due; };
    // A turn that only a look was due in is nothing that has happened.
    const bool hasHappened = !isDue(stateDue) && !isDue(trafficDue);
    if (isDue(trafficDue)) {
        LookAtTraffic();
    }
    if (!stateDue && hasHappened) {
        stateDue = std::max(now, lastLook + kStateInterval);
    }
    if (isDue(stateDue)) {
        LookAtState();
    }
}

int StatusChanges::Timeout() const {
    if (!stateDue && !trafficDue) {
        return -1;
    }
    const Clock::time_point next =
        std::min(stateDue.value_or(Clock::time_point::max()), trafficDue.value_or(Clock::time_point::max()));
    return MillisecondsUntil(next, parts.now());
}

void StatusChanges::LookAtState() {
    stateDue.reset();
    lastLook = parts.now();
    std::string next = parts.state();
    if (next != state) {
        state = std::move(next);
        Count();
    }
}

// The look that finds nothing new is told as well: from it the reader knows that nothing is played any more.
void StatusChanges::LookAtTraffic() {
    const std::uint64_t next = parts.traffic();
    const bool isPlayed = next != traffic;
    traffic = next;
    ++looks;
    Count();
    if (isPlayed) {
        trafficDue = parts.now() + kTrafficInterval;
    } else {
        trafficDue.reset();
        AwaitTraffic();
    }
}

void StatusChanges::AwaitTraffic() {
    parts.awaitTraffic();
    // What was carried before that wakes nobody.
    if (parts.traffic() != traffic) {
        trafficDue = parts.now() + kTrafficInterval;
    }
}

void StatusChanges::Count() {
    ++number;
    if (number == 0) {
        ++number;
    }
}

}  // namespace vexil
