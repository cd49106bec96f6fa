// Drives the engine while no MIDI system does, on two threads: the control thread after each of its posts,
// and the network's thread, where there is one, for what comes from other computers and for what becomes due.
// Without such a thread it is a TimedDriver.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

#include "service/engine/Engine.h"
#include "service/engine/EngineDriver.h"
#include "service/engine/TimedDriver.h"
#include "service/network/PriorityMutex.h"

namespace vexil {

class NetworkDriver : public EngineDriver {
  public:
    // Both must outlive this object.
    NetworkDriver(Engine& drivenEngine, const EngineClock& engineClock)
        : engine(drivenEngine), timed(drivenEngine, engineClock) {}

    // Control thread. Whose thread is woken after each Turn that left something to be done later; null, as at
    // first: the caller comes back by UntilNextTurn.
    void SetThread(EngineWaker* threadWaker) {
        const std::lock_guard lock(mutex);
        thread = threadWaker;
    }

    void Turn() override {
        const std::lock_guard lock(mutex);
        drives = true;
        timed.Turn();
        if (thread != nullptr && engine.NextDue()) {
            thread->Wake();
        }
    }
    void Rest() override {
        const std::lock_guard lock(mutex);
        drives = false;
        timed.Rest();
    }
    std::optional<std::chrono::nanoseconds> UntilNextTurn() const override {
        const std::lock_guard lock(mutex);
        return thread != nullptr ? std::nullopt : timed.UntilNextTurn();
    }

    // The network's thread: turns the engine if no MIDI system drives it. How long until the next turn; null
    // when no turn is due.
    std::optional<std::chrono::nanoseconds> TurnOfThread() {
        const std::lock_guard lock(mutex);
        if (!drives) {
            return std::nullopt;
        }
        timed.Turn();
        return timed.UntilNextTurn();
    }

  private:
    Engine& engine;
    TimedDriver timed;
    mutable PriorityMutex mutex;
    bool drives = false;
    EngineWaker* thread = nullptr;
};

}  // namespace vexil
