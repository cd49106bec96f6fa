// 64 ports with 1,000 messages a second each through the service on JACK, for a minute, beside the service
// with nothing to do. The exit status is 1 when a message is lost, or the service takes 10 % of one processor
// core or more.
#include <jack/midiport.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "bench/JackBench.h"

namespace {

using namespace vexil::bench;

constexpr int kPorts = 64;
constexpr std::uint64_t kMessagesASecond = 1000;
constexpr double kBound = 10;  // per cent of one core

struct Writer {
    static int Process(jack_nframes_t frames, void* writer) {
        auto* self = static_cast<Writer*>(writer);
        if (self->on.load()) {
            self->frames += frames;
        }
        const std::uint64_t due = self->frames * kMessagesASecond / 48000;
        for (jack_port_t* port : self->ports) {
            void* buffer = jack_port_get_buffer(port, frames);
            jack_midi_clear_buffer(buffer);
            for (std::uint64_t i = self->written; i < due; ++i) {
                const std::array<jack_midi_data_t, 3> message = {0xB0,
                                                                 static_cast<jack_midi_data_t>(i / 128 % 128),
                                                                 static_cast<jack_midi_data_t>(i % 128)};
                if (jack_midi_event_write(buffer, 0, message.data(), message.size()) != 0) {
                    ++self->refused;
                }
            }
        }
        self->written = due;
        return 0;
    }
    std::array<jack_port_t*, kPorts> ports{};
    std::atomic<bool> on{false};
    std::uint64_t frames = 0;
    std::atomic<std::uint64_t> written{0};  // on each port
    std::atomic<std::uint64_t> refused{0};
};

struct Reader {
    static int Process(jack_nframes_t frames, void* reader) {
        auto* self = static_cast<Reader*>(reader);
        for (std::size_t port = 0; port < self->ports.size(); ++port) {
            void* buffer = jack_port_get_buffer(self->ports[port], frames);
            for (std::uint32_t i = 0; i < jack_midi_get_event_count(buffer); ++i) {
                jack_midi_event_t event{};
                if (jack_midi_event_get(&event, buffer, i) != 0 || event.size != 3) {
                    continue;
                }
                const std::uint32_t number = event.buffer[1] * 128U + event.buffer[2];
                self->outOfOrder += number != self->next[port] % 16384 ? 1 : 0;
                ++self->next[port];
                ++self->heard;
            }
        }
        return 0;
    }
    std::array<jack_port_t*, kPorts> ports{};
    std::array<std::uint32_t, kPorts> next{};
    std::atomic<std::uint64_t> heard{0};
    std::atomic<std::uint64_t> outOfOrder{0};
};

// Per cent of one core that the service takes for a while.
double Load(const ServiceProcess& service, std::chrono::seconds duration) {
    const auto start = std::chrono::steady_clock::now();
    const double before = service.ProcessorSeconds();
    std::this_thread::sleep_for(duration);
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    return 100 * (service.ProcessorSeconds() - before) / passed.count();
}

}  // namespace

int main(int count, char** arguments) {
    ServiceProcess::ServeIfAsked(count, arguments);
    const std::chrono::seconds duration(count == 2 ? std::atoi(arguments[1]) : 60);
    StartServer(true);
    const ServiceProcess service;
    Writer writer;
    Reader reader;
    double idle = 0;
    double busy = 0;
    {
        Client writing("writer", Writer::Process, &writer);
        Client reading("reader", Reader::Process, &reader);
        for (std::size_t port = 0; port < kPorts; ++port) {
            writer.ports[port] = writing.AddPort("out " + std::to_string(port), true);
            reader.ports[port] = reading.AddPort("in " + std::to_string(port), false);
        }
        reading.Activate();
        writing.Activate();
        for (int port = 0; port < kPorts; ++port) {
            Client::Connect(writing.client, "writer:out " + std::to_string(port), OutputAddress(port));
            Client::Connect(reading.client, InputAddress(port), "reader:in " + std::to_string(port));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        idle = Load(service, std::chrono::seconds(5));
        writer.on = true;
        busy = Load(service, duration);
        writer.on = false;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    const std::uint64_t sent = writer.written * kPorts;
    const bool isWhole = reader.heard == sent && reader.outOfOrder == 0 && writer.refused == 0;
    const bool isWithin = busy < kBound;
    std::printf("%d ports, %llu messages a second each, %lld s, period %d frames\n", kPorts,
                static_cast<unsigned long long>(kMessagesASecond), static_cast<long long>(duration.count()),
                kPeriod);
    std::printf("sent %llu   heard %llu   out of order %llu   %s\n", static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(reader.heard),
                static_cast<unsigned long long>(reader.outOfOrder), isWhole ? "met" : "MISSED");
    std::printf("service    idle %.2f %% of a core   busy %.2f %%   bound %.0f %%   %s\n", idle, busy, kBound,
                isWithin ? "met" : "MISSED");
    return isWhole && isWithin ? 0 : 1;
}
