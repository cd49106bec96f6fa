#include "client/ServiceClient.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "driver/DriverOptions.h"
#include "driver/LittleEndian.h"

namespace vexil {

namespace {

ServiceAnswer Failure(std::string problem) {
    return {ServiceAnswer::Outcome::Failed, std::move(problem), {}};
}

ServiceAnswer Failure(const std::string& what, int error) {
    return Failure(what + ": " + std::strerror(error));
}

ServiceAnswer NoAnswer() {
    return Failure("the service does not answer");
}

ServiceAnswer Malformed() {
    return Failure("the service's answer is malformed");
}

ServiceAnswer Answer(const ControlReply& reply, std::size_t longest) {
    if (reply.data.size() > longest) {
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
    const auto length = static_cast<std::uint32_t>(kMaxControlData);
    return Ask({kSequence, kControlStatus, first, length, {}}, length);
}

ServiceAnswer ServiceClient::AskReload() const {
    return Ask({kSequence, kControlReload, 0, 0, {}}, 0);
}

ServiceAnswer ServiceClient::AskPanic() const {
    return Ask({kSequence, kControlPanic, 0, 0, {}}, kMaxControlData);
}

ServiceAnswer ServiceClient::AskNetwork(const std::vector<std::string>& words) const {
    const std::optional<std::vector<std::uint8_t>> payload = PackControlWords(words);
    if (!payload) {
        return Failure("an argument is empty or too long");
    }
    const auto length = static_cast<std::uint32_t>(payload->size());
    return Ask({kSequence, kControlNetwork, 0, length, *payload}, kMaxControlData);
}

ServiceAnswer ServiceClient::Monitor(std::uint64_t ports, std::unique_ptr<ControlConnection>& stream) const {
    std::array<std::uint8_t, sizeof ports> mask{};
    PutLittleEndian(mask.data(), ports, mask.size());
    stream.reset();
    const int descriptor = ControlConnection::NewSocket();
    if (descriptor == -1) {
        return Failure("no socket can be opened", errno);
    }
    auto connection = std::make_unique<ControlConnection>(descriptor);
    ServiceAnswer answer = AskOn(*connection, {kSequence, kControlMonitor, 0, mask.size(), mask}, 0);
    if (answer.outcome == ServiceAnswer::Outcome::Answered) {
        stream = std::move(connection);
    }
    return answer;
}

ServiceAnswer ServiceClient::Ask(const ControlRequest& request, std::size_t longest) const {
    const int descriptor = ControlConnection::NewSocket();
    if (descriptor == -1) {
        return Failure("no socket can be opened", errno);
    }
    ControlConnection connection(descriptor);
    return AskOn(connection, request, longest);
}

ServiceAnswer ServiceClient::AskOn(ControlConnection& connection, const ControlRequest& request,
                                   std::size_t longest) const {
    const Deadline deadline = std::chrono::steady_clock::now() + patience;
    if (const int error = connection.Connect(path)) {
        if (error == ENOENT || error == ENOTDIR || error == ECONNREFUSED) {
            return {ServiceAnswer::Outcome::Absent, "no service is running at " + path, {}};
        }
        return error == ETIMEDOUT ? NoAnswer() : Failure(path, error);
    }
    if (connection.CheckPeer(serviceUser) != 0) {
        return Failure("what answers at " + path + " is another user's");
    }

    const int sendError = connection.Send(request);
    // A connection that is closed already tells so when it is read.
    if (sendError != 0 && sendError != EPIPE && sendError != ECONNRESET) {
        return Failure("the service cannot be asked", sendError);
    }
    ControlReply reply;
    switch (const int error = connection.AwaitReply(kSequence, deadline, &reply)) {
        case 0:
            return Answer(reply, longest);
        case ETIMEDOUT:
            return NoAnswer();
        case ECONNRESET:
            return Failure("the service closed the connection without an answer");
        case EPROTO:
            return Malformed();
        default:
            return Failure("the service's answer cannot be received", error);
    }
}

}  // namespace vexil
