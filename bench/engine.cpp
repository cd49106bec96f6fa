// What the router costs for each three-byte message, from a program's write to the input's delivery, beside a
// plain ring of the same bytes. Nanoseconds of processor time, best of several runs. The exit status is 1
// when the bound is missed.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

#include "service/engine/Engine.h"

namespace {

using vexil::kMaxPorts;

constexpr int kCycles = 500;
constexpr int kPerCycle = 20;  // messages of each port
constexpr double kMessages = double{kCycles} * kPerCycle * kMaxPorts;
constexpr double kBound = 300;

class AddingSink : public vexil::EngineSink {
  public:
    std::size_t Room(const vexil::Destination&) const override { return 32768; }
    void Deliver(const vexil::Destination&, std::uint64_t, std::span<const std::uint8_t> bytes) override {
        for (const std::uint8_t byte : bytes) {
            sum += byte;
        }
        ++deliveries;
    }
    std::uint64_t sum = 0;
    std::uint64_t deliveries = 0;
};

std::array<std::uint8_t, 3> MessageOf(int index) {
    return {static_cast<std::uint8_t>(index % 2 == 0 ? 0x90 : 0x80), static_cast<std::uint8_t>(index % 128),
            64};
}

double Now() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Nanoseconds per message of the fastest run.
template <class Work>
double Best(int runs, Work work) {
    double best = 1e18;
    for (int run = 0; run < runs; ++run) {
        const double start = Now();
        work();
        best = std::min(best, (Now() - start) / kMessages);
    }
    return best;
}

// The same bytes through one ring for each port, message by message, without a look at them.
double PlainRing(int runs, std::uint64_t& sum) {
    struct Ring {
        std::array<std::uint8_t, 4096> bytes;
        std::size_t in = 0;
        std::size_t out = 0;
    };
    auto rings = std::make_unique<std::array<Ring, kMaxPorts>>();
    return Best(runs, [&] {
        for (int cycle = 0; cycle < kCycles; ++cycle) {
            for (Ring& ring : *rings) {
                for (int index = 0; index < kPerCycle; ++index) {
                    const std::array<std::uint8_t, 3> message = MessageOf(index);
                    std::memcpy(&ring.bytes[ring.in % 4092], message.data(), message.size());
                    ring.in += message.size();
                }
            }
            for (Ring& ring : *rings) {
                while (ring.out != ring.in) {
                    std::array<std::uint8_t, 3> message{};
                    std::memcpy(message.data(), &ring.bytes[ring.out % 4092], message.size());
                    ring.out += message.size();
                    sum += std::uint64_t{message[0]} + message[1] + message[2];
                }
            }
        }
    });
}

// Every port to the input that `inputOf` says, with messages held back by a quantization or not.
template <class InputOf>
double ThroughEngine(int runs, InputOf inputOf, std::uint32_t sendGranularity, AddingSink& sink) {
    vexil::Engine engine;
    vexil::WayTable ways;
    for (int port = 0; port < kMaxPorts; ++port) {
        ways[static_cast<std::size_t>(port)].to = vexil::Destination::Input(inputOf(port));
    }
    if (!engine.PostWays(ways) || !engine.PostQuantization(sendGranularity)) {
        return 1e18;
    }
    std::uint64_t now = 1'000'000;
    return Best(runs, [&] {
        for (int cycle = 0; cycle < kCycles; ++cycle) {
            engine.TakeCommands(now);
            for (int port = 0; port < kMaxPorts; ++port) {
                for (int index = 0; index < kPerCycle; ++index) {
                    engine.Write(port, now + static_cast<std::uint64_t>(index), MessageOf(index));
                }
            }
            now += 1'333'333;
            engine.Run(now, sink);
        }
        // What quantization still holds back.
        engine.Run(now + 100'000'000, sink);
        now += 100'000'000;
    });
}

}  // namespace

// The argument is a number of runs other than the usual one: instruction counts need one only.
int main(int count, char** arguments) {
    const int runs = count > 1 ? std::max(std::atoi(arguments[1]), 1) : 15;
    AddingSink sink;
    std::uint64_t sum = 0;
    const double ring = PlainRing(runs, sum);
    const double apart = ThroughEngine(
        runs, [](int port) { return (port + 1) % kMaxPorts; }, 0, sink);
    const double held = ThroughEngine(
        runs, [](int port) { return (port + 1) % kMaxPorts; }, 100, sink);
    const double merged = ThroughEngine(
        runs, [](int port) { return port % 8; }, 0, sink);
    std::printf("nanoseconds for a three-byte message, 64 ports, best of %d; at most %.0f\n", runs, kBound);
    std::printf("  %-48s %8.1f\n", "plain ring for each port", ring);
    std::printf("  %-48s %8.1f\n", "router, each port to an input of its own", apart);
    std::printf("  %-48s %8.1f\n", "router, held back to multiples of 10 ms", held);
    std::printf("  %-48s %8.1f\n", "router, eight ports merged at one input", merged);
    sum += sink.sum;  // so that no run is optimised away
    std::printf("  (sum of the bytes %llu, %llu deliveries)\n", static_cast<unsigned long long>(sum),
                static_cast<unsigned long long>(sink.deliveries));
    const bool lostNone = sink.deliveries == static_cast<std::uint64_t>(3 * runs * kMessages);
    if (!lostNone) {
        std::printf("  messages were lost\n");
    }
    return lostNone && std::max({apart, held, merged}) <= kBound ? 0 : 1;
}
