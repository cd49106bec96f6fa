#include "ctl/ServiceClient.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "driver/ControlChannel.h"
#include "driver/DriverOptions.h"
#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kSequence = 1;  // a connection carries one request

ServiceAnswer Failure(std::string problem) {
    return {ServiceAnswer::Outcome::Failed, std::move(problem), {}};
}

ServiceAnswer Failure(const std::string& what, int error) {
    return Failure(what + ": " + std::strerror(error));
}

ServiceAnswer Unanswered() {
    return Failure("the service does not answer");
}

// Whoever made the socket file, only those are heard whom the panel trusts as well.
bool IsTrusted(const Descriptor& link, std::optional<uid_t> serviceUser) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(link.Number(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    return peer.uid == 0 || peer.uid == geteuid() || serviceUser == peer.uid;
}

bool AwaitPacket(const Descriptor& link, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd waiting{link.Number(), POLLIN, 0};
        const int ready =
            poll(&waiting, 1, static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0)));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

ServiceAnswer TakeReply(const Descriptor& link, std::uint32_t askedLength) {
    std::vector<std::uint8_t> packet(kMaxControlReplySize);
    // With MSG_TRUNC the packet's own size, even if it is cut.
    const ssize_t size = recv(link.Number(), packet.data(), packet.size(), MSG_TRUNC);
    if (size == 0 || (size == -1 && errno == ECONNRESET))
        return Failure("the service closed the connection without an answer");
    if (size == -1)
        return Failure("the service's answer cannot be received", errno);
    const bool whole = static_cast<std::size_t>(size) <= packet.size();
    packet.resize(std::min(packet.size(), static_cast<std::size_t>(size)));
    const std::optional<ControlReply> reply = whole ? UnpackControlReply(packet) : std::nullopt;
    if (!reply || reply->sequence != kSequence || reply->data.size() > askedLength)
        return Failure("the service's answer is none");
    if (reply->error != 0)
        return Failure("the service refuses", static_cast<int>(reply->error));
    return {ServiceAnswer::Outcome::Answered, {}, std::string(reply->data.begin(), reply->data.end())};
}

}  // namespace

ServiceClient::ServiceClient(const Paths& paths, std::chrono::milliseconds replyTime)
    : path(paths.control + "/" + kControlName), patience(replyTime) {
    struct stat folder {};
    // Only root gives such a folder away.
    if (paths.controlIsSystemWide && stat(paths.control.c_str(), &folder) == 0)
        serviceUser = folder.st_uid;
}

ServiceAnswer ServiceClient::AskStatus() const {
    return Ask(kControlStatus, static_cast<std::uint32_t>(kMaxControlData));
}

ServiceAnswer ServiceClient::AskReload() const {
    return Ask(kControlReload, 0);
}

ServiceAnswer ServiceClient::Ask(std::uint32_t kind, std::uint32_t length) const {
    const Clock::time_point deadline = Clock::now() + patience;
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (path.size() >= sizeof place.sun_path)
        return Failure(path, ENAMETOOLONG);
    std::memcpy(place.sun_path, path.c_str(), path.size() + 1);

    const Descriptor link(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!link.IsOpen())
        return Failure("there is no socket to be had", errno);
    if (connect(link.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0) {
        if (errno == ENOENT || errno == ENOTDIR || errno == ECONNREFUSED)
            return {ServiceAnswer::Outcome::Absent, "no service is running at " + path, {}};
        // The service leaves its queue of connections full.
        return errno == EAGAIN ? Unanswered() : Failure(path, errno);
    }
    if (!IsTrusted(link, serviceUser))
        return Failure("what answers at " + path + " is another user's");

    const std::vector<std::uint8_t> request = PackControlRequest({kSequence, kind, 0, length, {}});
    if (send(link.Number(), request.data(), request.size(), MSG_NOSIGNAL) == -1 && errno != EPIPE &&
        errno != ECONNRESET)
        return Failure("the service cannot be asked", errno);
    // A connection that is closed already tells so when it is read.
    return AwaitPacket(link, deadline) ? TakeReply(link, length) : Unanswered();
}

}  // namespace vexil
