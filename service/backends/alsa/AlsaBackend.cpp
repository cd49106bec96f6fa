#include "service/backends/alsa/AlsaBackend.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <optional>
#include <set>
#include <utility>

#include "service/backends/EndpointNames.h"
#include "service/backends/alsa/AlsaClient.h"
#include "service/backends/alsa/AlsaThread.h"
#include "shared/System/Deadline.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr int kRetries = 5;
constexpr std::chrono::milliseconds kRetryAfter{500};

std::string TextOf(int error) {
    return std::strerror(-error);
}

int NumberOf(const Endpoint& endpoint) {
    return endpoint.output ? endpoint.port : kFirstInputPort + endpoint.port;
}

void AddTo(int events, int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    ::epoll_ctl(events, EPOLL_CTL_ADD, descriptor, &event);
}

}  // namespace

AlsaBackend::AlsaBackend(const RuntimeState& state)
    : changed(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      events(::epoll_create1(EPOLL_CLOEXEC)),
      problem("The ALSA sequencer is being started."),
      connections(state) {
    AddTo(events.Number(), changed.Number());
    AddTo(events.Number(), device.EventDescriptor());
}

AlsaBackend::~AlsaBackend() {
    Stop();
}

void AlsaBackend::Start(Engine& served) {
    engine = &served;
    retries = kRetries;
    Open();
}

void AlsaBackend::Stop() {
    thread.reset();
    client.reset();
    ports.clear();
    connections.RenewAll();
    slowReaders.Forget();
    toldOverflows = 0;
    engine = nullptr;
    retries = 0;
    problem = "The ALSA sequencer is not in use.";
}

void AlsaBackend::Open() {
    int error = 0;
    client = AlsaClient::Open(error);
    if (client == nullptr) {
        problem =
            std::string("The ALSA sequencer (") + kAlsaDevice + ") cannot be opened: " + TextOf(error) + ".";
        // One that is not there comes with an event.
        retries = device.IsThere() ? std::max(retries - 1, 0) : 0;
        nextRetry = Clock::now() + kRetryAfter;
        return;
    }
    retries = 0;
    problem.clear();
    Apply();
    thread = std::make_unique<AlsaThread>(*engine, *client, changed.Number());
}

void AlsaBackend::Lose(const std::string& reason) {
    thread.reset();
    client.reset();
    ports.clear();
    connections.RenewAll();
    slowReaders.Forget();
    toldOverflows = 0;
    engine->Forget();
    problem = reason;
}

void AlsaBackend::Publish(const std::vector<Endpoint>& endpoints) {
    wanted = endpoints;
    if (client != nullptr) {
        Apply();
    }
}

// Makes the client's ports what is wanted.
void AlsaBackend::Apply() {
    if (thread != nullptr) {
        // A port that goes takes with it what has not left yet.
        thread->WaitForCycle();
    }
    const std::vector<std::string> names =
        MakeEndpointNames(wanted, {.longest = kLongestAlsaName, .separators = "", .directions = true});
    std::map<int, Port> next;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        next[NumberOf(wanted[i])] = {names[i], wanted[i].hidden, 0};
    }
    for (const auto& [number, port] : ports) {
        if (port.error == 0 && !next.contains(number)) {
            client->DeletePort(number);
            connections.Renew(number);
        }
    }
    for (auto& [number, port] : next) {
        const auto there = ports.find(number);
        if (there == ports.end() || there->second.error != 0) {
            port.error = std::min(client->CreatePort(number, port.name, port.hidden), 0);
            connections.Renew(number);
        } else if (there->second.name != port.name || there->second.hidden != port.hidden) {
            if (const int error = client->ChangePort(number, port.name, port.hidden); error < 0) {
                LogPrintf("The ALSA sequencer does not change the port \"%s\": %s.\n", port.name.c_str(),
                          TextOf(error).c_str());
                port = there->second;
            }
        }
    }
    ports = std::move(next);
    LookAtConnections();
}

void AlsaBackend::LookAtConnections() {
    std::vector<int> numbers;
    for (const auto& [number, port] : ports) {
        if (port.error == 0) {
            numbers.push_back(number);
        }
    }
    connections.Look(*client, numbers, Clock::now());
}

