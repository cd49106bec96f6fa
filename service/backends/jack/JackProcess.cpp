#include "service/backends/jack/JackProcess.h"

#include <jack/midiport.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <limits>
#include <string_view>

#include "service/engine/Silencing.h"

namespace vexil {

namespace {

// The engine's times go on from those by which it was driven while there was no JACK.
std::uint64_t SteadyTime() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
}

// When the present cycle began, by the steady clock.
std::uint64_t BeginOfCycle(jack_client_t* client) {
    jack_nframes_t frames = 0;
    jack_time_t begin = 0;
    jack_time_t next = 0;
    float period = 0;
    if (jack_get_cycle_times(client, &frames, &begin, &next, &period) != 0) {
        return SteadyTime();
    }
    return SteadyTime() - 1000 * (jack_get_time() - begin);
}

// PipeWire's library takes as much as JACK's and packs it into 32 KiB behind the callback. What does not fit
// there takes the whole cycle of the port with it, or worse. Each event costs 16 bytes and its own rounded up
// to 8; in later versions a system exclusive is cut into packets of 6 bytes that cost 24 each.
constexpr std::size_t kPackedRoom = 32768 - 16 - 8;
constexpr std::size_t kPacket = 6;
constexpr std::size_t kPackedPacket = 24;

void Clear(void* buffer) {
    if (buffer != nullptr) {
        jack_midi_clear_buffer(buffer);
    }
}

std::size_t PackedSize(std::size_t size) {
    return (size + kPacket - 1) / kPacket * kPackedPacket;
}

}  // namespace

bool RunsOnPipeWire() {
    return std::string_view(jack_get_version_string()).find("PipeWire") != std::string_view::npos;
}

JackProcess::JackProcess(Engine& served, jack_client_t* jackClient, int wakeDescriptor, JackPulse& jackPulse)
    : engine(served),
      client(jackClient),
      wake(wakeDescriptor),
      pulse(jackPulse),
      isPipeWire(RunsOnPipeWire()),
      clock(jack_get_sample_rate(jackClient), SteadyTime()) {}

void JackProcess::SetPort(int port, bool output, jack_port_t* jackPort) {
    const auto index = static_cast<std::size_t>(port);
    (output ? outputs : inputs)[index].store(jackPort, std::memory_order_release);
    const std::uint64_t bit = std::uint64_t{1} << port;
    if (!output) {
        leftEmpty.fetch_and(~bit, std::memory_order_release);
    } else if (jackPort == nullptr) {
        writers[index].store(0);
        gone.fetch_or(bit, std::memory_order_release);
    }
}

void JackProcess::SetWriters(int port, int count) {
    const int before = writers[static_cast<std::size_t>(port)].exchange(count);
    // What was told of the last one may have been taken for one of several.
    if (before != 0 && count == 0) {
        gone.fetch_or(std::uint64_t{1} << port, std::memory_order_release);
    }
}

void JackProcess::Replace(int port, bool output, jack_port_t* jackPort) {
    const auto index = static_cast<std::size_t>(port);
    if (output) {
        outputs[index].store(jackPort, std::memory_order_release);
        gone.fetch_or(std::uint64_t{1} << port, std::memory_order_release);
    } else {
        // In this order: a cycle that uses the new one clears the old one.
        replaced[index].store(inputs[index].load(), std::memory_order_release);
        inputs[index].store(jackPort, std::memory_order_release);
    }
}

void JackProcess::Silence(int port) {
    toSilence.fetch_or(std::uint64_t{1} << port, std::memory_order_release);
}

void JackProcess::LeaveEmpty(int port) {
    leftEmpty.fetch_or(std::uint64_t{1} << port, std::memory_order_release);
}

void JackProcess::Disconnected(const jack_port_t* jackPort) {
    for (int port = 0; port < kMaxPorts; ++port) {
        if (outputs[static_cast<std::size_t>(port)].load(std::memory_order_acquire) == jackPort) {
            gone.fetch_or(std::uint64_t{1} << port, std::memory_order_release);
        }
    }
}

int JackProcess::Cycle(jack_nframes_t frames) {
    pulse.Cycle();
    clock.Begin(jack_last_frame_time(client), frames);
    limit.Begin(clock.End() - clock.Start());
    engine.TakeCommands(clock.Start());
    engine.SetClockLead(static_cast<std::int64_t>(clock.Start() - BeginOfCycle(client)));
    engine.TakeArrivals(clock.End() - clock.Start());
    // An output that is connected to an input of ours has that one's buffer: it is read before it is cleared.
    TakeEvents(frames);
    PrepareInputs(frames);
    SilenceReaders();
    EndWriters();
    engine.Run(clock.End(), *this, &limit);
    cycles.fetch_add(1, std::memory_order_release);
    return 0;
}

