// Suspects that a way is part of a loop: programs that are connected in a ring send the same messages round
// and round, and more with each that is played. Nobody plays so much: a way that carries more than
// kUsualRate messages a second, for kUsualSeconds in a row, is suspected until a second is quieter.
//
// Threads. Rate is for any; the rest is for the engine thread. Times are the engine's.
#pragma once

#include <atomic>
#include <cstdint>

namespace vexil {

class LoopWatch {
  public:
    static constexpr std::uint64_t kUsualRate = 5000;
    static constexpr int kUsualSeconds = 2;

    // A message was carried. True when it brings the suspicion.
    bool Count(std::uint64_t time) {
        const bool begins = IsSecondOver(time) && NextSecond(time);
        ++count;
        return begins;
    }
    // Time has passed, perhaps without a message. Whether the way is suspected.
    bool Look(std::uint64_t time) {
        if (IsSecondOver(time)) {
            NextSecond(time);
        }
        return Rate() != 0;
    }
    // When Look may have another answer than before, if no message comes.
    std::uint64_t NextLook() const { return start + kSecond; }

    // Messages in the last whole second while the way is suspected; else 0.
    std::uint64_t Rate() const { return rate.load(std::memory_order_relaxed); }

  private:
    static constexpr std::uint64_t kSecond = 1'000'000'000;

    // Also when another clock has gone back.
    bool IsSecondOver(std::uint64_t time) const { return time - start >= kSecond; }
    bool NextSecond(std::uint64_t time);

    std::uint64_t start = 0;  // of the second that is counted
    std::uint64_t count = 0;
    int seconds = 0;  // in a row, with more messages than is usual
    std::atomic<std::uint64_t> rate{0};
};

}  // namespace vexil
