// A MIDI system of this computer, as the service needs it: endpoints of ports for music programs, and a
// thread that drives the engine.
//
// Threads. All operations are for the control thread. While IsRunning, a thread of the back end is the
// engine's engine thread, and the control thread keeps to the engine's control half. While not, no thread of
// the back end touches the engine, and its owner may drive it from the control thread; on a loss the back end
// calls Engine::Forget once before it says that it has stopped running. Start and HandleEvents may change
// IsRunning, nothing else does but Stop. No operation waits for the MIDI system, but Start and Stop, which
// have a limit.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "service/backends/Endpoint.h"
#include "service/engine/Engine.h"

namespace vexil {

// How the problem ends of a back end that does not know yet whether its MIDI system is there.
inline constexpr std::string_view kIsBeingStarted = "is being started.";

class MidiBackend {
  public:
    // Stops.
    virtual ~MidiBackend() = default;

    // "alsa", "jack" or "none".
    virtual const char* Name() const = 0;

    // Begins to serve the engine, which must outlive Stop. A MIDI system that is not there is no failure: the
    // back end is then not running, Problem says why, and it takes the system up when it comes. Called once.
    virtual void Start(Engine& engine) = 0;
    // Withdraws every endpoint and ends. What the engine has delivered by now still reaches its readers;
    // waits at most 1 s for that. Twice is once.
    virtual void Stop() = 0;
    // Whether Stop has left a thread behind that hangs inside the MIDI system. It may go on at any time: what
    // was handed to the back end must not be freed, and the process has to end by _exit.
    virtual bool IsStuck() const = 0;

    virtual bool IsRunning() const = 0;
    // Why it is not running, or runs and carries nothing for the MIDI system does not answer; one sentence
    // for the user, else empty.
    virtual std::string Problem() const = 0;
    // Whether an endpoint that is hidden is still there, with its connections. Where not, it goes like one
    // that is withdrawn. Always the same.
    virtual bool CanHide() const = 0;

    // Replaces the whole set of endpoints. One whose port and side stay keeps its connections, also when its
    // name changes; one that is no longer in the set is withdrawn, after what was delivered to it has
    // reached its readers. The MIDI system may take that up later, and HandleEvents go on with it. Remembered
    // while the MIDI system is away. The loss of an output's last writer, or of a writer where the system
    // tells them apart, reaches the engine as WriterGone; that of another as OneWriterGone.
    virtual void Publish(const std::vector<Endpoint>& endpoints) = 0;
    // One for each endpoint that was asked for, in the order of Publish.
    virtual std::vector<PublishedEndpoint> Published() const = 0;

    // Becomes readable when HandleEvents has something to do (the system went or came back); -1 when it never
    // has. The same for the whole life of the object.
    virtual int EventDescriptor() const = 0;
    // When to call HandleEvents at the latest, in milliseconds from now; -1: only on the descriptor. Other
    // than -1 only for a bounded time after an event.
    virtual int EventTimeout() const = 0;
    // Takes up what has happened: the loss of the MIDI system, its return, the end of what Publish began.
    // Never waits long (100 ms).
    virtual void HandleEvents() = 0;

    // Why the engine's thread has no realtime priority; empty when it has, or when there is no such thread.
    virtual std::string RealtimeProblem() const = 0;
};

}  // namespace vexil
