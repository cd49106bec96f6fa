// When the driver is to look at its stored configuration: once others have left it in peace for kQuiet, for a
// panel or a tool writes many values one after the other; and again where what is there could not be parsed.
//
// One thread. Idle, it has no time of its own.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include "platform/linux/preferences/PreferenceWatch.h"

namespace vexil {

class StoreWatch {
  public:
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::milliseconds;

    static constexpr Milliseconds kQuiet{300};

    struct Parts {
        PreferenceWatch& watch;                                    // must outlive this object
        std::function<std::optional<Milliseconds>()> lookAgainIn;  // as PlistPreferenceDomains has it
        std::function<void()> look;
        std::function<Clock::time_point()> now;
    };

    explicit StoreWatch(Parts watchParts) : parts(std::move(watchParts)) {}

    int EventDescriptor() const { return parts.watch.EventDescriptor(); }
    // Milliseconds until Serve is to be called although the descriptor is not readable; -1: never.
    int Timeout() const;
    // For when the descriptor is readable or the time is over.
    void Serve();

  private:
    const Parts parts;
    std::optional<Clock::time_point> lookAt;
};

}  // namespace vexil
