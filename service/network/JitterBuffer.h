// Evens out what comes by a wireless interface, where datagrams come in bunches: everything is played a while
// after it was due, and that while follows the jitter.
//
// Pure; times are microseconds; nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexil {

class JitterBuffer {
  public:
    // The delay lies between these.
    static constexpr std::uint64_t kShortest = 2'000;
    static constexpr std::uint64_t kLongest = 20'000;

    // Something that was due at a time (see LinkEvent::due) has arrived now: when it is to be played, not
    // before now.
    std::uint64_t PlayAt(std::uint64_t now, std::uint64_t due);
    // So late came 99 of 100 in the last 10 s, within the bounds. It changes once a second.
    std::uint64_t Delay() const { return delay; }

  private:
    static constexpr std::uint64_t kSpan = 1'000'000;  // of one of the parts of the 10 s
    static constexpr std::size_t kSpans = 10;
    static constexpr std::uint64_t kStep = 250;
    static constexpr std::size_t kSteps = kLongest / kStep + 1;  // the last one: that late or later

    void NextSpan();

    using Counts = std::array<std::uint32_t, kSteps>;
    std::array<Counts, kSpans> spans{};
    std::size_t present = 0;
    std::uint64_t spanBegin = 0;
    bool begun = false;
    std::uint64_t delay = kShortest;
};

}  // namespace vexil
