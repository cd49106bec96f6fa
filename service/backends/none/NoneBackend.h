// No MIDI system: nothing is published, and the control thread drives the engine itself.
#pragma once

#include <string>
#include <vector>

#include "service/backends/MidiBackend.h"

namespace vexil {

class NoneBackend : public MidiBackend {
  public:
    const char* Name() const override { return "none"; }
    void Start(Engine&) override {}
    void Stop() override {}
    bool IsStuck() const override { return false; }
    bool IsRunning() const override { return false; }
    std::string Problem() const override;
    bool CanHide() const override { return true; }
    void Publish(const std::vector<Endpoint>& endpoints) override { wanted = endpoints; }
    std::vector<PublishedEndpoint> Published() const override;
    int EventDescriptor() const override { return -1; }
    int EventTimeout() const override { return -1; }
    void HandleEvents() override {}
    std::string RealtimeProblem() const override { return {}; }

  private:
    std::vector<Endpoint> wanted;
};

}  // namespace vexil
