#include "platform/linux/control/ControlSocketLink.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "config/DriverConfiguration.h"
#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"

namespace vexil {

namespace {

bool IsPlay(const ControlRequest& request) {
    return request.kind == kControlSetOption && request.number < static_cast<std::uint32_t>(kMaxPorts);
}

}  // namespace

ControlSocketLink::ControlSocketLink(int ownedDescriptor) : connection(ownedDescriptor) {}

int ControlSocketLink::Attach(const ControlAddress& controlAddress) {
    address = controlAddress;
    const int error = Reattach(std::chrono::steady_clock::now() + kReplyTime);
    if (error != 0) {
        Lose(error);  // or a late attachment would hold the unit for a panel that goes on without it
        state = State::Unattached;
    }
    isFresh = false;  // there is nothing to be told again
    Wait();
    return error;
}

int ControlSocketLink::Exchange(std::uint32_t kind, std::uint32_t number,
                                std::span<const std::uint8_t> payload, std::uint8_t* buffer,
                                std::uint32_t* length) {
    ControlRequest request;
    request.kind = kind;
    request.number = number;
    request.length = length != nullptr ? *length : static_cast<std::uint32_t>(payload.size());
    request.payload = payload;
    const Trip trip = Carry(request, std::chrono::steady_clock::now() + kReplyTime, buffer, length);
    if (kind == kControlSetOption) {
        Remember(request, trip);
    }
    Wait();
    return trip.error;
}

void ControlSocketLink::Serve() {
    const Deadline deadline = std::chrono::steady_clock::now() + kReplyTime;
    if (state == State::Unattached) {
        return;
    }
    if (SettleLateReply() != ETIMEDOUT) {
        if (state == State::Attached && connection.HasEnded()) {
            Lose(ECONNRESET);
        }
        if (state == State::Lost) {
            Reattach(deadline);
        }
        if (state == State::Attached) {
            PutRight(deadline);
        }
    }
    Wait();
}

// Says what Serve is to be called for next.
void ControlSocketLink::Wait() {
    const bool hasMore = isFresh || !owedNoteOffs.IsEmpty();
    if (state == State::Unattached) {
        watch.ForNothing(connection.Number());
    } else if (lateReply) {
        if (hasMore || state == State::Attaching) {
            watch.ForReply(connection.Number());
        } else {
            watch.ForEnd(connection.Number());
        }
    } else if (state == State::Attached && !hasMore) {
        watch.ForEnd(connection.Number());
        retry = kFirstRetry;
    } else {
        watch.ForTime(connection.Number(), retry);
        retry = std::min(2 * retry, kLastRetry);
    }
}

// Connects and attaches the unit. When the reply does not come in time the link stays Attaching.
int ControlSocketLink::Reattach(Deadline deadline) {
    state = State::Lost;
    lateReply.reset();
    if (const int error = connection.Connect(address.path)) {
        return Lose(error);
    }
    if (const int error = connection.CheckPeer(address.serviceUser)) {
        return Lose(error);
    }

    ControlRequest request;
    request.sequence = ++lastSequence;
    request.kind = kControlAttach;
    request.number = address.unit;
    if (const int error = Send(request)) {
        return error;
    }
    state = State::Attaching;
    ControlReply reply;
    if (const int error = AwaitReply(request.sequence, deadline, &reply)) {
        return error;
    }
    return TakeAttachReply(reply);
}

int ControlSocketLink::TakeAttachReply(const ControlReply& reply) {
    if (!reply.data.empty()) {
        return Lose(EPROTO);
    }
    if (reply.error != 0) {
        return Lose(static_cast<int>(reply.error));
    }
    state = State::Attached;
    isFresh = true;
    return 0;
}

ControlSocketLink::Trip ControlSocketLink::Carry(const ControlRequest& request, Deadline deadline,
                                                 std::uint8_t* buffer, std::uint32_t* length) {
    if (const int error = SettleLateReply()) {
        return {Trip::Fate::NotSent, error};
    }
    if (state == State::Attached) {
        const Trip trip = Request(request, deadline, buffer, length);
        if (state == State::Attached || trip.error == EPROTO) {
            return trip;
        }
    }
    if (const int error = Reattach(deadline)) {
        return {Trip::Fate::NotSent, error};
    }
    return Request(request, deadline, buffer, length);
}

ControlSocketLink::Trip ControlSocketLink::Request(const ControlRequest& request, Deadline deadline,
                                                   std::uint8_t* buffer, std::uint32_t* length) {
    if (const int error = PutRight(deadline)) {
        return {Trip::Fate::NotSent, error};
    }
    if (IsPlay(request) && testOutputs.IsDoubtful(request.number)) {
        if (const int error = OpenTestOutputAgain(request.number, deadline)) {
            return {Trip::Fate::NotSent, error};
        }
    }
    return RoundTrip(request, deadline, buffer, length);
}

// Takes note of what became of a set option.
void ControlSocketLink::Remember(const ControlRequest& request, const Trip& trip) {
    if (trip.IsAnswered() && trip.error == 0) {
        testOutputs.CarriedOut(request.number, request.payload);
    }
    if (trip.IsAnswered() && trip.error == ENXIO && IsPlay(request)) {
        testOutputs.Doubt(request.number);
    }

    // What a service that breaks the rules has been sent is not sent to it again.
    const bool isGivenUp = trip.fate == Trip::Fate::Unanswered && trip.error == EPROTO;
    const bool isRefused = trip.IsAnswered() && trip.error != 0;
    if (!isGivenUp && !isRefused) {
        lastSettings.Asked(request.number, request.payload);
    }

    const bool isTaken = trip.IsAnswered() && trip.error != ENOBUFS;
    if (!isGivenUp && !isTaken && EndsNotes(request.number, request.payload)) {
        owedNoteOffs.Owe(request.number, request.payload);
        if (trip.fate == Trip::Fate::Unanswered && lateReply) {
            lateReply->noteOff = {request.number, {request.payload.begin(), request.payload.end()}};
        }
    }
    const bool closes = request.number == static_cast<std::uint32_t>(kOptionDeactivateTestOutput) &&
                        request.payload.size() == sizeof(std::uint32_t);
    if (closes && trip.fate == Trip::Fate::Unanswered && lateReply) {
        lateReply->closedOutput = Uint32At(request.payload.data());
    }
}

// Brings an attached service up to what the panel takes for granted. An error when it does not answer or is
// gone; what it refuses is no error of the call that comes next.
int ControlSocketLink::PutRight(Deadline deadline) {
    if (isFresh) {
        if (const int error = OpenTestOutputsAgain(deadline)) {
            return error;
        }
    }
    if (const int error = GiveOwedNoteOffs(deadline)) {
        return error;
    }
    if (isFresh) {
        if (const int error = GiveLastSettings(deadline)) {
            return error;
        }
    }
    isFresh = false;
    return 0;
}

int ControlSocketLink::OpenTestOutputsAgain(Deadline deadline) {
    for (const std::uint32_t port : testOutputs.Ports()) {
        if (const int error = OpenTestOutputAgain(port, deadline)) {
            return error;
        }
    }
    return 0;
}

// One that is refused stays doubtful: it is tried again before the next play, and who plays hears of it then.
int ControlSocketLink::OpenTestOutputAgain(std::uint32_t port, Deadline deadline) {
    testOutputs.Doubt(port);
    for (const DriverSetting& setting : testOutputs.SettingsOf(port)) {
        const Trip trip = Set(setting, deadline);
        if (!trip.IsAnswered()) {
            return trip.error;
        }
        if (trip.error != 0) {
            return 0;
        }
    }
    testOutputs.Trust(port);
    return 0;
}

// Their failure is in the log already, as that of the call that should have carried them.
int ControlSocketLink::GiveOwedNoteOffs(Deadline deadline) {
    while (!owedNoteOffs.IsEmpty()) {
        const DriverSetting noteOff = owedNoteOffs.First();
        const Trip trip = Set(noteOff, deadline);
        if (trip.error == ENOBUFS) {
            return 0;  // there is no room yet
        }
        if (!trip.IsAnswered() && trip.error != EPROTO) {
            if (lateReply) {
                lateReply->noteOff = noteOff;
            }
            return trip.error;
        }
        owedNoteOffs.Done(noteOff);
        if (!trip.IsAnswered()) {
            return trip.error;
        }
    }
    return 0;
}

int ControlSocketLink::GiveLastSettings(Deadline deadline) {
    for (const DriverSetting& setting : lastSettings.Settings()) {
        const Trip trip = Set(setting, deadline);
        if (!trip.IsAnswered()) {
            return trip.error;
        }
    }
    return 0;
}

ControlSocketLink::Trip ControlSocketLink::Set(const DriverSetting& setting, Deadline deadline) {
    ControlRequest request;
    request.kind = kControlSetOption;
    request.number = setting.option;
    request.length = static_cast<std::uint32_t>(setting.payload.size());
    request.payload = setting.payload;
    return RoundTrip(request, deadline, nullptr, nullptr);
}

ControlSocketLink::Trip ControlSocketLink::RoundTrip(ControlRequest request, Deadline deadline,
                                                     std::uint8_t* buffer, std::uint32_t* length) {
    request.sequence = ++lastSequence;
    if (const int error = Send(request)) {
        return {Trip::Fate::NotSent, error};
    }
    ControlReply reply;
    if (const int error = AwaitReply(request.sequence, deadline, &reply)) {
        return {Trip::Fate::Unanswered, error};
    }
    if (reply.data.size() > (length != nullptr ? *length : 0)) {
        return {Trip::Fate::Unanswered, Lose(EPROTO)};
    }
    if (reply.error == 0 && length != nullptr) {
        std::copy(reply.data.begin(), reply.data.end(), buffer);
        *length = static_cast<std::uint32_t>(reply.data.size());
    }
    return {Trip::Fate::Answered, static_cast<int>(reply.error)};
}

// Takes the reply that an earlier call gave up on out of the way. ETIMEDOUT while it is still missing. A link
// whose service is gone is Lost afterwards, which is no error of this call.
int ControlSocketLink::SettleLateReply() {
    if (!lateReply) {
        return 0;
    }
    ControlReply reply;
    const LateReply late = *lateReply;
    const int error = Receive(late.sequence, &reply);
    if (error == EAGAIN) {
        return ETIMEDOUT;
    }
    lateReply.reset();
    if (error != 0) {
        return error == EPROTO ? EPROTO : 0;
    }
    if (late.noteOff && reply.error != ENOBUFS) {
        owedNoteOffs.Done(*late.noteOff);
    }
    if (late.closedOutput && reply.error == 0) {
        testOutputs.Doubt(*late.closedOutput);  // the panel has heard that it could not be closed
    }
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
        lateReply = LateReply{sequence};
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
    lateReply.reset();
    connection.ShutDown();
    return error;
}

}  // namespace vexil