std::vector<PublishedEndpoint> AlsaBackend::Published() const {
    std::vector<PublishedEndpoint> published;
    for (const Endpoint& endpoint : wanted) {
        PublishedEndpoint& one = published.emplace_back();
        one.port = endpoint.port;
        one.output = endpoint.output;
        const int number = NumberOf(endpoint);
        const auto port = ports.find(number);
        if (client == nullptr || port == ports.end()) {
            one.problem = problem;
        } else if (port->second.error != 0) {
            one.problem = "The ALSA sequencer refuses the port: " + TextOf(port->second.error) + ".";
        } else {
            one.address =
                std::to_string(client->Id()) + ":" + std::to_string(number) + " " + port->second.name;
            one.connections = client->ConnectionsOf(number);
            one.problem = endpoint.output ? "" : SlowReadersOf(number);
        }
    }
    return published;
}

// One that has read everything by now is taken up as soon as there is something for it.
std::string AlsaBackend::SlowReadersOf(int number) const {
    std::set<int> slow;
    if (thread == nullptr) {
        return "";
    }
    client->ForEachConnection(number, [&](AlsaAddress reader) {
        const std::optional<AlsaRoom> room = thread->Lateness().IsLeftBehind(reader.client)
                                                 ? AskAlsaRoom(client->Descriptor(), reader.client)
                                                 : std::nullopt;
        if (room && room->free < room->total) {
            slow.insert(reader.client);
        }
    });
    if (slow.empty()) {
        return "";
    }
    const int first = *slow.begin();
    return AlsaSlowReaders::Sentence(client->NameOf(first),
                                     thread->Lateness().MissedNow(static_cast<std::size_t>(first)),
                                     slow.size() - 1);
}

int AlsaBackend::EventTimeout() const {
    std::optional<Clock::time_point> due;
    if (retries != 0) {
        due = nextRetry;
    }
    if (thread != nullptr) {
        for (const std::optional<Clock::time_point> one :
             {slowReaders.DueAt(), overflows.DueAt(), connections.DueAt()}) {
            due = one ? std::min(due.value_or(*one), *one) : due;
        }
    }
    return due ? MillisecondsUntil(*due) : -1;
}

void AlsaBackend::HandleEvents() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t ignored =
        ::read(changed.Number(), &count, sizeof count);  // nothing to read is fine
    const bool deviceChanged = device.Take();
    if (engine == nullptr) {
        return;
    }
    const int failure = thread != nullptr ? thread->Failure() : 0;
    if (failure != 0) {
        Lose("The ALSA sequencer has failed: " + TextOf(failure) + ".");
    } else if (thread != nullptr && !device.IsThere()) {
        Lose(std::string("The ALSA sequencer (") + kAlsaDevice + ") has gone.");
    }
    if (deviceChanged || failure != 0) {
        retries = kRetries;
        nextRetry = Clock::now();
    }
    if (thread != nullptr) {
        TellLosses();
        const std::optional<Clock::time_point> due = connections.DueAt();
        if (thread->TakeConnectionsChanged() || (due && *due <= Clock::now())) {
            LookAtConnections();
        }
        for (std::uint64_t left = connections.TakeUnsilenced(Clock::now()); left != 0; left &= left - 1) {
            thread->Silence(std::countr_zero(left));
        }
    }
    if (thread == nullptr && retries != 0 && Clock::now() >= nextRetry) {
        Open();
    }
}

void AlsaBackend::TellLosses() {
    const auto now = Clock::now();
    slowReaders.Look(
        thread->Lateness(), [this](int program) { return client->NameOf(program); }, now);
    const std::uint64_t overflowed = thread->Overflows();
    overflows.Add(overflowed - std::exchange(toldOverflows, overflowed));
    if (const std::uint64_t times = overflows.Take(now); times != 0) {
        LogPrintf("Programs have sent more than the ALSA sequencer has room for, %" PRIu64
                  " times; some of it is lost.\n",
                  times);
    }
}

std::string AlsaBackend::RealtimeProblem() const {
    return thread != nullptr ? thread->RealtimeProblem() : "";
}

}  // namespace vexil
