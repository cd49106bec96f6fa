// Usage: alsa_soak SECONDS [SEED]
//
// Half an hour of the ALSA back end among music programs that are stopped, slow, killed and disconnected at
// random. Four ports are steady: nothing on them may be lost, doubled or put out of order, although wild
// programs read their inputs, too. On the four wild ports every message must be whole, and nothing may sound
// on when all wild programs have been killed. Runs where there is a sequencer, by hand:
//
//   tests/system/alsa_machine/alsa_machine.py --cache FOLDER --seconds 2000 -- alsa_soak 1800
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "service/backends/alsa/AlsaBackend.h"
#include "service/engine/MidiParser.h"
#include "tests/service/backends/alsa/AlsaProgram.h"
#include "tests/service/engine/InputListener.h"

namespace vexil {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Bytes = MidiProgram::Bytes;

constexpr int kSteady = 4;
constexpr int kPorts = 8;
constexpr int kWild = 8;
constexpr const char* kWildArgument = "--wild";

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): a signal's
std::atomic<bool> isToDisconnect{false};

Bytes RandomMessage(std::mt19937& random, std::uint8_t number) {
    const auto channel = static_cast<std::uint8_t>(random() % 16);
    const auto note = static_cast<std::uint8_t>(random() % 128);
    switch (random() % 5) {
        case 0:
            return {static_cast<std::uint8_t>(0xB0 | channel), 64, static_cast<std::uint8_t>(random() % 128)};
        case 1: {
            Bytes exclusive(2 + random() % 250, number);
            exclusive.front() = 0xF0;
            exclusive.back() = 0xF7;
            return exclusive;
        }
        default:
            return {static_cast<std::uint8_t>(0x90 | channel), note,
                    static_cast<std::uint8_t>(random() % 2 * 100)};
    }
}

// A wild program: plays to a wild output, and reads a wild and often a steady input, at a speed of its own.
int PlayWildly(std::uint8_t number, int service, unsigned seed) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGUSR1, [](int) { isToDisconnect = true; });
    std::mt19937 random(seed);
    AlsaProgram program(("wild " + std::to_string(number)).c_str());
    const auto connect = [&] {
        const auto wild = static_cast<int>(kSteady + random() % (kPorts - kSteady));
        const auto steady = static_cast<int>(random() % kSteady);
        const std::string client = std::to_string(service) + ":";
        program.WriteTo(client + std::to_string(wild));
        program.ReadFrom(client + std::to_string(kFirstInputPort + wild));
        if (random() % 2 == 0) {
            program.ReadFrom(client + std::to_string(kFirstInputPort + steady));
        }
    };
    connect();
    const milliseconds pause(random() % 3 == 0 ? random() % 300 : 1 + random() % 5);
    for (;;) {
        program.Write(RandomMessage(random, number));
        program.Read();
        if (isToDisconnect.exchange(false)) {
            program.Disconnect();
            std::this_thread::sleep_for(milliseconds(100));
            connect();
        }
        std::this_thread::sleep_for(pause);
    }
}

class Soak {
  public:
    explicit Soak(unsigned seed) : random(seed) {
        backend.Start(engine);
        std::vector<Endpoint> endpoints;
        WayTable ways;
        for (int port = 0; port < kPorts; ++port) {
            endpoints.push_back({port, true, "port", false});
            endpoints.push_back({port, false, "port", false});
            ways[static_cast<std::size_t>(port)].to = Destination::Input(port);
        }
        backend.Publish(endpoints);
        engine.PostWays(ways);
        const std::string address = backend.Published()[0].address;
        service = std::stoi(address);
        for (int port = 0; port < kPorts; ++port) {
            const std::string client = std::to_string(service) + ":";
            readers[At(port)].SetReadPool(2000);
            Expect(readers[At(port)].ReadFrom(client + std::to_string(kFirstInputPort + port)), "reading");
            if (port < kSteady) {
                Expect(writers[At(port)].WriteTo(client + std::to_string(port)), "writing");
            }
        }
    }

