#include "platform/linux/control/ControlSocketLink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vexil {

namespace {

int MillisecondsUntil(std::chrono::steady_clock::time_point deadline) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

}  // namespace

ControlSocketLink::ControlSocketLink(int ownedDescriptor)
    : descriptor(ownedDescriptor), packet(kMaxControlReplySize) {}

ControlSocketLink::~ControlSocketLink() {
    close(descriptor);
}

int ControlSocketLink::NewSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

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
    if (const int error = Connect())
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

// A socket that was connected once cannot be connected again: a new one takes its descriptor.
int ControlSocketLink::Connect() {
    const int fresh = NewSocket();
    if (fresh == -1)
        return errno;
    const int moved = dup3(fresh, descriptor, O_CLOEXEC);
    const int moveError = errno;
    close(fresh);
    if (moved == -1)
        return moveError;

    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (address.path.size() >= sizeof place.sun_path)
        return ENAMETOOLONG;
    std::memcpy(place.sun_path, address.path.c_str(), address.path.size() + 1);
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        // A service that leaves its queue of connections full is hung: not worth a pause of its own.
        return errno == EAGAIN ? ETIMEDOUT : errno;
    }
    return CheckPeer();
}

// Whoever made the socket file, the panel talks to nobody but the services it may trust.
int ControlSocketLink::CheckPeer() const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return errno;
    if (peer.uid == 0 || peer.uid == geteuid() || address.serviceUser == peer.uid)
        return 0;
    return EACCES;
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

int ControlSocketLink::Send(const ControlRequest& request) {
    const std::vector<std::uint8_t> bytes = PackControlRequest(request);
    ssize_t sent = -1;
    do
        sent = send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    while (sent == -1 && errno == EINTR);
    if (sent != -1)
        return 0;
    // One request is under way at a time, so a socket without room is one that cannot take this request at
    // all.
    if (errno == EAGAIN)
        return ENOBUFS;
    return errno == EMSGSIZE ? EMSGSIZE : Lose(errno);
}

int ControlSocketLink::AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply) {
    for (;;) {
        pollfd waiting{descriptor, POLLIN, 0};
        const int ready = poll(&waiting, 1, MillisecondsUntil(deadline));
        if (ready == -1 && errno != EINTR)
            return Lose(errno);
        const int error = Receive(sequence, reply);
        if (error != EAGAIN)
            return error;
        if (std::chrono::steady_clock::now() >= deadline) {
            lateSequence = sequence;
            return ETIMEDOUT;
        }
    }
}

// One packet, the reply to `sequence`. EAGAIN while there is none; after any other error the link is Lost.
int ControlSocketLink::Receive(std::uint32_t sequence, ControlReply* reply) {
    ssize_t size = -1;
    do
        size =
            recv(descriptor, packet.data(), packet.size(), MSG_TRUNC);  // the packet's own size, even if cut
    while (size == -1 && errno == EINTR);
    if (size == -1)
        return errno == EAGAIN ? EAGAIN : Lose(errno);
    if (size == 0)
        return Lose(ECONNRESET);
    if (static_cast<std::size_t>(size) > packet.size())
        return Lose(EPROTO);
    const std::optional<ControlReply> unpacked =
        UnpackControlReply({packet.data(), static_cast<std::size_t>(size)});
    if (!unpacked || unpacked->sequence != sequence)
        return Lose(EPROTO);
    *reply = *unpacked;
    return 0;
}

// Ends the attachment, on the service's side as well; returns `error`.
int ControlSocketLink::Lose(int error) {
    state = State::Lost;
    lateSequence.reset();
    shutdown(descriptor, SHUT_RDWR);  // fails where the service has gone first
    return error;
}

}  // namespace vexil
