#include "platform/linux/control/ControlConnection.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vexil {

std::optional<std::uint32_t> TrustedServiceUser(const std::string& folder, bool systemWide) {
    struct stat owned {};
    if (systemWide && stat(folder.c_str(), &owned) == 0) {
        return owned.st_uid;
    }
    return std::nullopt;
}

ControlConnection::ControlConnection(int ownedDescriptor)
    : descriptor(ownedDescriptor), packet(kMaxControlReplySize) {}

int ControlConnection::NewSocket() {
    return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

int ControlConnection::Connect(const std::string& path) {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (path.size() >= sizeof place.sun_path) {
        return ENAMETOOLONG;
    }
    std::memcpy(place.sun_path, path.c_str(), path.size() + 1);

    // A socket that was connected once cannot be connected again: a new one takes its descriptor.
    const Descriptor fresh(NewSocket());
    if (!fresh.IsOpen() || dup3(fresh.Number(), descriptor.Number(), O_CLOEXEC) == -1) {
        return errno;
    }
    if (connect(descriptor.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        // A service that leaves its queue of connections full is hung: not worth a pause of its own.
        return errno == EAGAIN ? ETIMEDOUT : errno;
    }
    return 0;
}

int ControlConnection::CheckPeer(std::optional<std::uint32_t> serviceUser) const {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(descriptor.Number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) {
        return errno;
    }
    return peer.uid == 0 || peer.uid == geteuid() || serviceUser == peer.uid ? 0 : EACCES;
}

int ControlConnection::Send(const ControlRequest& request) {
    const std::vector<std::uint8_t> bytes = PackControlRequest(request);
    ssize_t sent = -1;
    do {
        sent = send(descriptor.Number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent == -1 && errno == EINTR);
    if (sent != -1) {
        return 0;
    }
    // One request is under way at a time, so a socket without room is one that cannot take this request at
    // all.
    return errno == EAGAIN ? ENOBUFS : errno;
}

int ControlConnection::Receive(std::uint32_t sequence, ControlReply* reply) {
    ssize_t size = -1;
    do {
        size = recv(descriptor.Number(), packet.data(), packet.size(),
                    MSG_TRUNC);  // the packet's own size, even if cut
    } while (size == -1 && errno == EINTR);
    if (size == -1) {
        return errno;
    }
    if (size == 0) {
        return ECONNRESET;
    }
    if (static_cast<std::size_t>(size) > packet.size()) {
        return EPROTO;
    }
    const std::optional<ControlReply> unpacked =
        UnpackControlReply({packet.data(), static_cast<std::size_t>(size)});
    if (!unpacked || unpacked->sequence != sequence) {
        return EPROTO;
    }
    *reply = *unpacked;
    return 0;
}

int ControlConnection::AwaitReply(std::uint32_t sequence, Deadline deadline, ControlReply* reply) {
    for (;;) {
        pollfd waiting{descriptor.Number(), POLLIN, 0};
        const int ready = poll(&waiting, 1, MillisecondsUntil(deadline));
        if (ready == -1 && errno != EINTR) {
            return errno;
        }
        const int error = Receive(sequence, reply);
        if (error != EAGAIN) {
            return error;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return ETIMEDOUT;
        }
    }
}

bool ControlConnection::HasEnded() const {
    pollfd waiting{descriptor.Number(), POLLRDHUP, 0};
    return poll(&waiting, 1, 0) == 1;
}

void ControlConnection::ShutDown() {
    shutdown(descriptor.Number(), SHUT_RDWR);  // fails where the service has gone first
}

}  // namespace vexil
