// Wraps a back end and fails on demand: a MIDI system that is not there yet, endpoints that it refuses, no
// realtime priority.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "service/backends/MidiBackend.h"

namespace vexil {

class FaultyMidiBackend : public MidiBackend {
  public:
    // `wrapped` must outlive this object and not be started.
    explicit FaultyMidiBackend(MidiBackend& wrapped) : inner(wrapped) {}

    // Not empty: the system is not there when the service starts. Empty again: the next Service takes it up.
    std::string away;
    // Endpoints, by port and side (true: output), that the system refuses, and what it says. From the next
    // Publish on.
    std::map<std::pair<int, bool>, std::string> refused;
    // Not empty: says so in place of what the wrapped one says.
    std::string realtimeProblem;

    const char* Name() const override { return inner.Name(); }
    void Start(Engine& engine) override {
        toStart = &engine;
        problem = away;
        StartInner();
    }
    void Stop() override {
        toStart = nullptr;
        inner.Stop();
    }
    bool IsStuck() const override { return inner.IsStuck(); }
    bool IsRunning() const override { return inner.IsRunning(); }
    std::string Problem() const override { return toStart != nullptr ? problem : inner.Problem(); }
    bool CanHide() const override { return inner.CanHide(); }
    void Publish(const std::vector<Endpoint>& endpoints) override {
        wanted = endpoints;
        refusedNow = refused;
        std::vector<Endpoint> taken;
        for (const Endpoint& endpoint : endpoints) {
            if (!refusedNow.contains({endpoint.port, endpoint.output})) {
                taken.push_back(endpoint);
            }
        }
        inner.Publish(taken);
    }
    std::vector<PublishedEndpoint> Published() const override {
        std::vector<PublishedEndpoint> published;
        const std::vector<PublishedEndpoint> taken = inner.Published();
        auto next = taken.begin();
        for (const Endpoint& endpoint : wanted) {
            const bool isTaken =
                next != taken.end() && next->port == endpoint.port && next->output == endpoint.output;
            if (isTaken) {
                published.push_back(*next++);
            } else {
                published.push_back(
                    {endpoint.port, endpoint.output, "", 0, refusedNow.at({endpoint.port, endpoint.output})});
            }
        }
        return published;
    }
    int EventDescriptor() const override { return inner.EventDescriptor(); }
    int EventTimeout() const override { return inner.EventTimeout(); }
    void HandleEvents() override {
        StartInner();
        inner.HandleEvents();
    }
    std::string RealtimeProblem() const override {
        return realtimeProblem.empty() ? inner.RealtimeProblem() : realtimeProblem;
    }

  private:
    void StartInner() {
        if (away.empty() && toStart != nullptr) {
            inner.Start(*std::exchange(toStart, nullptr));
        }
    }

    MidiBackend& inner;
    Engine* toStart = nullptr;  // what the wrapped back end has still to be started with
    std::string problem;
    std::vector<Endpoint> wanted;
    std::map<std::pair<int, bool>, std::string> refusedNow;
};

}  // namespace vexil
