// DNS-SD in memory: other computers are there as the test says, and the system's part of it comes and goes.
#pragma once

#include <sys/eventfd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "service/network/ServiceDiscovery.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class MemoryServiceDiscovery : public ServiceDiscovery {
  public:
    // Another computer is at an address from now on, or no longer.
    void Offer(const std::string& name, const NetworkAddress& address) {
        offers[name] = address;
        Tell();
    }
    void Withdraw(const std::string& name) {
        offers.erase(name);
        Tell();
    }
    // The system's part of it ends, or begins.
    void Go() {
        present = false;
        Tell();
    }
    void Come() {
        present = true;
        Tell();
    }
    // What others see of this computer.
    std::optional<ServiceWish> Published() const { return present ? wish : std::nullopt; }
    int TimesLookedAgain() const { return looks; }

    int EventDescriptor() const override { return event.Number(); }
    void Set(const std::optional<ServiceWish>& wanted) override {
        if (wish != wanted) {
            wish = wanted;
            Tell();
        }
    }
    void LookAgain() override { ++looks; }
    bool Serve() override {
        eventfd_t ignored = 0;
        static_cast<void>(!eventfd_read(event.Number(), &ignored));
        return std::exchange(hasChanged, false);
    }
    State CurrentState() const override { return !wish ? State::Off : present ? State::On : State::Missing; }
    std::vector<NetworkAddress> Hints() const override {
        std::vector<NetworkAddress> hints;
        for (const FoundService& each : Found()) {
            hints.push_back(each.address);
        }
        return hints;
    }
    std::vector<FoundService> Found() const override {
        std::vector<FoundService> found;
        for (const auto& [name, address] : offers) {
            const bool isLooked =
                CurrentState() == State::On &&
                (wish->interfaces.empty() ||
                 std::count(wish->interfaces.begin(), wish->interfaces.end(), address.interface) > 0);
            if (isLooked && found.size() < kMostHints) {
                found.push_back({name, address});
            }
        }
        return found;
    }
    std::string Problem() const override {
        return CurrentState() == State::Missing ? "There is no DNS-SD." : "";
    }

  private:
    void Tell() {
        hasChanged = true;
        static_cast<void>(!eventfd_write(event.Number(), 1));
    }

    std::map<std::string, NetworkAddress> offers;
    std::optional<ServiceWish> wish;
    bool present = true;
    bool hasChanged = false;
    int looks = 0;
    Descriptor event{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

}  // namespace vexil