void JackProcess::PrepareInputs(jack_nframes_t frames) {
    const std::uint64_t empty = leftEmpty.load(std::memory_order_acquire);
    for (std::size_t port = 0; port < inputs.size(); ++port) {
        jack_port_t* jackPort = inputs[port].load(std::memory_order_acquire);
        void* buffer = jackPort == nullptr ? nullptr : jack_port_get_buffer(jackPort, frames);
        Clear(buffer);
        buffers[port] = (empty >> port & 1) != 0 ? nullptr : buffer;
        lastFrame[port] = 0;
        packed[port] = 0;
        jack_port_t* before = replaced[port].load(std::memory_order_acquire);
        Clear(before == nullptr ? nullptr : jack_port_get_buffer(before, frames));
    }
}

void JackProcess::SilenceReaders() {
    for (std::uint64_t left = toSilence.exchange(0, std::memory_order_acquire); left != 0; left &= left - 1) {
        const auto port = static_cast<std::size_t>(std::countr_zero(left));
        for (std::size_t index = 0; buffers[port] != nullptr && index < kSilencingMessages; ++index) {
            Put(port, 0, SilencingMessage(index));
        }
    }
}

// Of ports that are suspected of a loop, as much as the cycle allows, and another one first in each cycle.
void JackProcess::TakeEvents(jack_nframes_t frames) {
    std::uint64_t suspected = 0;
    for (int port = 0; port < kMaxPorts; ++port) {
        if (engine.SuspectedRate(port) != 0) {
            suspected |= std::uint64_t{1} << port;
        } else {
            TakeEvents(port, frames, false);
        }
    }
    firstSuspect = (firstSuspect + 1) % kMaxPorts;
    for (std::uint64_t left = std::rotr(suspected, firstSuspect); left != 0; left &= left - 1) {
        TakeEvents((std::countr_zero(left) + firstSuspect) % kMaxPorts, frames, true);
    }
}

void JackProcess::TakeEvents(int port, jack_nframes_t frames, bool isSuspected) {
    constexpr std::uint32_t kBetweenLooks = 64;
    jack_port_t* jackPort = outputs[static_cast<std::size_t>(port)].load(std::memory_order_acquire);
    void* buffer = jackPort == nullptr ? nullptr : jack_port_get_buffer(jackPort, frames);
    if (buffer == nullptr) {
        return;
    }
    const std::uint32_t count = jack_midi_get_event_count(buffer);
    std::uint32_t index = 0;
    for (; index < count; ++index) {
        if (isSuspected && index % kBetweenLooks == 0 && !limit.MayRead()) {
            break;
        }
        jack_midi_event_t event{};
        if (jack_midi_event_get(&event, buffer, index) == 0) {
            engine.Write(port, clock.TimeOf(std::min(event.time, frames - 1)), {event.buffer, event.size});
        }
    }
    // What JACK lost where it mixed the writers of this port, and what was left.
    const std::uint32_t notMixed = jack_midi_get_lost_event_count(buffer);
    NoteLost(notMixed);
    if (const std::uint32_t missed = notMixed + count - index; missed != 0) {
        engine.MessagesLost(port, clock.TimeOf(frames - 1), missed);
    }
}

// JACK tells of a writer that has gone while its last cycle may still be under way; so its notes end one
// cycle after the cycle that follows.
void JackProcess::EndWriters() {
    for (; ending != 0; ending &= ending - 1) {
        const int port = std::countr_zero(ending);
        if (writers[static_cast<std::size_t>(port)].load() > 0) {
            engine.OneWriterGone(port, clock.Start());
        } else {
            engine.WriterGone(port, clock.Start());
        }
    }
    ending = gone.exchange(0, std::memory_order_acquire);
}

std::size_t JackProcess::Room(const Destination& to) const {
    const auto port = std::size_t{to.port};
    if (buffers[port] == nullptr) {
        // What nobody can hear is taken and forgotten, or it would wait for ever.
        return std::numeric_limits<std::size_t>::max();
    }
    const std::size_t room = jack_midi_max_event_size(buffers[port]);
    return isPipeWire ? std::min(room, (kPackedRoom - packed[port]) / kPackedPacket * kPacket) : room;
}

void JackProcess::Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    const auto port = std::size_t{to.port};
    if (buffers[port] == nullptr) {
        return;
    }
    lastFrame[port] = std::max(lastFrame[port], clock.FrameOf(time));
    Put(port, lastFrame[port], bytes);
}

void JackProcess::Put(std::size_t port, jack_nframes_t frame, std::span<const std::uint8_t> bytes) {
    packed[port] += PackedSize(bytes.size());
    jack_midi_data_t* place = jack_midi_event_reserve(buffers[port], frame, bytes.size());
    if (place == nullptr) {
        NoteLost(1);
        return;
    }
    std::copy(bytes.begin(), bytes.end(), place);
}

void JackProcess::NoteLost(std::uint64_t messages) {
    if (messages != 0 && lost.fetch_add(messages, std::memory_order_relaxed) == 0) {
        // A counter that is full is readable already.
        static_cast<void>(::eventfd_write(wake, 1));
    }
}

}  // namespace vexil
