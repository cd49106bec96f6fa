// Keeps the engine's thread, which nothing of normal priority interrupts, from taking the whole of a
// processor: of any time it works for four fifths at most, and then rests a moment before the kernel makes it
// rest for longer. The engine thread's. Nanoseconds.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "service/engine/TurnLimit.h"

namespace vexil {

class WorkLimit final : public TurnLimit {
  public:
    static constexpr std::uint64_t kMostWork = 20'000'000;
    static constexpr std::uint64_t kRest = 5'000'000;

    // Two clocks: of the time, and of what the thread has had of a processor. Neither goes back.
    using Clock = std::uint64_t (*)();
    WorkLimit(Clock timeClock, Clock workClock) : time(timeClock), work(workClock) {}

    // A turn may use up what is left.
    bool MayGoOn() override {
        mayGoOn = mayGoOn && worked + (time() - began) < kMostWork;
        return mayGoOn;
    }
    // The turn has stopped before it was done.
    bool HasStopped() const { return !mayGoOn; }

    // A turn begins.
    void Begin() {
        Account();
        began = lastTime;
        mayGoOn = true;
    }
    // The turn is over. Returns how long to rest before any other wait; 0: that is not needed.
    std::uint64_t End() {
        Account();
        return worked >= kMostWork ? kRest : 0;
    }

  private:
    void Account() {
        const std::uint64_t timeNow = time();
        const std::uint64_t workNow = work();
        const std::uint64_t passed = timeNow - std::exchange(lastTime, timeNow);
        const std::uint64_t used = workNow - std::exchange(lastWork, workNow);
        const std::uint64_t rested = passed - std::min(passed, used);
        worked += used;
        worked -= std::min(worked, rested * (kMostWork / kRest));
    }

    const Clock time;
    const Clock work;
    std::uint64_t began = 0;
    std::uint64_t lastTime = 0;  // when Account was last called
    std::uint64_t lastWork = 0;
    std::uint64_t worked = 0;  // that no rest has made good
    bool mayGoOn = true;
};

}  // namespace vexil
