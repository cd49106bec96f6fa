// MIDI between computers around another that fails on demand, in the way of a computer whose socket is gone.
#pragma once

#include <string>
#include <vector>

#include "service/control/RemoteNetwork.h"

namespace vexil {

class FaultyRemoteNetwork : public RemoteNetwork {
  public:
    // `wrappedNetwork` must outlive this object.
    explicit FaultyRemoteNetwork(RemoteNetwork& wrappedNetwork) : wrapped(wrappedNetwork) {}

    // From now on nothing is reached, for this reason, one sentence; empty: as usual again.
    void Fail(const std::string& sentence) { problem = sentence; }

    void SetWishes(const RemoteWishes& wishes) override { wrapped.SetWishes(wishes); }
    RemoteAnswer Find(const RemoteWish& wish) const override {
        return problem.empty() ? wrapped.Find(wish) : RemoteAnswer{0, problem, false};
    }
    bool IsThisComputer(const std::string& text) const override { return wrapped.IsThisComputer(text); }
    std::uint16_t Port() const override { return problem.empty() ? wrapped.Port() : std::uint16_t{0}; }
    std::vector<HostRecord> Computers() const override {
        return problem.empty() ? wrapped.Computers() : std::vector<HostRecord>{};
    }
    void Browse() override {
        if (problem.empty()) {
            wrapped.Browse();
        }
    }
    RemoteStatus Status() const override {
        RemoteStatus status = wrapped.Status();
        if (!problem.empty()) {
            status.problem = problem;
            status.port = 0;
            status.key.clear();
            status.sessions.clear();
        }
        return status;
    }
    std::string Command(const std::vector<std::string>& words) override { return wrapped.Command(words); }
    int EventDescriptor() const override { return wrapped.EventDescriptor(); }
    int Timeout() const override { return wrapped.Timeout(); }
    bool Serve() override { return wrapped.Serve(); }
    void Stop() override { wrapped.Stop(); }

  private:
    RemoteNetwork& wrapped;
    std::string problem;
};

}  // namespace vexil
