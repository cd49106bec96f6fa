// How long a message takes from one music program to another on JACK: through a port of the service, and by a
// direct connection of the same two programs, in the same cycles. Once in the frames of JACK, which is when
// it sounds, and once by the clock, from the writer's callback to the reader's. First on a synchronous
// server, then on an asynchronous one. The exit status is 1 when the way through the service takes more than
// one period longer, at the median or at the 99th percentile, or when a message is lost on a synchronous
// server; an asynchronous one may lose some of any program that is late, so they are only counted there.
#include <jack/midiport.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bench/JackBench.h"

namespace {

using namespace vexil::bench;

constexpr int kSequences = 128 * 128;
constexpr std::chrono::seconds kDuration{15};

double NowMicroseconds() {
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

struct Sent {
    std::atomic<jack_nframes_t> frame{0};
    std::atomic<double> time{0};
};
std::array<Sent, kSequences> sent;

// What one program reads.
struct Way {
    void Read(jack_client_t* client, jack_nframes_t frames) {
        void* buffer = jack_port_get_buffer(port, frames);
        const double now = NowMicroseconds();
        for (std::uint32_t i = 0; i < jack_midi_get_event_count(buffer); ++i) {
            jack_midi_event_t event{};
            if (jack_midi_event_get(&event, buffer, i) != 0 || event.size != 3) {
                continue;
            }
            const Sent& record = sent[static_cast<std::size_t>(event.buffer[1] * 128 + event.buffer[2])];
            const auto late =
                static_cast<std::int32_t>(jack_last_frame_time(client) + event.time - record.frame.load());
            inFrames.push_back(late * 1e6 / 48000);
            byClock.push_back(now - record.time.load());
        }
    }
    jack_port_t* port = nullptr;
    std::vector<double> inFrames;  // microseconds
    std::vector<double> byClock;
};

// A program that writes the same to its ports, one message a cycle, and reads its ways.
struct Program {
    static int Process(jack_nframes_t frames, void* program) {
        auto* self = static_cast<Program*>(program);
        for (Way* way : self->ways) {
            way->Read(self->client, frames);
        }
        self->Write(frames);
        return 0;
    }
    void Write(jack_nframes_t frames) {
        const auto offset = static_cast<jack_nframes_t>(sequence * 7) % frames;
        const std::array<jack_midi_data_t, 3> message = {0xB0,
                                                         static_cast<jack_midi_data_t>(sequence / 128 % 128),
                                                         static_cast<jack_midi_data_t>(sequence % 128)};
        const bool writes = on.load() && !outputs.empty();
        if (writes) {
            Sent& record = sent[static_cast<std::size_t>(sequence % kSequences)];
            record.frame = jack_last_frame_time(client) + offset;
            record.time = NowMicroseconds();
            ++sequence;
        }
        for (jack_port_t* port : outputs) {
            void* buffer = jack_port_get_buffer(port, frames);
            jack_midi_clear_buffer(buffer);
            if (writes) {
                jack_midi_event_write(buffer, offset, message.data(), message.size());
            }
        }
    }
    jack_client_t* client = nullptr;
    std::vector<jack_port_t*> outputs;
    std::vector<Way*> ways;
    std::atomic<bool> on{false};
    int sequence = 0;
};

double At(std::vector<double> values, double part) {
    if (values.empty()) {
        return 1e9;
    }
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(part * static_cast<double>(values.size() - 1))];
}

// Prints one line; whether the bound is met.
bool Compare(const char* what, const std::vector<double>& direct, const std::vector<double>& service) {
    bool isMet = true;
    for (const double part : {0.5, 0.99}) {
        const double one = At(direct, part);
        const double other = At(service, part);
        const bool isWithin = other - one <= kPeriodMicroseconds + 0.01;
        isMet = isMet && isWithin;
        std::printf("%-10s %-16s direct %9.1f us   service %9.1f us   more %9.1f us   bound %.1f us   %s\n",
                    what, part == 0.5 ? "median" : "99th percentile", one, other, other - one,
                    kPeriodMicroseconds, isWithin ? "met" : "MISSED");
    }
    return isMet;
}

// The direct way and that through the service, measured together. The reader of each is a program of its own,
// or both are the writer itself, so that the ways are rings.
bool Measure(bool isRing, bool mayLose) {
    Program writer;
    std::array<Program, 2> readers;
    std::array<Way, 2> ways;  // direct, through the service
    {
        Client writing("writer", Program::Process, &writer);
        Client directReading("direct", Program::Process, &readers[0]);
        Client serviceReading("service", Program::Process, &readers[1]);
        const std::array<Client*, 2> reading = {isRing ? &writing : &directReading,
                                                isRing ? &writing : &serviceReading};
        writer.client = writing.client;
        for (std::size_t i = 0; i < ways.size(); ++i) {
            readers[i].client = (i == 0 ? directReading : serviceReading).client;
            ways[i].inFrames.reserve(100'000);
            ways[i].byClock.reserve(100'000);
            ways[i].port = reading[i]->AddPort("in " + std::to_string(i), false);
            writer.outputs.push_back(writing.AddPort("out " + std::to_string(i), true));
            (isRing ? writer : readers[i]).ways.push_back(&ways[i]);
        }
        for (Client* client : {&directReading, &serviceReading, &writing}) {
            client->Activate();
        }
        Client::Connect(writing.client, "writer:out 0", jack_port_name(ways[0].port));
        Client::Connect(writing.client, "writer:out 1", OutputAddress(0));
        Client::Connect(writing.client, InputAddress(0), jack_port_name(ways[1].port));
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        writer.on = true;
        std::this_thread::sleep_for(kDuration);
        writer.on = false;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    std::printf("%s: %d messages, period %d frames (%.1f us)\n",
                isRing ? "one program that hears itself" : "from one program to another", writer.sequence,
                kPeriod, kPeriodMicroseconds);
    bool isMet = Compare("in frames", ways[0].inFrames, ways[1].inFrames);
    isMet = Compare("by clock", ways[0].byClock, ways[1].byClock) && isMet;
    const auto written = static_cast<std::size_t>(writer.sequence);
    const std::size_t heard = std::min(ways[0].inFrames.size(), ways[1].inFrames.size());
    const bool isWhole = written != 0 && (mayLose ? heard != 0 : heard == written);
    std::printf("heard      directly %zu, through the service %zu, of %zu   %s\n", ways[0].inFrames.size(),
                ways[1].inFrames.size(), written, isWhole ? (mayLose ? "no bound" : "met") : "MISSED");
    return isMet && isWhole;
}

}  // namespace

int main(int count, char** arguments) {
    ServiceProcess::ServeIfAsked(count, arguments);
    bool isMet = true;
    for (const bool isSynchronous : {true, false}) {
        StartServer(isSynchronous);
        const ServiceProcess service;
        for (const bool isRing : {false, true}) {
            isMet = Measure(isRing, !isSynchronous) && isMet;
        }
    }
    return isMet ? 0 : 1;
}
