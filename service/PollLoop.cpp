#include "service/PollLoop.h"

#include <chrono>
#include <cstddef>

namespace vexil {

void PollLoop::Forget(int descriptor) {
    for (PollParticipant& participant : participants) {
        if (participant.descriptor == descriptor) {
            participant.descriptor = -1;
        }
    }
}

void PollLoop::Round() {
    using Clock = std::chrono::steady_clock;
    std::vector<pollfd> waiting;
    std::vector<Clock::time_point> due;
    int shortest = -1;
    for (const PollParticipant& participant : participants) {
        // A descriptor of -1 is passed over.
        waiting.push_back({participant.descriptor, participant.events, 0});
        const int timeout = participant.timeout ? participant.timeout() : -1;
        due.push_back(timeout < 0 ? Clock::time_point::max()
                                  : Clock::now() + std::chrono::milliseconds(timeout));
        if (timeout >= 0 && (shortest < 0 || timeout < shortest)) {
            shortest = timeout;
        }
    }
    // An interrupted wait is a round in which nobody's descriptor is ready.
    const int ready = poll(waiting.data(), waiting.size(), shortest);
    const Clock::time_point now = Clock::now();
    for (std::size_t i = 0; i < participants.size(); ++i) {
        if ((ready > 0 && waiting[i].revents != 0) || now >= due[i]) {
            participants[i].serve();
        }
    }
}

}  // namespace vexil