    void Run(std::chrono::seconds time) {
        directReader.SetReadPool(2000);
        Expect(directWriter.WriteTo(std::to_string(directReader.Id()) + ":1"), "a direct connection");
        const auto begin = steady_clock::now();
        auto nextDeed = begin;
        auto nextSilence = begin + std::chrono::seconds(20);
        auto nextNote = begin;
        auto nextReport = begin + std::chrono::seconds(60);
        for (auto now = begin; now < begin + time; now = steady_clock::now()) {
            for (; nextNote <= now; nextNote += milliseconds(5)) {
                PlaySteadily();
            }
            Step();
            if (now >= nextDeed) {
                DoSomething();
                nextDeed = now + milliseconds(random() % 400);
            }
            if (now >= nextSilence) {
                Silence();
                nextSilence = steady_clock::now() + std::chrono::seconds(20);
            }
            if (now >= nextReport) {
                Report();
                nextReport = now + std::chrono::seconds(60);
            }
        }
        Silence();
        Expect(Eventually([&] { return heard == written; }), "the end of the steady streams");
        Report();
    }

  private:
    static std::size_t At(int port) { return static_cast<std::size_t>(port); }

    void Expect(bool isTrue, const char* what) {
        if (!isTrue) {
            Report();
            std::printf("FAILED: %s\n", what);
            std::fflush(stdout);
            std::_Exit(1);
        }
    }

    void PlaySteadily() {
        directSentAt.push_back(steady_clock::now());
        directWriter.Queue({0xC0, 1});
        for (int port = 0; port < kSteady; ++port) {
            std::uint64_t& count = written[At(port)];
            sentAt[At(port)][count % kRemembered] = steady_clock::now();
            writers[At(port)].Queue(
                {0xE0, static_cast<std::uint8_t>(count % 128), static_cast<std::uint8_t>(count / 128 % 128)});
            ++count;
        }
    }

    void Step() {
        pollfd event{backend.EventDescriptor(), POLLIN, 0};
        if (::poll(&event, 1, 1) > 0 || backend.EventTimeout() == 0) {
            backend.HandleEvents();
        }
        for (int port = 0; port < kPorts; ++port) {
            if (port < kSteady) {
                writers[At(port)].Pump();
            }
            Hear(port, readers[At(port)].Read());
        }
        directWriter.Pump();
        for (std::size_t messages = directReader.Read().size() / 2; messages != 0; --messages) {
            directLate100 += Since(directSentAt.front()) > milliseconds(100) ? 1 : 0;
            directSlowest = std::max(directSlowest, Since(directSentAt.front()));
            directSentAt.pop_front();
        }
        for (const PublishedEndpoint& one : backend.Published()) {
            leftBehind += one.problem.empty() ? 0 : 1;
        }
    }

    void Hear(int port, const Bytes& bytes) {
        std::span<const std::uint8_t> rest(bytes);
        while (const std::optional<MidiPiece> piece = parsers[At(port)].Next(rest)) {
            if (port >= kSteady) {
                listeners[At(port)].Hear(piece->bytes);
                Expect(!listeners[At(port)].IsBroken(), "whole messages on a wild port");
                continue;
            }
            std::uint64_t& count = heard[At(port)];
            Expect(piece->bytes.size() == 3 && piece->bytes[1] == count % 128 &&
                       piece->bytes[2] == count / 128 % 128,
                   "the next message of a steady stream");
            const milliseconds late = Since(sentAt[At(port)][count % kRemembered]);
            slowest = std::max(slowest, late);
            late100 += late > milliseconds(100) ? 1 : 0;
            ++count;
        }
    }

