// What the engine counts. The engine thread raises, any thread reads.
#pragma once

#include <atomic>
#include <cstdint>

namespace vexil {

class Counter {
  public:
    void Add(std::uint64_t more) {
        value.store(value.load(std::memory_order_relaxed) + more, std::memory_order_relaxed);
    }
    std::uint64_t Read() const { return value.load(std::memory_order_relaxed); }

  private:
    std::atomic<std::uint64_t> value{0};
};

struct SourceCounters {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t filtered = 0;  // messages that lead nowhere
    // Messages lost because a queue was full or before they came here, or cut by kLongestSilence.
    std::uint64_t dropped = 0;
};
struct InputCounters {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

}  // namespace vexil
