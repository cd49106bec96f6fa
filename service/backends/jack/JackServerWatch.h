// Sees a JACK server come, without asking again and again: it watches the folders in which servers leave
// their files and sockets, and after something has appeared there gives a bounded number of moments to try.
// One thread at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "shared/System/Descriptor.h"

namespace vexil {

class JackServerWatch {
  public:
    using Clock = std::chrono::steady_clock;

    // A folder, and how the names of files begin that tell of a server. A folder that is not there is not
    // watched.
    struct Place {
        std::string folder;
        std::string prefix;
    };
    // Where JACK servers and PipeWire leave theirs, for a user with this environment.
    static std::vector<Place> UsualPlaces();

    explicit JackServerWatch(std::vector<Place> watchedPlaces);

    // Readable when TakeEvents has something to do; -1 when the system gives no descriptor (then Problem says
    // so). The same for the whole life of the object.
    int EventDescriptor() const { return events.Number(); }
    std::string Problem() const { return problem; }

    // Begins to watch, and to give moments to try, the first at once.
    void Begin(Clock::time_point now);
    // Nothing wakes it until the next Begin.
    void End();

    // Takes up what has appeared.
    void TakeEvents(Clock::time_point now);
    // When to try next; null when nothing has appeared for a while.
    std::optional<Clock::time_point> NextTry() const { return nextTry; }
    // A try has failed.
    void TryFailed(Clock::time_point now);

  private:
    struct Watched {
        int number;  // of the kernel's
        std::string prefix;
    };
    void StartTrying(Clock::time_point now);

    std::vector<Place> places;
    Descriptor events;
    std::string problem;
    std::vector<Watched> watched;
    std::optional<Clock::time_point> nextTry;
    std::size_t tries = 0;
};

}  // namespace vexil