    static milliseconds Since(steady_clock::time_point time) {
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - time);
    }

    void DoSomething() {
        const std::size_t which = random() % kWild;
        pid_t& process = wild[which];
        if (process == 0) {
            Spawn(which);
            return;
        }
        switch (random() % 4) {
            case 0:
                ::kill(process, SIGKILL);
                ::waitpid(process, nullptr, 0);
                process = 0;
                ++kills;
                break;
            case 1:
                ::kill(process, isStopped[which] ? SIGCONT : SIGSTOP);
                stops += isStopped[which] ? 0 : 1;
                isStopped[which] = !isStopped[which];
                break;
            default:
                ::kill(process, SIGUSR1);
                ++disconnects;
                break;
        }
    }

    void Spawn(std::size_t which) {
        isStopped[which] = false;
        const std::string number = std::to_string(which + 1);
        const std::string client = std::to_string(service);
        const std::string seed = std::to_string(random());
        wild[which] = ::fork();
        if (wild[which] == 0) {
            ::execl("/proc/self/exe", "alsa_soak", kWildArgument, number.c_str(), client.c_str(),
                    seed.c_str(), nullptr);
            ::_exit(127);
        }
    }

    void Silence() {
        for (pid_t& process : wild) {
            if (process != 0) {
                ::kill(process, SIGKILL);
                ::waitpid(process, nullptr, 0);
                process = 0;
                ++kills;
            }
        }
        Expect(Eventually([&] {
                   for (int port = kSteady; port < kPorts; ++port) {
                       if (!listeners[At(port)].IsAtRest()) {
                           return false;
                       }
                   }
                   return true;
               }),
               "silence after all wild programs were killed");
        ++silences;
    }

    template <class Condition>
    bool Eventually(Condition condition) {
        const auto end = steady_clock::now() + std::chrono::seconds(20);
        while (!condition()) {
            if (steady_clock::now() > end) {
                return false;
            }
            Step();
        }
        return true;
    }

    void Report() const {
        std::uint64_t messages = 0;
        for (const std::uint64_t count : heard) {
            messages += count;
        }
        std::ifstream memory("/proc/self/statm");
        long pages = 0;
        long resident = 0;
        memory >> pages >> resident;
        std::printf(
            "%llu steady messages heard, slowest %lld ms, %d later than 100 ms; %d kills, %d stops, %d "
            "disconnects, %d silences; left behind at %d looks; %ld KiB; direct: slowest %lld ms, %d later "
            "than 100 ms\n",
            static_cast<unsigned long long>(messages), static_cast<long long>(slowest.count()), late100,
            kills, stops, disconnects, silences, leftBehind, resident * 4,
            static_cast<long long>(directSlowest.count()), directLate100);
        std::fflush(stdout);
    }

    static constexpr std::size_t kRemembered = 8192;

    std::mt19937 random;
    Engine engine;
    AlsaBackend backend;
    int service = 0;
    std::array<AlsaProgram, kSteady> writers;
    std::array<AlsaProgram, kPorts> readers;
    std::array<MidiParser, kPorts> parsers;
    AlsaProgram directWriter;  // beside the service, to compare
    AlsaProgram directReader;
    std::deque<steady_clock::time_point> directSentAt;
    milliseconds directSlowest{0};
    int directLate100 = 0;
    std::array<InputListener, kPorts> listeners;
    std::array<std::uint64_t, kSteady> written{};
    std::array<std::uint64_t, kSteady> heard{};
    std::array<std::array<steady_clock::time_point, kRemembered>, kSteady> sentAt;
    std::array<pid_t, kWild> wild{};
    std::array<bool, kWild> isStopped{};
    milliseconds slowest{0};
    int late100 = 0;
    int kills = 0;
    int stops = 0;
    int disconnects = 0;
    int silences = 0;
    int leftBehind = 0;
};

}  // namespace
}  // namespace vexil

int main(int argumentCount, char** arguments) {
    if (argumentCount == 5 && std::string(arguments[1]) == vexil::kWildArgument) {
        return vexil::PlayWildly(static_cast<std::uint8_t>(std::stoi(arguments[2])), std::stoi(arguments[3]),
                                 static_cast<unsigned>(std::stoul(arguments[4])));
    }
    if (argumentCount < 2) {
        std::printf("Usage: alsa_soak SECONDS [SEED]\n");
        return 2;
    }
    const unsigned seed = argumentCount > 2 ? static_cast<unsigned>(std::stoul(arguments[2])) : 1;
    const auto soak = std::make_unique<vexil::Soak>(seed);
    soak->Run(std::chrono::seconds(std::stol(arguments[1])));
    std::printf("Nothing was lost, nothing went on sounding.\n");
    return 0;
}
