// Waits until something happens to one of a few participants, and lets that one act. Idle, it never wakes up.
#pragma once

#include <poll.h>

#include <functional>
#include <utility>
#include <vector>

namespace vexil {

struct PollParticipant {
    int descriptor = -1;  // ready when `serve` has something to do; -1: only by time
    std::function<void()> serve;
    std::function<int()> timeout{};  // milliseconds until it is served without an event; -1: never
    short events = POLLIN;           // for which the descriptor is watched
};

class PollLoop {
  public:
    void Add(PollParticipant participant) { participants.push_back(std::move(participant)); }
    // Watches a descriptor no more, for it is about to be closed. May be called by a participant that is
    // served.
    void Forget(int descriptor);
    // Waits once and serves, in the order of Add, whoever's descriptor is ready or whose time is over.
    void Round();

  private:
    std::vector<PollParticipant> participants;
};

}  // namespace vexil
