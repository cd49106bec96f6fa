#include "ctl/ServiceClient.h"

#include <cerrno>
#include <cstring>

#include "driver/ControlChannel.h"
#include "driver/DriverOptions.h"
#include "platform/linux/control/ControlConnection.h"

namespace vexil {

namespace {

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

ServiceAnswer Malformed() {
    return Failure("the service's answer is malformed");
}

ServiceAnswer Answer(const ControlReply& reply, std::uint32_t askedLength) {
    if (reply.data.size() > askedLength) {
        return Malformed();
    }
    if (reply.error != 0) {
        return Failure("the service refuses", static_cast<int>(reply.error));
    }
    return {ServiceAnswer::Outcome::Answered, {}, std::string(reply.data.begin(), reply.data.end())};
}

}  // namespace

ServiceClient::ServiceClient(const Paths& paths, std::chrono::milliseconds replyTime)
    : path(paths.control + "/" + kControlName),
      serviceUser(TrustedServiceUser(paths.control, paths.controlIsSystemWide)),
      patience(replyTime) {}

ServiceAnswer ServiceClient::AskStatus(std::uint32_t first) const {
    return Ask(kControlStatus, first, static_cast<std::uint32_t>(kMaxControlData));
}

ServiceAnswer ServiceClient::AskReload() const {
    return Ask(kControlReload, 0, 0);
}

ServiceAnswer ServiceClient::Ask(std::uint32_t kind, std::uint32_t number, std::uint32_t length) const {
    const Deadline deadline = std::chrono::steady_clock::now() + patience;
    const int descriptor = ControlConnection::NewSocket();
    if (descriptor == -1) {
        return Failure("no socket can be opened", errno);
    }
    ControlConnection connection(descriptor);
    if (const int error = connection.Connect(path)) {
        if (error == ENOENT || error == ENOTDIR || error == ECONNREFUSED) {
            return {ServiceAnswer::Outcome::Absent, "no service is running at " + path, {}};
        }
        return error == ETIMEDOUT ? Unanswered() : Failure(path, error);
    }
    if (connection.CheckPeer(serviceUser) != 0) {
        return Failure("what answers at " + path + " is another user's");
    }

    const int sendError = connection.Send({kSequence, kind, number, length, {}});
    // A connection that is closed already tells so when it is read.
    if (sendError != 0 && sendError != EPIPE && sendError != ECONNRESET) {
        return Failure("the service cannot be asked", sendError);
    }
    ControlReply reply;
    switch (const int error = connection.AwaitReply(kSequence, deadline, &reply)) {
        case 0:
            return Answer(reply, length);
        case ETIMEDOUT:
            return Unanswered();
        case ECONNRESET:
            return Failure("the service closed the connection without an answer");
        case EPROTO:
            return Malformed();
        default:
            return Failure("the service's answer cannot be received", error);
    }
}

}  // namespace vexil
