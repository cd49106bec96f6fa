// What the ALSA back end costs for each message beside the kernel's part: an event of the sequencer is taken
// apart, goes through the engine and becomes an event again. No sequencer is needed. Nanoseconds of processor
// time, best of several runs. The exit status is 1 when the bound is missed.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

#include "service/backends/alsa/AlsaCodec.h"
#include "service/backends/alsa/AlsaWriters.h"
#include "service/engine/Engine.h"

namespace {

using vexil::kMaxPorts;

constexpr int kCycles = 500;
constexpr int kPerCycle = 20;  // events of each port
constexpr int kEvents = kCycles * kPerCycle * kMaxPorts;
constexpr double kBound = 400;
constexpr std::uint32_t kPieceBytes = 256;

class EncodingSink : public vexil::EngineSink {
  public:
    std::size_t Room(const vexil::Destination&) const override { return 32768; }
    void Deliver(const vexil::Destination&, std::uint64_t, std::span<const std::uint8_t> bytes) override {
        while (!bytes.empty()) {
            const auto piece = bytes.first(std::min(bytes.size(), vexil::kAlsaPieceBytes));
            bytes = bytes.subspan(piece.size());
            snd_seq_event_t event;
            encoded += codec.Encode(piece, event) ? 1 : 0;
        }
    }
    int encoded = 0;

  private:
    vexil::AlsaCodec codec;
};

double Now() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

snd_seq_event_t NoteEvent(int index) {
    snd_seq_event_t event{};
    event.type = index % 2 == 0 ? SND_SEQ_EVENT_NOTEON : SND_SEQ_EVENT_NOTEOFF;
    event.data.note.note = static_cast<unsigned char>(index / 2 % 128);
    event.data.note.velocity = 64;
    return event;
}

// System exclusive in pieces as most programs send them.
snd_seq_event_t PieceEvent(int index) {
    static std::array<std::array<std::uint8_t, kPieceBytes>, 3> pieces{};
    pieces[0].front() = 0xF0;
    pieces[2].back() = 0xF7;
    const int place = index % 4;
    snd_seq_event_t event{};
    event.type = SND_SEQ_EVENT_SYSEX;
    event.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
    event.data.ext.len = kPieceBytes;
    event.data.ext.ptr = pieces[place == 0 ? 0 : place == 3 ? 2 : 1].data();
    return event;
}

struct Path {
    vexil::Engine engine;
    vexil::AlsaCodec codec;
    vexil::AlsaWriters writers{engine};
    EncodingSink sink;
};

void Hear(Path& path, int port, vexil::AlsaAddress writer, std::uint64_t now, const snd_seq_event_t& event) {
    const vexil::AlsaBytes written = path.codec.Decode(event);
    if (written.systemExclusive) {
        path.writers.HearExclusive(port, writer, now, written.bytes);
    } else {
        path.writers.Hear(port, writer, now, written.bytes);
    }
}

// Nanoseconds per event of the fastest of `runs`. `programs` write to each port in turn.
template <class MakeEvent>
double Best(int runs, int programs, MakeEvent makeEvent, bool& lost) {
    Path path;
    vexil::WayTable ways;
    for (int port = 0; port < kMaxPorts; ++port) {
        ways[static_cast<std::size_t>(port)].to = vexil::Destination::Input((port + 1) % kMaxPorts);
    }
    lost |= !path.engine.PostWays(ways);
    std::uint64_t now = 1'000'000;
    path.engine.TakeCommands(now);
    double best = 1e18;
    for (int run = 0; run < runs; ++run) {
        const int before = path.sink.encoded;
        const double start = Now();
        for (int cycle = 0; cycle < kCycles; ++cycle) {
            for (int port = 0; port < kMaxPorts; ++port) {
                for (int index = 0; index < kPerCycle; ++index) {
                    const vexil::AlsaAddress writer{static_cast<std::uint8_t>(130 + index % programs), 0};
                    Hear(path, port, writer, now, makeEvent(index));
                }
            }
            now += 1'000'000;
            path.engine.Run(now, path.sink);
        }
        best = std::min(best, (Now() - start) / kEvents);
        lost |= path.sink.encoded - before != kEvents;
    }
    return best;
}

}  // namespace

// The argument is a number of runs other than the usual one: instruction counts need one only.
int main(int count, char** arguments) {
    const int runs = count > 1 ? std::max(std::atoi(arguments[1]), 1) : 15;
    bool lost = false;
    const double alone = Best(runs, 1, NoteEvent, lost);
    const double several = Best(runs, 4, NoteEvent, lost);
    const double exclusive = Best(runs, 1, PieceEvent, lost);
    std::printf("nanoseconds for an event, 64 ports, best of %d; notes at most %.0f\n", runs, kBound);
    std::printf("  %-48s %8.1f\n", "notes of one program on each port", alone);
    std::printf("  %-48s %8.1f\n", "notes of four programs on each port", several);
    std::printf("  %-48s %8.1f\n", "pieces of system exclusive, 256 bytes", exclusive);
    if (lost) {
        std::printf("  messages were lost\n");
    }
    return !lost && std::max(alone, several) <= kBound ? 0 : 1;
}
