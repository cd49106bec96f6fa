// Restarting the computer through logind, over the system bus: connecting is the address, making the method
// call is the event, sending it is sending.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "panel/Restarter.h"
#include "shared/System/Deadline.h"

struct sd_bus;
struct sd_bus_message;

namespace vexil {

// Returns when `descriptor` is ready for one of `events` (of poll), or after `atMost`; may come back sooner.
using DescriptorWait = std::function<void(int descriptor, short events, std::chrono::milliseconds atMost)>;

// Waits in poll.
void PollDescriptor(int descriptor, short events, std::chrono::milliseconds atMost);

// One thread. A request takes at most 2 s, whatever the bus does: ETIMEDOUT. The connection stays open for
// the object's life: logind authorises a call by asking the bus who its sender is, and a sender that has
// already left is refused.
class LogindRestarter : public Restarter {
  public:
    // `waitFor` does the waiting for the bus. It may run an event loop: a request that is made from there is
    // refused with EALREADY.
    explicit LogindRestarter(DescriptorWait waitFor = PollDescriptor);
    ~LogindRestarter() override;
    LogindRestarter(const LogindRestarter&) = delete;
    LogindRestarter& operator=(const LogindRestarter&) = delete;

    // Each returns 0 or a positive errno value. Connects to the system bus, anew when an earlier connection
    // has gone, and waits until the bus has greeted.
    std::int32_t MakeAddress() override;
    // EINVAL for any event but kAERestart; ENOTCONN without an address.
    std::int32_t MakeEvent(std::uint32_t eventId) override;
    // Hands the call to the bus. What logind answers is not awaited: a refusal is not reported.
    std::int32_t SendEvent() override;

  private:
    std::int32_t AwaitBus(const std::function<bool()>& done);

    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };
    struct ReleaseMessage {
        void operator()(sd_bus_message* message) const;
    };
    DescriptorWait wait;
    bool waiting = false;
    Deadline deadline;  // of the request under way
    std::unique_ptr<sd_bus, CloseBus> bus;
    std::unique_ptr<sd_bus_message, ReleaseMessage> event;
};

}  // namespace vexil
