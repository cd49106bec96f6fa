#include "bench/LinkBench.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <variant>

namespace vexil::bench {

namespace {

constexpr int kPriority = 55;  // as the network's thread
constexpr std::size_t kRingBytes = std::size_t{1} << 20;

std::string TaskFile(int thread, const char* name) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/" + name);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::unique_ptr<UdpSocket> OpenSocket() {
    auto opened = UdpSocket::Open({0, InterfaceChoice::Loopback()});
    auto* socket = std::get_if<std::unique_ptr<UdpSocket>>(&opened);
    if (socket == nullptr) {
        std::fprintf(stderr, "There is no loopback to bind to.\n");
        std::exit(1);
    }
    return std::move(*socket);
}

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

}  // namespace

std::uint64_t Now() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
}

void SleepUntil(std::uint64_t time) {
    std::this_thread::sleep_until(
        std::chrono::steady_clock::time_point(std::chrono::nanoseconds(static_cast<std::int64_t>(time))));
}

double Percentile(std::vector<double>& times, double share) {
    std::sort(times.begin(), times.end());
    const auto place = static_cast<std::size_t>(static_cast<double>(times.size()) * share);
    return times[std::min(times.size() - 1, place)];
}

std::vector<int> NetworkThreads() {
    std::vector<int> threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        const int number = std::atoi(entry.path().filename().c_str());
        if (TaskFile(number, "comm") == "network\n") {
            threads.push_back(number);
        }
    }
    return threads;
}

double ProcessorSeconds(int thread) {
    return std::strtod(TaskFile(thread, "schedstat").c_str(), nullptr) / 1e9;
}

std::uint64_t Waits(int thread) {
    const std::string status = TaskFile(thread, "status");
    const char* const kName = "\nvoluntary_ctxt_switches:";
    const std::size_t at = status.find(kName);
    return at == std::string::npos ? 0 : std::strtoull(status.c_str() + at + std::strlen(kName), nullptr, 10);
}

Computer::Computer(const char* name, int ports, unsigned seed)
    : inputs(ports),
      key(LinkKey::Make().value()),
      sealing(LinkSealing::Make(key)),
      socket(OpenSocket()),
      lossy(std::make_unique<LossySocket>(*socket, seed)),
      ring(kRingBytes, waker),
      driver(engine, clock) {
    hub = std::make_unique<NetworkHub>(NetworkHub::Parts{engine, ring, *lossy, *sealing},
                                       NetworkHub::Self{key.Hash(), {name}});
    engine.SetRemoteSink(&ring);
    InputRules rules;
    for (int port = 0; port < ports; ++port) {
        rules.configuration.InputPorts |= std::uint64_t{1} << port;
        rules.configuration.PortFlags[static_cast<std::size_t>(port)].flags =
            kSourceComputerUnused | kSourcePortUnused;
    }
    rules.heard = rules.configuration.InputPorts;
    hub->SetInputs(rules);
    hub->Start();
    driver.Turn();
    const std::vector<int> before = NetworkThreads();
    thread = std::make_unique<NetworkThread>(work, driver);
    waker.thread = thread.get();
    for (const int number : NetworkThreads()) {
        if (std::find(before.begin(), before.end(), number) == before.end()) {
            threadNumber = number;
        }
    }
}

Computer::~Computer() {
    waker.thread = nullptr;
    {
        const std::lock_guard lock(thread->Lock());
        hub->Stop();
    }
    thread.reset();
}

bool Computer::LeadTo(const Computer& other, int ports) {
    {
        const std::lock_guard lock(thread->Lock());
        const NetworkAddress there = NetworkAddress::V4({127, 0, 0, 1}, other.Port());
        hub->Link().SetComputer(BootMicroseconds(), 1, {"", {{there, false}}, {}, false});
        for (int port = 0; port < ports; ++port) {
            hub->Link().OpenWay(BootMicroseconds(), 1, port, port);
        }
        thread->Wake();
    }
    for (const std::uint64_t end = Now() + 10'000'000'000; Now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::lock_guard lock(thread->Lock());
        const std::vector<LinkPeerState> states = hub->Link().States();
        const bool isAccepted =
            !states.empty() && states[0].kind == LinkPeerState::Kind::Up &&
            std::all_of(states[0].waysOut.begin(), states[0].waysOut.end(), [](const LinkWayOut& way) {
                return way.answered && way.problem == WayProblem::None;
            });
        if (isAccepted) {
            return true;
        }
    }
    return false;
}

