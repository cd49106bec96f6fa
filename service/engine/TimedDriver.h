// Drives the engine on the thread that calls it, by a clock. What is played is heard by remote destinations;
// inputs here have no readers without a MIDI system, so releases count as heard.
#pragma once

#include "service/engine/Engine.h"
#include "service/engine/EngineDriver.h"

namespace vexil {

class TimedDriver : public EngineDriver {
  public:
    // Both must outlive this object.
    TimedDriver(Engine& drivenEngine, const EngineClock& engineClock)
        : engine(drivenEngine), clock(engineClock) {}

    void Turn() override;
    // A MIDI system goes by a clock of its own.
    void Rest() override { engine.ForgetTimes(); }
    std::optional<std::chrono::nanoseconds> UntilNextTurn() const override;

  private:
    Engine& engine;
    const EngineClock& clock;
    SilentSink inputs;
};

}  // namespace vexil
