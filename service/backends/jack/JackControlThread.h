// The thread that asks JACK. Each of libjack's control calls (open, close, register, rename, unregister,
// connect) waits for the server and through it for other programs, for seconds or without end when one of
// them stands still; so the service's control thread makes no such call; it posts its wishes here and reads
// what has become of them. Neither ever waits, but Stop, which has a limit.
//
// A thread that is still inside libjack at that limit is left behind with everything it may touch, the
// engine's user included: the process has to end without freeing the engine.
//
// All operations are for the control thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "service/backends/MidiBackend.h"
#include "service/backends/RuntimeState.h"
#include "service/backends/jack/JackPulse.h"
#include "service/backends/jack/JackServerWatch.h"

namespace vexil {

class JackControlThread {
  public:
    // What has become of the wishes so far.
    struct Results {
        // Clients of JACK that were opened so far, and closed. The last that was opened is there while more
        // were opened than closed; it does not drive the engine before Activate, nor after it was closed.
        unsigned opened = 0;
        unsigned closed = 0;
        std::string problem;  // why there is no client; empty while there is one
        std::string realtimeProblem;
        std::vector<PublishedEndpoint> published;  // those that are shown
        std::uint64_t lost = 0;                    // messages that JACK had no room for
        unsigned takenUp = 0;                      // of the calls of Publish, the last that the client has
        unsigned settled = 0;                      // of the calls of Publish, the last that is done with
    };

    // `eventDescriptor` is an eventfd; raised when TakeResults has something new.
    JackControlThread(Engine& engine, const RuntimeState& state,
                      std::vector<JackServerWatch::Place> serverPlaces, int eventDescriptor);
    // Stops.
    ~JackControlThread();
    JackControlThread(const JackControlThread&) = delete;
    JackControlThread& operator=(const JackControlThread&) = delete;

    void Publish(const std::vector<Endpoint>& endpoints);
    // The client that was opened as the `opened`th may drive the engine: nobody else does any longer.
    void Activate(unsigned opened);
    // Lets what was delivered be read, closes the client and ends the thread. False when that was not to be
    // had within `longest`; the thread is left behind then.
    bool Stop(std::chrono::milliseconds longest);

    // What is new since the last call: `lost` counts from there.
    Results TakeResults();
    // The last known.
    std::vector<PublishedEndpoint> Published() const;
    std::string RealtimeProblem() const;
    // As JackBackend's.
    bool IsTakenUp() const;
    bool IsSettled() const;
    // Since when JACK has been awaited, or has run no cycle, for longer than is usual; null while it answers.
    std::optional<JackPulse::Clock::time_point> SilentSince() const;
    // When the answer that is awaited now is overdue; null when no answer is awaited or it is overdue
    // already.
    std::optional<JackPulse::Clock::time_point> OverdueAt() const;

  private:
    struct Mailbox;
    class Work;

    std::shared_ptr<Mailbox> mailbox;  // shared with the thread, which may outlive this object
    std::thread thread;
};

}  // namespace vexil
