#include "platform/linux/control/ControlSocketLink.h"

#include <algorithm>
#include <cerrno>

namespace vexil {

ControlSocketLink::ControlSocketLink(int ownedDescriptor) : connection(ownedDescriptor) {}

int ControlSocketLink::Attach(const ControlAddress& controlAddress) {
    address = controlAddress;
    const int error = Reattach(std::chrono::steady_clock::now() + kReplyTime);
    if (error != 0) {
        Lose(error);  // or a late attachment would hold the unit for a panel that goes on without it
        state = State::Unattached;
    }
    return error;
}

int ControlSocketLink::Exchange(std::uint32_t kind, std::uint32_t number,
                                std::span<const std::uint8_t> payload, std::uint8_t* buffer,
                                std::uint32_t* length) {
    const Deadline deadline = std::chrono::steady_clock::now() + kReplyTime;
    if (const int error = SettleLateReply())
        return error;

    ControlRequest request;
    request.kind = kind;
    request.number = number;
    request.length = length != nullptr ? *length : static_cast<std::uint32_t>(payload.size());
    request.payload = payload;
    if (state == State::Attached) {
        const int error = Request(request, deadline, buffer, length);
        if (state == State::Attached || error == EPROTO)
            return error;
    }
    if (const int error = Reattach(deadline))
        return error;
    return Request(request, deadline, buffer, length);
}

// Connects and attaches the unit. When the reply does not come in time the link stays Attaching.
int ControlSocketLink::Reattach(Deadline deadline) {
    state = State::Lost;
    lateSequence.reset();
    if (const int error = connection.Connect(address.path))
        return Lose(error);
    if (const int error = connection.CheckPeer(address.serviceUser))
        return Lose(error);

    ControlRequest request;
    request.sequence = ++lastSequence;
    request.kind = kControlAttach;
    request.number = address.unit;
    if (const int error = Send(request))
        return error;
    state = State::Attaching;
    ControlReply reply;
    if (const int error = AwaitReply(request.sequence, deadline, &reply))
        return error;
    return TakeAttachReply(reply);
}

int ControlSocketLink::TakeAttachReply(const ControlReply& reply) {
    if (!reply.data.empty())
        return Lose(EPROTO);
    if (reply.error != 0)
        return Lose(static_cast<int>(reply.error));
    state = State::Attached;
    mayLackTestOutputs = true;
    return 0;
}

int ControlSocketLink::Request(const ControlRequest& request, Deadline deadline, std::uint8_t* buffer,
                               std::uint32_t* length) {
    if (mayLackTestOutputs) {
        if (const int error = OpenTestOutputsAgain(deadline))
            return error;
    }
    const int error = RoundTrip(request, deadline, buffer, length);
    if (error == 0 && request.kind == kControlSetOption)
        testOutputs.CarriedOut(request.number, request.payload);
    return error;
}

// An error when the service does not answer or is gone. What it refuses it is not asked again: who plays
// there hears of it then.
int ControlSocketLink::OpenTestOutputsAgain(Deadline deadline) {
    for (const OpenTestOutputs::Setting& setting : testOutputs.Settings()) {
        ControlRequest request;
        request.kind = kControlSetOption;
        request.number = setting.option;
        request.length = static_cast<std::uint32_t>(setting.payload.size());
        request.payload = setting.payload;
        const int error = RoundTrip(request, deadline, nullptr, nullptr);
        if (state != State::Attached || lateSequence)
            return error;
    }
    mayLackTestOutputs = false;
    return 0;
}

int ControlSocketLink::RoundTrip(ControlRequest request, Deadline deadline, std::uint8_t* buffer,
                                 std::uint32_t* length) {
    request.sequence = ++lastSequence;
    if (const int error = Send(request))
        return error;
    ControlReply reply;
    if (const int error = AwaitReply(request.sequence, deadline, &reply))
        return error;
    if (reply.data.size() > (length != nullptr ? *length : 0))
        return Lose(EPROTO);
    if (reply.error != 0)
        return static_cast<int>(reply.error);
    if (length != nullptr) {
        std::copy(reply.data.begin(), reply.data.end(), buffer);
        *length = static_cast<std::uint32_t>(reply.data.size());
    }
    return 0;
}

// Takes the reply that an earlier call gave up on out of the way. ETIMEDOUT while it is still missing. A link
// whose service is gone is Lost afterwards, which is no error of this call.
int ControlSocketLink::SettleLateReply() {
    if (!lateSequence)
        return 0;
    ControlReply reply;
    const int error = Receive(*lateSequence, &reply);
    if (error == EAGAIN)
        return ETIMEDOUT;
    lateSequence.reset();
    if (error != 0)
        return error == EPROTO ? EPROTO : 0;
    return state == State::Attaching ? TakeAttachReply(reply) : 0;
}

// After an error the link is Lost, unless it was the request alone that could not be sent.
int ControlSocketLink::Send(const ControlRequest& request) {
    const int error = connection.Send(request);
    return error == 0 || error == ENOBUFS || error == EMSGSIZE ? error : Lose(error);
}

int ControlSocketLink::AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply) {
    const int error = connection.AwaitReply(sequence, deadline, reply);
    if (error == ETIMEDOUT) {
        lateSequence = sequence;
        return error;
    }
    return error == 0 ? 0 : Lose(error);
}

// EAGAIN while the reply has not come; after any other error the link is Lost.
int ControlSocketLink::Receive(std::uint32_t sequence, ControlReply* reply) {
    const int error = connection.Receive(sequence, reply);
    return error == 0 || error == EAGAIN ? error : Lose(error);
}

// Ends the attachment, on the service's side as well; returns `error`.
int ControlSocketLink::Lose(int error) {
    state = State::Lost;
    lateSequence.reset();
    connection.ShutDown();
    return error;
}

}  // namespace vexil
