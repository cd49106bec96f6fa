// What happens in each cycle of JACK: events of the ports that programs write to go into the engine, and what
// it delivers goes into the ports that programs read from, at its frame.
//
// Threads. Cycle is for JACK's process thread, Disconnected for any; the rest is for the control thread.
// Nothing here allocates, waits or makes a system call on the process thread, but for looks at the time that
// it has used and one write to a descriptor when messages were lost.
#pragma once

#include <jack/jack.h>
#include <jack/midiport.h>

#include <array>
#include <atomic>
#include <cstdint>

#include "service/backends/jack/CycleLimit.h"
#include "service/backends/jack/FrameClock.h"
#include "service/backends/jack/JackPulse.h"
#include "service/engine/Engine.h"

namespace vexil {

// Whether libjack is PipeWire's.
bool RunsOnPipeWire();

class JackProcess : private EngineSink {
  public:
    // `wakeDescriptor` is an eventfd that is raised when messages were lost.
    JackProcess(Engine& engine, jack_client_t* client, int wakeDescriptor, JackPulse& jackPulse);
    JackProcess(const JackProcess&) = delete;
    JackProcess& operator=(const JackProcess&) = delete;

    // The port of an endpoint from the next cycle on; null: no port. A port that is taken away may be in use
    // until the cycle that is under way has ended. A port that was written to no longer has writers when it
    // is taken away.
    void SetPort(int port, bool output, jack_port_t* jackPort);
    // The port of an endpoint is another from the next cycle on, and what sounds on an output's way ends. The
    // one that it was is left empty, until ForgetReplaced.
    void Replace(int port, bool output, jack_port_t* jackPort);
    void ForgetReplaced(int port) { replaced[static_cast<std::size_t>(port)].store(nullptr); }
    // The readers of an input are told in the next cycle to end what sounds: pedals up, All Notes Off, on
    // every channel.
    void Silence(int port);
    // The port of an input is left empty from the next cycle on, until SetPort: JACK gives readers of a port
    // that is no longer used what was in it last over and over.
    void LeaveEmpty(int port);
    // Cycles that have ended; begins anew after the highest number.
    unsigned Cycles() const { return cycles.load(std::memory_order_acquire); }
    // A connection of one of JACK's ports has ended. JACK mixes what several programs write to one port, so
    // what each of them holds cannot be told apart: with one that goes, all of the port's notes end. A system
    // exclusive that is under way may be another's who stays: it goes on first, and the notes end behind it.
    void Disconnected(const jack_port_t* jackPort);
    // So many programs are connected to the output of a port.
    void SetWriters(int port, int count);
    // Messages that JACK had no room for, since the last call.
    std::uint64_t TakeLost() { return lost.exchange(0, std::memory_order_relaxed); }

    int Cycle(jack_nframes_t frames);

  private:
    using Ports = std::array<std::atomic<jack_port_t*>, kMaxPorts>;

    // Of the engine's; `jack_midi_event_reserve` takes what Room has promised.
    std::size_t Room(const Destination& to) const override;
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override;

    void PrepareInputs(jack_nframes_t frames);
    void SilenceReaders();
    void Put(std::size_t port, jack_nframes_t frame, std::span<const std::uint8_t> bytes);
    void TakeEvents(jack_nframes_t frames);
    void TakeEvents(int port, jack_nframes_t frames, bool isSuspected);
    void EndWriters();
    void NoteLost(std::uint64_t messages);

    Engine& engine;
    jack_client_t* client;
    int wake;
    JackPulse& pulse;
    const bool isPipeWire;

    Ports outputs{};
    Ports inputs{};
    Ports replaced{};                                   // of inputs, by another port; only cleared
    std::atomic<std::uint64_t> toSilence{0};            // bit p: as Silence
    std::atomic<std::uint64_t> leftEmpty{0};            // bit p: nothing goes into the port of input p
    std::array<std::atomic<int>, kMaxPorts> writers{};  // as SetWriters
    std::atomic<std::uint64_t> gone{0};                 // bit p: a writer of output p has gone
    std::atomic<unsigned> cycles{0};                    // as Cycles
    std::atomic<std::uint64_t> lost{0};

    // The process thread's.
    FrameClock clock;
    CycleLimit limit;
    int firstSuspect = 0;      // the port from which on those that are suspected of a loop are read
    std::uint64_t ending = 0;  // bit p: taken from `gone` in the cycle before
    std::array<void*, kMaxPorts> buffers{};
    std::array<jack_nframes_t, kMaxPorts> lastFrame{};
    std::array<std::size_t, kMaxPorts> packed{};  // bytes that PipeWire makes of what a buffer holds
};

}  // namespace vexil
