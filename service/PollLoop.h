// Waits until something happens to one of a few participants, and lets that one act. Idle, it never wakes up.
#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace vexil {

struct PollParticipant {
    int descriptor = -1;           // readable when `serve` has something to do; -1: only by time
    std::function<int()> timeout;  // milliseconds until it is to be served all the same; -1: never
    std::function<void()> serve;
};

class PollLoop {
  public:
    void Add(PollParticipant participant) { participants.push_back(std::move(participant)); }
    // Waits once and serves, in the order of Add, whoever's descriptor is readable or whose time is over.
    void Round();

  private:
    std::vector<PollParticipant> participants;
};

}  // namespace vexil
