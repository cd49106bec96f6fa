// The endpoints as MIDI ports of one JACK client, on a JACK server or on PipeWire through its own libjack.
// JACK's process thread is the engine thread. A server that is not there, goes, or comes back is waited for,
// and so is one that stands still: by a thread of its own, never by the control thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "service/backends/LossSum.h"
#include "service/backends/MidiBackend.h"
#include "service/backends/RuntimeState.h"
#include "service/backends/jack/JackControlThread.h"
#include "service/backends/jack/JackServerWatch.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class JackBackend final : public MidiBackend {
  public:
    explicit JackBackend(RuntimeState runtimeState = {},
                         std::vector<JackServerWatch::Place> serverPlaces = JackServerWatch::UsualPlaces());
    ~JackBackend() override;
    JackBackend(const JackBackend&) = delete;
    JackBackend& operator=(const JackBackend&) = delete;

    const char* Name() const override { return "jack"; }
    void Start(Engine& served) override;
    void Stop() override;
    bool IsStuck() const override { return isStuck; }
    bool IsRunning() const override { return client != 0; }
    std::string Problem() const override;
    bool CanHide() const override { return false; }
    void Publish(const std::vector<Endpoint>& endpoints) override;
    std::vector<PublishedEndpoint> Published() const override;
    int EventDescriptor() const override { return event.Number(); }
    int EventTimeout() const override;
    void HandleEvents() override;
    std::string RealtimeProblem() const override;

    // What was published last has been taken up: it is there, or waits for what goes, or was refused.
    bool IsTakenUp() const { return !IsRunning() || thread->IsTakenUp(); }
    // What had to leave has left, too, and nothing waits any longer.
    bool IsSettled() const { return !IsRunning() || thread->IsSettled(); }

  private:
    std::string WhyNotThere(const Endpoint& endpoint) const;

    const RuntimeState state;
    const std::vector<JackServerWatch::Place> places;
    const Descriptor event;    // raised by the thread
    Engine* engine = nullptr;  // null: not started, or stopped
    LossSum losses;
    std::unique_ptr<JackControlThread> thread;  // as long as there is an engine
    unsigned client = 0;                        // that drives the engine: which of those opened; 0: none
    std::string problem = "JACK is being started.";
    std::vector<Endpoint> wanted;
    bool wasSilent = false;  // JACK, when HandleEvents last looked
    bool isStuck = false;
};

}  // namespace vexil
