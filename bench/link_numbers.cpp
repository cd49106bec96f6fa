// MIDI from one computer to another over loopback: from what the engine delivers here to what the engine
// takes there, beside bare UDP; what 64 busy ports, losses, eight peers, a flood and nothing at all cost.
// Usage: link_numbers [SECONDS [NAME]], 10 unless given, of each or of the one that is named: note, ports,
// losses, few, peers, idle, queries, flood. The exit status is 1 when a bound is missed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "bench/LinkBench.h"

namespace {

using namespace vexil;
using namespace vexil::bench;

constexpr int kPorts = 64;
constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr std::array<std::uint8_t, 3> kNote = {0x90, 60, 100};
constexpr std::size_t kNoteDatagram = 70;  // with everything that is around one note
bool isMissed = false;

// Prints whether a number is within its bound.
void Check(const char* what, double value, double bound, const char* unit) {
    const bool isWithin = value <= bound;
    isMissed = isMissed || !isWithin;
    std::printf("  %-44s %10.2f %-10s bound %8.2f   %s\n", what, value, unit, bound,
                isWithin ? "met" : "MISSED");
}

double Microseconds(std::uint64_t from, std::uint64_t to) {
    return static_cast<double>(to - from) / 1000;
}

bool Lead(Computer& from, const Computer& to, int ports) {
    if (from.LeadTo(to, ports)) {
        return true;
    }
    std::printf("  no connection: MISSED\n");
    isMissed = true;
    return false;
}

// Calls `send` with 0 and on, so many times a second.
void Pace(std::size_t count, std::uint64_t interval, const std::function<void(std::size_t)>& send) {
    const std::uint64_t begin = Now();
    for (std::size_t number = 0; number < count; ++number) {
        SleepUntil(begin + number * interval);
        send(number);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// One note at a time; how long each took, by the link.
std::vector<double> LinkTimes(Computer& from, Computer& to, std::size_t count, std::uint64_t interval) {
    std::vector<std::uint64_t> sent(count);
    to.Listen(count);
    Pace(count, interval, [&](std::size_t number) {
        sent[number] = Now();
        from.Deliver(0, kNote);
        from.EndTurn();
    });
    for (const std::uint64_t end = Now() + kSecond; to.Heard() < count && Now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::vector<double> times;
    for (std::size_t number = 0; number < to.Heard(); ++number) {
        times.push_back(Microseconds(sent[number], to.HeardAt(number)));
    }
    return times;
}

std::vector<double> BareTimes(std::size_t count, std::uint64_t interval) {
    BareUdp bare(count);
    std::vector<std::uint64_t> sent(count);
    Pace(count, interval, [&](std::size_t number) {
        sent[number] = Now();
        bare.Send(BareUdp::kTimed, static_cast<std::uint32_t>(number), kNoteDatagram);
    });
    std::vector<double> times;
    for (std::size_t number = 0; number < count; ++number) {
        if (bare.HeardAt(number) != 0) {
            times.push_back(Microseconds(sent[number], bare.HeardAt(number)));
        }
    }
    return times;
}

void OneNote(int seconds) {
    std::printf("a note, 400 a second; in turns each second, the median of the seconds\n");
    Computer laptop("laptop", kPorts, 1);
    Computer studio("studio", kPorts, 2);
    if (!Lead(laptop, studio, 1)) {
        return;
    }
    std::vector<double> bareMedian;
    std::vector<double> bareLatest;
    std::vector<double> linkMedian;
    std::vector<double> linkLatest;
    for (int second = 0; second < seconds; ++second) {
        std::vector<double> bare = BareTimes(400, kSecond / 400);
        std::vector<double> link = LinkTimes(laptop, studio, 400, kSecond / 400);
        if (bare.empty() || link.empty()) {
            continue;
        }
        bareMedian.push_back(Percentile(bare, 0.5));
        bareLatest.push_back(Percentile(bare, 0.99));
        linkMedian.push_back(Percentile(link, 0.5));
        linkLatest.push_back(Percentile(link, 0.99));
    }
    const double floor = Percentile(bareMedian, 0.5);
    const double floorLatest = Percentile(bareLatest, 0.5);
    std::printf("  bare UDP: median %.1f us, p99 %.1f us\n", floor, floorLatest);
    Check("median, beyond bare UDP", Percentile(linkMedian, 0.5) - floor, 25, "us");
    Check("p99, beyond bare UDP", Percentile(linkLatest, 0.5) - floorLatest, 100, "us");
}

struct Load {
    double lost = 0;
    double latest = 0;   // p99, microseconds
    double sending = 0;  // per cent of a core, of the network's threads
    double receiving = 0;
    double refused = 0;  // messages for which the ring here had no room
    double took = 0;     // seconds
};

// Each of the players plays 64 ports, 1,000 messages a second each.
Load Play(std::vector<std::unique_ptr<Computer>>& players, Computer& studio, int seconds) {
    const std::size_t rounds = static_cast<std::size_t>(seconds) * 1000;
    const std::size_t each = players.size() * kPorts;
    std::vector<std::uint64_t> sent(rounds);
    studio.Listen(rounds * each);
    Load load;
    const double sendingBefore = ProcessorSeconds(players.front()->Thread());
    const double receivingBefore = ProcessorSeconds(studio.Thread());
    const std::uint64_t begin = Now();
    std::size_t refused = 0;
    Pace(rounds, kSecond / 1000, [&](std::size_t round) {
        sent[round] = Now();
        for (const auto& player : players) {
            for (int port = 0; port < kPorts; ++port) {
                refused += player->Deliver(port, kNote) ? 0U : 1U;
            }
            player->EndTurn();
        }
    });
    const double took = static_cast<double>(Now() - begin) / 1e9;
    load.took = took;
    load.refused = static_cast<double>(refused);
    load.sending = (ProcessorSeconds(players.front()->Thread()) - sendingBefore) / took * 100;
    load.receiving = (ProcessorSeconds(studio.Thread()) - receivingBefore) / took * 100;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    std::vector<double> times;
    for (std::size_t number = 0; number < studio.Heard(); ++number) {
        times.push_back(Microseconds(sent[number / each], studio.HeardAt(number)));
    }
    load.latest = times.empty() ? 1e9 : Percentile(times, 0.99);
    load.lost = static_cast<double>(rounds * each - refused) - static_cast<double>(studio.Heard()) +
                static_cast<double>(refused);
    return load;
}

void BusyPorts(int seconds, double loss) {
    std::printf("64 ports, 1,000 messages a second each, %.0f %% of the datagrams lost both ways\n",
                loss * 100);
    std::vector<std::unique_ptr<Computer>> laptop;
    laptop.push_back(std::make_unique<Computer>("laptop", kPorts, 1));
    Computer studio("studio", kPorts, 2);
    if (!Lead(*laptop.front(), studio, kPorts)) {
        return;
    }
    laptop.front()->SetLoss(loss);
    studio.SetLoss(loss);
    const Load load = Play(laptop, studio, seconds);
    Check("messages lost", load.lost, 0, "");
    Check("p99", load.latest, loss > 0 ? 5000 : 250, "us");
    if (loss > 0) {
        std::printf("  sending %.1f %%, receiving %.1f %% of a core\n", load.sending, load.receiving);
        return;
    }
    Check("sending: the network's thread", load.sending, 9, "% of a core");
    Check("receiving: the network's thread", load.receiving, 8, "% of a core");
}

void NotesWithLosses(int seconds) {
    std::printf("200 messages a second, 10 %% of the datagrams lost both ways\n");
    Computer laptop("laptop", kPorts, 1);
    Computer studio("studio", kPorts, 2);
    if (!Lead(laptop, studio, 1)) {
        return;
    }
    laptop.SetLoss(0.1);
    studio.SetLoss(0.1);
    const std::size_t count = static_cast<std::size_t>(seconds) * 200;
    std::vector<double> times = LinkTimes(laptop, studio, count, kSecond / 200);
    Check("messages lost", static_cast<double>(count - times.size()), 0, "");
    if (!times.empty()) {
        Check("p99", Percentile(times, 0.99) / 1000, 3, "ms");
        Check("p99.9", Percentile(times, 0.999) / 1000, 10, "ms");
    }
}

std::vector<std::unique_ptr<Computer>> EightPeers(Computer& studio, int ports) {
    std::vector<std::unique_ptr<Computer>> players;
    for (unsigned number = 0; number < 8; ++number) {
        players.push_back(
            std::make_unique<Computer>(("player " + std::to_string(number)).c_str(), kPorts, number + 10));
        if (!Lead(*players.back(), studio, ports)) {
            return {};
        }
    }
    return players;
}

void BusyPeers(int seconds) {
    std::printf("8 peers, each with 64 ports of 1,000 messages a second\n");
    Computer studio("studio", kPorts, 2);
    std::vector<std::unique_ptr<Computer>> players = EightPeers(studio, kPorts);
    if (players.empty()) {
        return;
    }
    const Load load = Play(players, studio, seconds);
    Check("messages lost", load.lost, 0, "");
    Check("receiving: the network's thread", load.receiving, 45, "% of a core");
    LinkCounters sent;
    for (const auto& player : players) {
        const LinkCounters one = player->Counters();
        sent.lost += one.lost;
        sent.cutWays += one.cutWays;
        sent.repeated += one.repeated;
    }
    std::printf("  sending %.1f %% of a core each; p99 %.0f us; %d s of playing took %.1f s\n", load.sending,
                load.latest, seconds, load.took);
    std::printf("  lost for want of room: in the ring %.0f, in a window %s, in the engine %s\n", load.refused,
                std::to_string(sent.lost).c_str(), std::to_string(studio.DroppedByEngine()).c_str());
    std::printf("  records sent again %s, of them in vain %s; datagrams that the socket lost %s\n",
                std::to_string(sent.repeated).c_str(), std::to_string(studio.Counters().duplicates).c_str(),
                std::to_string(studio.DroppedBySocket()).c_str());
}

double WaitsASecond(int thread, int seconds) {
    const std::uint64_t before = Waits(thread);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    return static_cast<double>(Waits(thread) - before) / seconds;
}

void Idle(int seconds) {
    std::printf("idle\n");
    {
        Computer studio("studio", kPorts, 2);
        std::this_thread::sleep_for(std::chrono::seconds(2));  // what it says of itself at its start
        Check("no remote route", WaitsASecond(studio.Thread(), seconds), 0, "wake-ups/s");
    }
    Computer studio("studio", kPorts, 2);
    const std::vector<std::unique_ptr<Computer>> players = EightPeers(studio, 1);
    if (!players.empty()) {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        Check("8 peers up", WaitsASecond(studio.Thread(), seconds), 12, "wake-ups/s");
    }
}

// A query by a socket of its own; how long the answer takes.
std::optional<double> QueryTime(int descriptor, std::uint16_t port, std::uint8_t number) {
    Nonce nonce{};
    nonce[0] = number;
    std::array<std::uint8_t, kLongestDatagram> bytes{};
    const std::size_t size = WriteQuery(nonce, bytes);
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    there.sin_port = htons(port);
    const std::uint64_t sent = Now();
    sendto(descriptor, bytes.data(), size, 0, reinterpret_cast<sockaddr*>(&there), sizeof there);
    pollfd waited{descriptor, POLLIN, 0};
    if (poll(&waited, 1, 100) != 1 || recv(descriptor, bytes.data(), bytes.size(), 0) <= 0) {
        return std::nullopt;
    }
    return Microseconds(sent, Now());
}

void Queries() {
    std::printf("query to answer, 100 of them\n");
    Computer studio("studio", kPorts, 2);
    BareUdp bare(1);
    const Descriptor descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    std::vector<double> floor;
    std::vector<double> times;
    int inTime = 0;
    for (std::uint8_t number = 0; number < 100; ++number) {
        // Fewer than the 50 a second that one address may ask.
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        const std::uint64_t sent = Now();
        bare.Send(BareUdp::kEchoed, 0, 320);
        if (bare.WaitEcho()) {
            floor.push_back(Microseconds(sent, Now()));
        }
        if (const std::optional<double> time = QueryTime(descriptor.Number(), studio.Port(), number)) {
            times.push_back(*time);
            inTime += *time <= 10'000 ? 1 : 0;
        }
    }
    if (times.empty() || floor.empty()) {
        isMissed = true;
        return;
    }
    std::printf("  bare echo: median %.1f us, p99 %.1f us\n", Percentile(floor, 0.5),
                Percentile(floor, 0.99));
    std::printf("  median %.1f us, p99 %.1f us\n", Percentile(times, 0.5), Percentile(times, 0.99));
    Check("not answered within 10 ms", 100 - inTime, 1, "");
}

// Sends random datagrams to two ports until it is told to end.
class Flood {
  public:
    Flood(std::uint16_t one, std::uint16_t other, std::uint64_t aSecond)
        : thread([this, one, other, aSecond] { Main(one, other, aSecond); }) {}
    ~Flood() {
        ending = true;
        thread.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

  private:
    void Main(std::uint16_t one, std::uint16_t other, std::uint64_t aSecond) const {
        const Descriptor descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        std::mt19937 random(1);
        std::array<std::uint8_t, 200> bytes{};
        const std::uint64_t begin = Now();
        for (std::uint64_t count = 0; !ending; ++count) {
            if (count % 20 == 0) {
                SleepUntil(begin + count * kSecond / aSecond);
            }
            for (std::uint8_t& byte : bytes) {
                byte = static_cast<std::uint8_t>(random());
            }
            bytes[0] = static_cast<std::uint8_t>(20 + bytes[0] % 44);  // as what is sealed begins
            for (const std::uint16_t port : {one, other}) {
                sockaddr_in there{};
                there.sin_family = AF_INET;
                there.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
                there.sin_port = htons(port);
                sendto(descriptor.Number(), bytes.data(), bytes.size(), 0,
                       reinterpret_cast<sockaddr*>(&there), sizeof there);
            }
        }
    }

    std::atomic<bool> ending{false};
    std::thread thread;
};

void UnderAFlood(int seconds) {
    std::printf("a note, 200 a second, while 20,000 made-up datagrams a second come in\n");
    Computer laptop("laptop", kPorts, 1);
    Computer studio("studio", kPorts, 2);
    if (!Lead(laptop, studio, 1)) {
        return;
    }
    BareUdp bare(1);
    const Flood flood(studio.Port(), bare.Port(), 20'000);
    std::vector<double> echoes;
    Pace(static_cast<std::size_t>(seconds) * 200, kSecond / 200, [&](std::size_t) {
        const std::uint64_t sent = Now();
        bare.Send(BareUdp::kEchoed, 0, kNoteDatagram);
        if (bare.WaitEcho()) {
            echoes.push_back(Microseconds(sent, Now()));
        }
    });
    const std::size_t count = static_cast<std::size_t>(seconds) * 200;
    std::vector<double> times = LinkTimes(laptop, studio, count, kSecond / 200);
    Check("messages lost", static_cast<double>(count - times.size()), 0, "");
    if (echoes.empty() || times.empty()) {
        isMissed = true;
        return;
    }
    const double floor = Percentile(echoes, 0.99);
    std::printf("  bare echo under the same flood: p99 %.1f us\n", floor);
    Check("p99", Percentile(times, 0.99), 2 * floor, "us");
}

}  // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    const std::string only = argc > 2 ? argv[2] : "";
    const auto measure = [&only](const char* name, const std::function<void()>& work) {
        if (only.empty() || only == name) {
            work();
        }
    };
    measure("note", [seconds] { OneNote(seconds); });
    measure("ports", [seconds] { BusyPorts(seconds, 0); });
    measure("losses", [seconds] { BusyPorts(seconds, 0.1); });
    measure("few", [seconds] { NotesWithLosses(seconds); });
    measure("peers", [seconds] { BusyPeers(seconds); });
    measure("idle", [seconds] { Idle(seconds); });
    measure("queries", [] { Queries(); });
    measure("flood", [seconds] { UnderAFlood(seconds); });
    return isMissed ? 1 : 0;
}
