// Restarting the computer through logind, over the system bus: connecting is the address, making the method
// call is the event, sending it is sending.
#pragma once

#include <memory>

#include "panel/Restarter.h"

struct sd_bus;
struct sd_bus_message;

namespace vexil {

// One thread. The connection stays open for the object's life: logind authorises a call by asking the bus who
// its sender is, and a sender that has already left is refused.
class LogindRestarter : public Restarter {
  public:
    LogindRestarter();
    ~LogindRestarter() override;
    LogindRestarter(const LogindRestarter&) = delete;
    LogindRestarter& operator=(const LogindRestarter&) = delete;

    // Each returns 0 or a positive errno value. Connects to the system bus, anew when an earlier connection
    // has gone.
    std::int32_t MakeAddress() override;
    // EINVAL for any event but kAERestart; ENOTCONN without an address.
    std::int32_t MakeEvent(std::uint32_t eventId) override;
    // Hands the call to the bus. What logind answers is not awaited: a refusal is not reported.
    std::int32_t SendEvent() override;

  private:
    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };
    struct ReleaseMessage {
        void operator()(sd_bus_message* message) const;
    };
    std::unique_ptr<sd_bus, CloseBus> bus;
    std::unique_ptr<sd_bus_message, ReleaseMessage> event;
};

}  // namespace vexil