bool Computer::Deliver(int port, std::span<const std::uint8_t> message) {
    const Destination to = Destination::Remote(1, port, port);
    if (ring.Room(to) < message.size()) {
        return false;
    }
    ring.Deliver(to, Now(), message);
    return true;
}

LinkCounters Computer::Counters() {
    const std::lock_guard lock(thread->Lock());
    LinkCounters sum;
    for (const LinkPeerState& state : hub->Link().States()) {
        sum.lost += state.counters.lost;
        sum.cutWays += state.counters.cutWays;
        sum.repeated += state.counters.repeated;
        sum.duplicates += state.counters.duplicates;
        sum.late += state.counters.late;
        sum.roundTrip = std::max(sum.roundTrip, state.counters.roundTrip);
    }
    return sum;
}

std::uint64_t Computer::DroppedByEngine() const {
    std::uint64_t dropped = 0;
    for (int source = kTakenSourceBase; source < kTakenSourceBase + kTakenSources; ++source) {
        dropped += engine.CountersOfSource(source).dropped;
    }
    return dropped;
}

std::uint64_t Computer::DroppedBySocket() const {
    std::array<std::uint32_t, SK_MEMINFO_VARS> memory{};
    socklen_t size = sizeof memory;
    getsockopt(socket->EventDescriptor(), SOL_SOCKET, SO_MEMINFO, memory.data(), &size);
    return memory[SK_MEMINFO_DROPS];
}

std::uint64_t Computer::CountHeard() const {
    std::uint64_t count = 0;
    for (int port = 0; port < inputs; ++port) {
        count += engine.CountersOfInput(port).messages;
    }
    return count;
}

void Computer::Listen(std::size_t most) {
    const std::lock_guard lock(thread->Lock());
    heardAt = std::vector<std::atomic<std::uint64_t>>(most);
    heardCount = 0;
    heardBefore = CountHeard();
    listens = true;
}

void Computer::NoteHeard() {
    if (!listens) {
        return;
    }
    const std::uint64_t count = CountHeard() - heardBefore;
    const std::uint64_t now = Now();
    std::size_t number = heardCount.load();
    for (; number < count && number < heardAt.size(); ++number) {
        heardAt[number] = now;
    }
    heardCount = number;
}

BareUdp::BareUdp(std::size_t most)
    : receiving(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      sending(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      heardAt(most) {
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (bind(receiving.Number(), plain, size) != 0 || getsockname(receiving.Number(), plain, &size) != 0 ||
        connect(sending.Number(), plain, size) != 0) {
        std::fprintf(stderr, "There is no loopback to bind to.\n");
        std::exit(1);
    }
    port = ntohs(address.sin_port);
    thread = std::thread([this] { Main(); });
    sched_param parameter{};
    parameter.sched_priority = kPriority;
    // As for the network's thread: without the right to it, neither has it.
    pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &parameter);
}

BareUdp::~BareUdp() {
    ending = true;
    Send(0, 0, 5);
    thread.join();
}

void BareUdp::Send(std::uint8_t kind, std::uint32_t number, std::size_t size) const {
    std::array<std::uint8_t, kLongestDatagram> bytes{kind};
    std::memcpy(&bytes[1], &number, sizeof number);
    [[maybe_unused]] const ssize_t ignored = send(sending.Number(), bytes.data(), size, 0);
}

bool BareUdp::WaitEcho() const {
    pollfd waited{sending.Number(), POLLIN, 0};
    std::array<std::uint8_t, kLongestDatagram> bytes{};
    return poll(&waited, 1, 100) == 1 && recv(sending.Number(), bytes.data(), bytes.size(), 0) > 0;
}

void BareUdp::Main() {
    std::array<std::uint8_t, kLongestDatagram> bytes{};
    while (!ending) {
        sockaddr_in from{};
        socklen_t size = sizeof from;
        const ssize_t count = recvfrom(receiving.Number(), bytes.data(), bytes.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &size);
        if (count < 5) {
            continue;
        }
        std::uint32_t number = 0;
        std::memcpy(&number, &bytes[1], sizeof number);
        if (bytes[0] == kTimed && number < heardAt.size()) {
            heardAt[number] = Now();
        } else if (bytes[0] == kEchoed) {
            sendto(receiving.Number(), bytes.data(), static_cast<std::size_t>(count), 0,
                   reinterpret_cast<sockaddr*>(&from), size);
        }
    }
}

}  // namespace vexil::bench
