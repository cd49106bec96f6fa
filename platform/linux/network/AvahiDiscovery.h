// DNS-SD by Avahi, over the system's D-Bus. Avahi may be absent, come, go, stand still and lie: nobody waits
// for it, it is not started, and what it says is believed of nothing but where to ask. Where there is no bus
// either, LookAgain tries again.
//
// One thread.
#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/network/SystemBus.h"
#include "service/network/ServiceDiscovery.h"

namespace vexil {

class AvahiDiscovery : public ServiceDiscovery {
  public:
    // Avahi itself answers every call within 5 s; one that takes longer than `longestAnswer` is told of.
    explicit AvahiDiscovery(std::chrono::milliseconds longestAnswer = std::chrono::seconds(8));

    int EventDescriptor() const override { return bus.EventDescriptor(); }
    void Set(const std::optional<ServiceWish>& wanted) override;
    void LookAgain() override;
    bool Serve() override;
    State CurrentState() const override { return state; }
    std::vector<NetworkAddress> Hints() const override;
    std::vector<FoundService> Found() const override;
    std::string Problem() const override;

  private:
    // A service as Avahi names it.
    struct Item {
        std::int32_t interface = 0;
        std::int32_t protocol = 0;
        std::string name;
        std::string domain;
        auto operator<=>(const Item&) const = default;
    };
    struct Place {
        NetworkAddress address;  // none: not looked up yet, or not to be found
        bool waits = false;      // for being looked up
    };

    void Connect();
    void SetState(State next);
    // Another owner of Avahi's name; empty: it has gone.
    void SetOwner(const std::string& name);
    void Browse();
    void AskServerState();
    void TakeServerState(std::int32_t told);
    // What is published, anew.
    void Publish();
    void Withdraw();
    void FillGroup();
    void AddService(int turn, std::int32_t interface, const OfferedService& service);
    void PublishAsAnother();
    std::string PublishedName(const std::string& asWished) const;
    void Fail(std::string& problem, const char* what, const std::string& why);

    void TakeSignal(sd_bus_message* signal);
    void TakeItem(sd_bus_message* signal, bool isNew);
    void LookUpNext();
    void TakeAddress(const Item& item, sd_bus_message* answer);
    BusMessage MakeServerCall(const char* member);
    BusMessage MakeGroupCall(const char* member);
    std::vector<std::int32_t> Interfaces() const;

    const std::chrono::milliseconds patience;
    SystemBus bus;
    std::optional<ServiceWish> wish;
    State state = State::Off;
    bool hasChanged = false;
    std::string owner;  // Avahi's unique name on the bus; empty while Avahi is absent
    std::int32_t serverState = -1;
    std::string group;          // its path; empty: not made yet
    bool isGroupAsked = false;  // it is being made
    int publishTurn = 0;        // answers to earlier ones count no longer
    int nameAttempt = 1;
    std::string publishProblem;
    std::string browseProblem;
    std::map<Item, Place> items;
    std::deque<Item> toLookUp;
    int lookUps = 0;  // under way
};

}  // namespace vexil
