// One descriptor's attachment to a driver service: requests under a deadline, attached again when the service
// was restarted. Results are 0 or an errno value.
//
// The link stands between a panel that asks once and a service that may be late, or gone for a while. What
// both must agree on it puts right by itself, before it passes on the next request and, where an event loop
// serves it, without one: a service that was restarted gets the test outputs, the wireless mode and the send
// quantization time again; the end of a test note that did not reach the service is owed and goes out first;
// a test output that the service has closed, while the panel counts it as open, is opened again before the
// next play.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "driver/ControlChannel.h"
#include "driver/LastSettings.h"
#include "driver/OpenTestOutputs.h"
#include "driver/OwedNoteOffs.h"
#include "platform/linux/control/ControlConnection.h"
#include "platform/linux/control/LinkWatch.h"
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
    // How soon a service that has gone is looked for again; the time doubles up to the longer one.
    static constexpr std::chrono::milliseconds kFirstRetry{250};
    static constexpr std::chrono::milliseconds kLastRetry{2000};

    // Takes over an unconnected descriptor from ControlConnection::NewSocket, which stays the link's for its
    // whole life.
    explicit ControlSocketLink(int ownedDescriptor);

    // True from the first successful attachment on, whatever becomes of the service.
    bool WasAttached() const { return state != State::Unattached; }

    // The first attachment. After a failure the link is unattached as before.
    int Attach(const ControlAddress& controlAddress);

    // One request of a link that was attached. `buffer` takes at most *length bytes of the reply's data,
    // *length becomes their number; both null when the reply has no data. When the service turns out to be
    // gone it is attached again, once, put right, and the request sent again: the driver's options may all be
    // given twice.
    int Exchange(std::uint32_t kind, std::uint32_t number, std::span<const std::uint8_t> payload,
                 std::uint8_t* buffer, std::uint32_t* length);

    // Readable when Serve has something to do.
    int EventDescriptor() const { return watch.Number(); }
    // Goes on with what no call has to wait for. Takes no longer than a call.
    void Serve();

  private:
    enum class State {
        Unattached,  // never attached
        Attaching,   // attached again, but the reply is still missing
        Attached,
        Lost,  // to be attached again: the service is gone or has broken the rules
    };

    // What became of a request.
    struct Trip {
        enum class Fate { NotSent, Unanswered, Answered };
        Fate fate = Fate::NotSent;
        int error = 0;
        bool IsAnswered() const { return fate == Fate::Answered; }
    };

    // A reply that did not come in time, and what it will tell besides.
    struct LateReply {
        std::uint32_t sequence = 0;
        std::optional<DriverSetting> noteOff{};       // to this one, which is owed until then
        std::optional<std::uint32_t> closedOutput{};  // to the closing of this port's test output
    };

    int Reattach(Deadline deadline);
    int TakeAttachReply(const ControlReply& reply);
    Trip Carry(const ControlRequest& request, Deadline deadline, std::uint8_t* buffer, std::uint32_t* length);
    Trip Request(const ControlRequest& request, Deadline deadline, std::uint8_t* buffer,
                 std::uint32_t* length);
    void Remember(const ControlRequest& request, const Trip& trip);
    int PutRight(Deadline deadline);
    int OpenTestOutputsAgain(Deadline deadline);
    int OpenTestOutputAgain(std::uint32_t port, Deadline deadline);
    int GiveOwedNoteOffs(Deadline deadline);
    int GiveLastSettings(Deadline deadline);
    Trip Set(const DriverSetting& setting, Deadline deadline);
    Trip RoundTrip(ControlRequest request, Deadline deadline, std::uint8_t* buffer, std::uint32_t* length);
    int SettleLateReply();
    int Send(const ControlRequest& request);
    int AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply);
    int Receive(std::uint32_t sequence, ControlReply* reply);
    int Lose(int error);
    void Wait();

    ControlConnection connection;
    ControlAddress address;
    State state = State::Unattached;
    std::uint32_t lastSequence = 0;
    std::optional<LateReply> lateReply;
    OpenTestOutputs testOutputs;
    LastSettings lastSettings;
    OwedNoteOffs owedNoteOffs;
    bool isFresh = false;  // the service was attached anew and has not been told all it has to know
    LinkWatch watch;
    std::chrono::milliseconds retry = kFirstRetry;
};

}  // namespace vexil
