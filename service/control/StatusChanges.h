// Knows that the status has changed, for whoever waits for it. A look at the status costs something, so there
// is one only while somebody waits, only behind something that has happened, and not more often than
// kStateInterval. The engine's counters are looked at apart: every kTrafficInterval while messages are
// carried, and never while the engine is silent.
//
// One thread, the control thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace vexil {

class StatusChanges {
  public:
    using Clock = std::chrono::steady_clock;

    struct Parts {
        std::function<std::string()> state;      // differs when the status has changed
        std::function<std::uint64_t()> traffic;  // grows with every message that the engine carries
        std::function<void()> awaitTraffic;      // Carried is to be called behind the next message
        std::function<Clock::time_point()> now;
    };

    static constexpr std::chrono::milliseconds kStateInterval{100};
    static constexpr std::chrono::milliseconds kTrafficInterval{250};

    explicit StatusChanges(Parts itsParts) : parts(std::move(itsParts)) {}

    // Another one since the status has changed; never 0.
    std::uint32_t Number() const { return number; }
    // How often the counters were looked at: two equal ones between two looks mean that nothing is played.
    std::uint32_t Looks() const { return looks; }

    // Whether somebody waits.
    void SetWatched(bool on);
    // The engine has carried a message since awaitTraffic was called.
    void Carried();
    // To be called after everything that happens, and after Timeout.
    void Settle();
    // Milliseconds until Settle is to be called although nothing happens; -1: not before something does.
    int Timeout() const;

  private:
    void LookAtState();
    void LookAtTraffic();
    void AwaitTraffic();
    void Count();

    const Parts parts;
    std::uint32_t number = 1;
    std::uint32_t looks = 0;
    bool watched = false;
    std::string state;                            // at the last look
    std::uint64_t traffic = 0;                    // at the last look
    Clock::time_point lastLook;                   // at the state
    std::optional<Clock::time_point> stateDue;    // something has happened
    std::optional<Clock::time_point> trafficDue;  // messages are being carried
};

}  // namespace vexil
