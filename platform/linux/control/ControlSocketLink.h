// One descriptor's attachment to a driver service: requests under a deadline, attached again when the service
// was restarted. Results are 0 or an errno value.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "driver/ControlChannel.h"
#include "driver/OpenTestOutputs.h"
#include "platform/linux/control/ControlConnection.h"
#include "shared/System/Deadline.h"

namespace vexil {

// Where a driver service is attached to.
struct ControlAddress {
    std::string path;  // of the service's socket
    std::uint32_t unit = 0;
    std::optional<std::uint32_t>
        serviceUser{};  // a user id that may serve here besides root and this process's own
};

class ControlSocketLink {
  public:
    // A call waits no longer for the service, whatever it does.
    static constexpr std::chrono::milliseconds kReplyTime{250};

    // Takes over an unconnected descriptor from ControlConnection::NewSocket, which stays the link's for its
    // whole life.
    explicit ControlSocketLink(int ownedDescriptor);

    // True from the first successful attachment on, whatever becomes of the service.
    bool WasAttached() const { return state != State::Unattached; }

    // The first attachment. After a failure the link is unattached as before.
    int Attach(const ControlAddress& controlAddress);

    // One request of a link that was attached. `buffer` takes at most *length bytes of the reply's data,
    // *length becomes their number; both null when the reply has none. When the service turns out to be gone
    // it is attached again, once, told of the test outputs that the one before had open, and the request sent
    // again: the driver's options may all be given twice.
    int Exchange(std::uint32_t kind, std::uint32_t number, std::span<const std::uint8_t> payload,
                 std::uint8_t* buffer, std::uint32_t* length);

  private:
    enum class State {
        Unattached,  // never attached
        Attaching,   // attached again, but the reply is still missing
        Attached,
        Lost,  // to be attached again: the service is gone or has broken the rules
    };

    int Reattach(Deadline deadline);
    int TakeAttachReply(const ControlReply& reply);
    int Request(const ControlRequest& request, Deadline deadline, std::uint8_t* buffer,
                std::uint32_t* length);
    int OpenTestOutputsAgain(Deadline deadline);
    int RoundTrip(ControlRequest request, Deadline deadline, std::uint8_t* buffer, std::uint32_t* length);
    int SettleLateReply();
    int Send(const ControlRequest& request);
    int AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply);
    int Receive(std::uint32_t sequence, ControlReply* reply);
    int Lose(int error);

    ControlConnection connection;
    ControlAddress address;
    State state = State::Unattached;
    std::uint32_t lastSequence = 0;
    std::optional<std::uint32_t> lateSequence;  // of the request whose reply did not come in time
    OpenTestOutputs testOutputs;
    bool mayLackTestOutputs = false;  // the service was attached anew and has not been told of all of them
};

}  // namespace vexil
