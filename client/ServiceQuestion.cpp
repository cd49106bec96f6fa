#include "client/ServiceQuestion.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "driver/DriverOptions.h"

namespace vexil {

namespace {

constexpr std::uint32_t kOnlySequence = 1;  // a connection carries one request

void Listen(const Descriptor& events, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    epoll_ctl(events.Number(), EPOLL_CTL_ADD, descriptor, &event);
}

void SetTimer(const Descriptor& timer, std::chrono::milliseconds time) {
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(time.count() / 1000);
    spec.it_value.tv_nsec = static_cast<long>(time.count() % 1000 * 1'000'000);
    timerfd_settime(timer.Number(), 0, &spec, nullptr);
}

}  // namespace

ServiceQuestion::ServiceQuestion(const Paths& paths, const std::vector<std::string>& words,
                                 std::chrono::milliseconds patience)
    : events(epoll_create1(EPOLL_CLOEXEC)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      connection(ControlConnection::NewSocket()) {
    using Outcome = ServiceAnswer::Outcome;
    Listen(events, timer.Number());
    SetTimer(timer, patience);
    const std::string path = paths.control + "/" + kControlName;
    const auto payload = PackControlWords(words);
    if (!payload) {
        Fail(Outcome::Failed, "an argument is empty or too long");
        return;
    }
    const int error = connection.Connect(path);
    if (error != 0) {
        const bool isAbsent = error == ENOENT || error == ENOTDIR || error == ECONNREFUSED;
        Fail(isAbsent ? Outcome::Absent : Outcome::Failed,
             isAbsent ? "no service is running at " + path : path + ": " + std::strerror(error));
    } else if (connection.CheckPeer(TrustedServiceUser(paths.control, paths.controlIsSystemWide)) != 0) {
        Fail(Outcome::Failed, "what answers at " + path + " is another user's");
    } else {
        // A connection that is closed already tells so when it is read.
        static_cast<void>(connection.Send(
            {kOnlySequence, kControlNetwork, 0, static_cast<std::uint32_t>(payload->size()), *payload}));
        Listen(events, connection.Number());
    }
}

bool ServiceQuestion::Serve() {
    if (isOver) {
        return true;
    }
    ControlReply reply;
    const int error = connection.Receive(kOnlySequence, &reply);
    std::uint64_t runs = 0;
    if (error == EAGAIN) {
        if (read(timer.Number(), &runs, sizeof runs) != sizeof runs) {
            return false;
        }
        Fail(ServiceAnswer::Outcome::Failed, "the service does not answer");
    } else if (error != 0) {
        Fail(ServiceAnswer::Outcome::Failed, "the service closed the connection without an answer");
    } else if (reply.error != 0) {
        Fail(ServiceAnswer::Outcome::Failed,
             std::string("the service refuses: ") + std::strerror(static_cast<int>(reply.error)));
    } else {
        isOver = true;
        answer = {ServiceAnswer::Outcome::Answered, {}, std::string(reply.data.begin(), reply.data.end())};
    }
    return isOver;
}

// The event loop hears of it by the timer.
void ServiceQuestion::Fail(ServiceAnswer::Outcome outcome, std::string problem) {
    isOver = true;
    answer = {outcome, std::move(problem), {}};
    SetTimer(timer, std::chrono::milliseconds(1));
}

}  // namespace vexil
