#include "platform/linux/control/LinkWatch.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

namespace vexil {

LinkWatch::LinkWatch()
    : waiting(epoll_create1(EPOLL_CLOEXEC)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(waiting.Number(), EPOLL_CTL_ADD, timer.Number(), &event);
}

void LinkWatch::ForReply(int socket) {
    SetTimer(std::chrono::milliseconds(0));
    Watch(socket, EPOLLIN | EPOLLRDHUP);
}

void LinkWatch::ForEnd(int socket) {
    SetTimer(std::chrono::milliseconds(0));
    Watch(socket, EPOLLRDHUP);
}

void LinkWatch::ForTime(int socket, std::chrono::milliseconds time) {
    ForNothing(socket);
    SetTimer(time);
}

void LinkWatch::ForNothing(int socket) {
    SetTimer(std::chrono::milliseconds(0));
    epoll_ctl(waiting.Number(), EPOLL_CTL_DEL, socket, nullptr);  // fails where it is not watched
}

// A socket that took another's number is unknown here, as the other one was forgotten when it was closed.
void LinkWatch::Watch(int socket, unsigned events) {
    epoll_event event{};
    event.events = events;
    if (epoll_ctl(waiting.Number(), EPOLL_CTL_MOD, socket, &event) != 0) {
        epoll_ctl(waiting.Number(), EPOLL_CTL_ADD, socket, &event);
    }
}

// 0 stops it. Setting it also forgets that it has run out.
void LinkWatch::SetTimer(std::chrono::milliseconds time) const {
    itimerspec spec{};
    spec.it_value.tv_sec = static_cast<time_t>(time.count() / 1000);
    spec.it_value.tv_nsec = static_cast<long>(time.count() % 1000 * 1'000'000);
    timerfd_settime(timer.Number(), 0, &spec, nullptr);
}

}  // namespace vexil
