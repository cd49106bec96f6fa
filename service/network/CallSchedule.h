// When a computer that is needed and not there is called again. Pure; times are microseconds.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace vexil {

class CallSchedule {
  public:
    // There is a new reason to hope: a route came, the peer announced itself, an address or the configuration
    // changed, the computer woke. The next call is now.
    void Begin(std::uint64_t now) {
        begun = now;
        next = now;
        calls = 0;
    }
    std::uint64_t Next() const { return next; }
    // A call was made: after 0.1, 0.2, 0.4 and 0.8 s, then every second for a minute, then every 2 s.
    void Called(std::uint64_t now) {
        const std::uint64_t later = now - begun < kMinute ? kSecond : 2 * kSecond;
        next = now + (calls < kFirst.size() ? kFirst[calls] : later);
        ++calls;
    }
    // Calls since the last Begin.
    std::size_t Calls() const { return calls; }
    // The peer does not let us in: not before 30 s.
    void Refused(std::uint64_t now) { next = now + 30 * kSecond; }

  private:
    static constexpr std::uint64_t kSecond = 1'000'000;
    static constexpr std::uint64_t kMinute = 60 * kSecond;
    static constexpr std::array<std::uint64_t, 4> kFirst = {100'000, 200'000, 400'000, 800'000};

    std::uint64_t begun = 0;
    std::uint64_t next = 0;
    std::size_t calls = 0;
};

}  // namespace vexil
