// Avahi on the system bus of this process, as far as a driver uses it. It works when it is told to (Work), so
// a test decides when it answers, and whether.
//
// One thread, the test's.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "service/network/ServiceDiscovery.h"

struct sd_bus;
struct sd_bus_message;

namespace vexil {

class FakeAvahi {
  public:
    FakeAvahi();
    ~FakeAvahi();
    FakeAvahi(const FakeAvahi&) = delete;
    FakeAvahi& operator=(const FakeAvahi&) = delete;

    // Answers what has come.
    void Work();
    // What is published now, on every interface of it.
    const std::optional<ServiceWish>& Published() const { return published; }
    void Offer(const std::string& name, const NetworkAddress& address);
    void OfferUntold(const std::string& name, const NetworkAddress& address) { offers[name] = address; }
    void Withdraw(const std::string& name);
    // It leaves the bus, and forgets everything; it comes back.
    void Go();
    void Come();

    // Names that other computers have.
    std::vector<std::string> taken;
    // Says that nobody is anywhere: the browser names the service, and no address is found for it.
    bool findsNothing = false;
    // Tells of its state, as when the computer's name changes.
    void ChangeState(int next);
    // Says anything at all as if it came from the browser; or another program says so, who is not Avahi.
    void SayNew(const std::string& name, int interface, const char* type, std::uint32_t flags);
    void SayNewAsAnother(const std::string& name, int interface);
    int Resolved() const { return resolved; }

  private:
    struct Offered {
        std::string name;
        NetworkAddress address;
    };
    friend struct FakeAvahiCallbacks;
    int Take(sd_bus_message* message);
    int TakeService(sd_bus_message* message);
    int Resolve(sd_bus_message* message) const;
    void Say(sd_bus* speaker, const std::string& name, int interface, const char* type,
             std::uint32_t flags) const;
    void SayItem(const char* member, const std::string& name, int interface) const;

    sd_bus* bus = nullptr;
    std::string client;
    std::map<std::string, NetworkAddress> offers;
    std::vector<int> browsed;  // interfaces
    std::string browsedType = kServiceType;
    std::optional<ServiceWish> added;
    std::optional<ServiceWish> published;
    int state = 2;
    mutable int resolved = 0;
};

}  // namespace vexil
