// When JACK was last heard of: by the thread that asks it, and by its own cycles. Lets the control thread
// tell a JACK that takes its time from one that stands still, without asking it. Any thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace vexil {

class JackPulse {
  public:
    using Clock = std::chrono::steady_clock;

    // An answer is awaited from now on, unless one is already.
    void Await() {
        std::int64_t nobody = 0;
        asked.compare_exchange_strong(nobody, Now(), std::memory_order_relaxed);
    }
    // JACK has answered, and is asked the next thing.
    void Beat() { asked.store(Now(), std::memory_order_relaxed); }
    // No answer is awaited.
    void Rest() { asked.store(0, std::memory_order_relaxed); }
    // Since when an answer is awaited; null when no answer is.
    std::optional<Clock::time_point> AwaitedSince() const { return TimeOf(asked); }

    // A cycle has begun. Reads the clock and does nothing else.
    void Cycle() { cycle.store(Now(), std::memory_order_relaxed); }
    // There are no cycles to expect.
    void ForgetCycles() { cycle.store(0, std::memory_order_relaxed); }
    // When the last cycle began; null when no cycles are expected.
    std::optional<Clock::time_point> LastCycle() const { return TimeOf(cycle); }

  private:
    static std::int64_t Now() { return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count(); }
    static std::optional<Clock::time_point> TimeOf(const std::atomic<std::int64_t>& time) {
        const std::int64_t value = time.load(std::memory_order_relaxed);
        return value == 0 ? std::nullopt : std::optional(Clock::time_point(std::chrono::nanoseconds(value)));
    }

    std::atomic<std::int64_t> asked{0};  // nanoseconds of the clock; 0: nothing is awaited
    std::atomic<std::int64_t> cycle{0};
};

}  // namespace vexil
