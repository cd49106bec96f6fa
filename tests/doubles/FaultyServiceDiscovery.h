// DNS-SD around another that fails on demand, in the way of a system whose part of it has ended.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "service/network/ServiceDiscovery.h"

namespace vexil {

class FaultyServiceDiscovery : public ServiceDiscovery {
  public:
    // `wrappedDiscovery` must outlive this object.
    explicit FaultyServiceDiscovery(ServiceDiscovery& wrappedDiscovery) : wrapped(wrappedDiscovery) {}

    void Fail(bool on) { failing = on; }

    int EventDescriptor() const override { return wrapped.EventDescriptor(); }
    void Set(const std::optional<ServiceWish>& wish) override { wrapped.Set(wish); }
    void LookAgain() override { wrapped.LookAgain(); }
    bool Serve() override { return wrapped.Serve(); }
    State CurrentState() const override {
        const State state = wrapped.CurrentState();
        return failing && state != State::Off ? State::Missing : state;
    }
    std::vector<NetworkAddress> Hints() const override {
        return failing ? std::vector<NetworkAddress>() : wrapped.Hints();
    }
    std::vector<FoundService> Found() const override {
        return failing ? std::vector<FoundService>() : wrapped.Found();
    }
    std::string Problem() const override {
        return CurrentState() == State::Missing ? "There is no DNS-SD." : wrapped.Problem();
    }

  private:
    ServiceDiscovery& wrapped;
    bool failing = false;
};

}  // namespace vexil
