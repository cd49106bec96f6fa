#include "service/backends/jack/JackBackend.h"

#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <thread>

#include "service/backends/EndpointNames.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

using std::chrono::milliseconds;

// What was delivered in one cycle is read in that or, where programs are connected in a ring, in the next;
// one more for a reader that is late.
constexpr unsigned kCyclesUntilRead = 3;
// A port that was written to has no writers any more so many cycles after it was taken from the process
// thread.
constexpr unsigned kCyclesUntilWritersEnd = 3;
// The cycle that is under way may go by what was before; the next one does not.
constexpr unsigned kCyclesUntilTakenUp = 2;
// A program that is late holds JACK's cycles up, and hears what it was sent only then; a server that hangs is
// given up.
constexpr milliseconds kLongestStandstill{10'000};
constexpr milliseconds kLongestStop{1000};
constexpr int kCyclePoll = 2;  // milliseconds between two looks at whether cycles have ended
// Each port that is unregistered costs a round through the server and all its clients: on a busy computer 20
// ms were seen. The service has other things to do in between.
constexpr std::size_t kUnregisteredAtOnce = 4;

// Programs keep a full name in 256 bytes, with the end.
constexpr std::size_t kLongestFullName = 255;

// JACK's library writes to standard error what its callers are told by results as well.
void Ignore(const char*) {}

std::string WhyNotOpened(jack_status_t status) {
    if ((status & JackVersionError) != 0) {
        return "The JACK server does not match the JACK library.";
    }
    if ((status & JackServerFailed) != 0) {
        return "There is no JACK server.";
    }
    if ((status & JackServerError) != 0) {
        return "The JACK server does not answer.";
    }
    return "The JACK server does not take the service as a client.";
}

}  // namespace

JackBackend::JackBackend(std::vector<JackServerWatch::Place> serverPlaces)
    : watch(std::move(serverPlaces)),
      wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      events(::epoll_create1(EPOLL_CLOEXEC)) {
    epoll_event event{};
    event.events = EPOLLIN;
    for (const int source : {wake.Number(), watch.EventDescriptor()}) {
        if (source >= 0) {
            ::epoll_ctl(events.Number(), EPOLL_CTL_ADD, source, &event);
        }
    }
}

JackBackend::~JackBackend() {
    Stop();
}

void JackBackend::Start(Engine& served) {
    engine = &served;
    jack_set_error_function(Ignore);
    jack_set_info_function(Ignore);
    watch.Begin(JackServerWatch::Clock::now());
    TryToOpen();
}

void JackBackend::Stop() {
    if (engine == nullptr) {
        return;
    }
    if (client != nullptr) {
        WaitUntilRead();
    }
    CloseClient();
    watch.End();
    engine = nullptr;
    problem = "It is stopped.";
}

void JackBackend::WaitUntilRead() const {
    const unsigned start = process->Cycles();
    const auto latest = std::chrono::steady_clock::now() + kLongestStop;
    while (!serverHasGone && process->Cycles() - start < kCyclesUntilRead &&
           std::chrono::steady_clock::now() < latest) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

std::string JackBackend::Problem() const {
    if (client != nullptr) {
        return "";
    }
    return watch.Problem().empty() ? problem : problem + " " + watch.Problem();
}

void JackBackend::TryToOpen() {
    jack_status_t status{};
    serverHasGone = false;
    client = jack_client_open(kJackClientName, JackNoStartServer, &status);
    if (client == nullptr) {
        problem = WhyNotOpened(status);
        watch.TryFailed(JackServerWatch::Clock::now());
        return;
    }
    process = std::make_unique<JackProcess>(*engine, client, wake.Number());
    // A library calls the one or the other.
    jack_on_info_shutdown(client, ShutdownWithReason, this);
    jack_on_shutdown(client, Shutdown, this);
    jack_set_port_connect_callback(client, PortsConnected, this);
    jack_set_process_callback(client, Process, this);
    TakeUpEndpoints();
    if (jack_activate(client) != 0) {
        CloseClient();
        problem = "The JACK server does not let the service take part.";
        watch.TryFailed(JackServerWatch::Clock::now());
        return;
    }
    watch.End();
}

void JackBackend::CloseClient() {
    if (client != nullptr) {
        // Ends and joins JACK's threads of this client, also when the server has gone.
        jack_client_close(client);
    }
    client = nullptr;
    process.reset();
    sides = {};
    leaving.clear();
}

void JackBackend::TakeUpLoss() {
    CloseClient();
    engine->Forget();
    problem = "The JACK server has gone.";
    watch.Begin(JackServerWatch::Clock::now());
}

int JackBackend::EventTimeout() const {
    if (!leaving.empty()) {
        const bool isDue = std::any_of(leaving.begin(), leaving.end(),
                                       [this](const Leaving& side) { return MayGoOn(side); });
        return isDue ? 0 : kCyclePoll;
    }
    if (client != nullptr || engine == nullptr || !watch.NextTry()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<milliseconds>(*watch.NextTry() - JackServerWatch::Clock::now()).count();
    return static_cast<int>(std::max<decltype(left)>(left, 0));
}

void JackBackend::HandleEvents() {
    eventfd_t count = 0;
    static_cast<void>(::eventfd_read(wake.Number(), &count));  // nothing to read is fine
    const auto now = JackServerWatch::Clock::now();
    watch.TakeEvents(now);
    if (process) {
        if (const std::uint64_t lost = process->TakeLost(); lost != 0) {
            LogPrintf("JACK had no room for %" PRIu64 " messages; they are lost.\n", lost);
        }
    }
    if (client != nullptr && serverHasGone) {
        TakeUpLoss();
    }
    LetGo();
    if (client == nullptr && engine != nullptr && watch.NextTry() && *watch.NextTry() <= now) {
        TryToOpen();
    }
}

std::string JackBackend::RealtimeProblem() const {
    if (client == nullptr) {
        return "";
    }
    int policy = SCHED_OTHER;
    sched_param parameters{};
    const jack_native_thread_t thread = jack_client_thread_id(client);
    if (thread != 0 && pthread_getschedparam(thread, &policy, &parameters) == 0 &&
        ((policy & SCHED_FIFO) != 0 || (policy & SCHED_RR) != 0)) {
        return "";
    }
    return jack_is_realtime(client) != 0 ? "The thread that serves JACK was not given realtime priority; the "
                                           "user's limits do not allow it."
                                         : "The JACK server runs without realtime priority.";
}

void JackBackend::Publish(const std::vector<Endpoint>& endpoints) {
    wanted = endpoints;
    if (client != nullptr && !serverHasGone) {
        TakeUpEndpoints();
    }
}

std::vector<PublishedEndpoint> JackBackend::Published() const {
    std::vector<PublishedEndpoint> published;
    for (const Endpoint& endpoint : wanted) {
        const Side& side = SideOf(endpoint.port, endpoint.output);
        PublishedEndpoint one{endpoint.port, endpoint.output, "", 0, ""};
        if (side.port != nullptr) {
            one.address = jack_port_name(side.port);
            one.connections = jack_port_connected(side.port);
        } else if (client == nullptr) {
            one.problem = Problem();
        } else {
            one.problem =
                endpoint.hidden ? "Connectors are not shown, and JACK cannot hide a port." : side.problem;
        }
        published.push_back(one);
    }
    return published;
}

std::vector<JackBackend::Wanted> JackBackend::Visible() const {
    std::vector<Endpoint> shown;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(shown),
                 [](const Endpoint& endpoint) { return !endpoint.hidden; });
    const std::size_t before = std::strlen(jack_get_client_name(client)) + 1;
    const std::size_t fullName =
        std::min(static_cast<std::size_t>(jack_port_name_size()) - 1, kLongestFullName);
    const std::vector<std::string> names =
        MakeEndpointNames(shown, {.longest = fullName - before, .separators = ":"});
    std::vector<Wanted> visible;
    for (std::size_t i = 0; i < shown.size(); ++i) {
        visible.push_back({shown[i].port, shown[i].output, names[i]});
    }
    return visible;
}

bool JackBackend::IsAmong(const std::vector<Wanted>& visible, int port, bool output) {
    return std::any_of(visible.begin(), visible.end(),
                       [&](const Wanted& one) { return one.port == port && one.output == output; });
}

void JackBackend::TakeUpEndpoints() {
    const std::vector<Wanted> visible = Visible();
    BringBack(visible);
    Withdraw(visible);
    Rename(visible);
    Register(visible);
}

// What is wanted again before it has gone stays, with its connections.
void JackBackend::BringBack(const std::vector<Wanted>& visible) {
    std::erase_if(leaving, [&](const Leaving& side) {
        const bool isWanted = IsAmong(visible, side.port, side.output);
        if (isWanted) {
            SideOf(side.port, side.output).port = side.jackPort;
            process->SetPort(side.port, side.output, side.jackPort);
        }
        return isWanted;
    });
}

// Outputs go first: what is held on their ways is released while the inputs are still there to hear it.
void JackBackend::Withdraw(const std::vector<Wanted>& visible) {
    for (const bool output : {true, false}) {
        for (int port = 0; port < kMaxPorts; ++port) {
            Side& side = SideOf(port, output);
            if (side.port == nullptr || IsAmong(visible, port, output)) {
                continue;
            }
            Leaving& one = leaving.emplace_back();
            one.port = port;
            one.output = output;
            one.jackPort = side.port;
            Begin(output ? Step::Unused : Step::Heard, one);
            side = {};
        }
    }
}

// The notes of a port end behind what the engine still holds back for it.
unsigned JackBackend::CyclesUntilReleased() const {
    constexpr unsigned kHeldBackPerSecond = 10'000 / kLongestGranularity;
    const unsigned heldBack =
        jack_get_sample_rate(client) / kHeldBackPerSecond / std::max(jack_get_buffer_size(client), 1U) + 1;
    return kCyclesUntilWritersEnd + heldBack;
}

void JackBackend::Begin(Step step, Leaving& side) const {
    if (step == Step::Empty) {
        process->LeaveEmpty(side.port);
    } else if (step == Step::Unused) {
        process->SetPort(side.port, side.output, nullptr);
    }
    side.step = step;
    // Read after that: a cycle that ends in between may have begun before.
    side.since = process->Cycles();
    side.cycles = step == Step::Heard ? CyclesUntilReleased() + kCyclesUntilRead : kCyclesUntilTakenUp;
    side.latest = std::chrono::steady_clock::now() + kLongestStandstill;
}

bool JackBackend::MayGoOn(const Leaving& side) const {
    return process->Cycles() - side.since >= side.cycles || std::chrono::steady_clock::now() >= side.latest;
}

void JackBackend::LetGo() {
    if (leaving.empty()) {
        return;
    }
    std::size_t room = kUnregisteredAtOnce;
    for (auto side = leaving.begin(); side != leaving.end() && room != 0;) {
        if (!MayGoOn(*side)) {
            ++side;
        } else if (side->step == Step::Unused) {
            jack_port_unregister(client, side->jackPort);
            side = leaving.erase(side);
            --room;
        } else {
            Begin(side->step == Step::Heard ? Step::Empty : Step::Unused, *side);
            ++side;
        }
    }
    // Those that wait for the names or the room of the last.
    if (leaving.empty() && !serverHasGone) {
        TakeUpEndpoints();
    }
}

std::set<std::string> JackBackend::LeavingNames() const {
    std::set<std::string> names;
    for (const Leaving& side : leaving) {
        names.insert(jack_port_short_name(side.jackPort));
    }
    return names;
}

std::set<std::string> JackBackend::NamesInUse() const {
    std::set<std::string> names = LeavingNames();
    for (const auto& ofPorts : sides) {
        for (const Side& side : ofPorts) {
            if (side.port != nullptr) {
                names.insert(jack_port_short_name(side.port));
            }
        }
    }
    return names;
}

// A name that another port has at this moment is taken by way of one that nobody has. One that is leaving
// keeps its name, for programs on PipeWire know a port by its first; who wants it waits.
void JackBackend::Rename(const std::vector<Wanted>& visible) {
    struct Renaming {
        Side* side;
        const std::string* name;
    };
    std::vector<Renaming> renamings;
    for (const Wanted& one : visible) {
        Side& side = SideOf(one.port, one.output);
        if (side.port != nullptr && one.name != jack_port_short_name(side.port)) {
            renamings.push_back({&side, &one.name});
        }
    }
    std::set<std::string> kept = LeavingNames();
    for (auto waits = renamings.begin(); waits != renamings.end();) {
        if (kept.contains(*waits->name)) {
            kept.insert(jack_port_short_name(waits->side->port));
            renamings.erase(waits);
            waits = renamings.begin();
        } else {
            ++waits;
        }
    }
    const auto isTaken = [&](const std::string& name) {
        return std::any_of(renamings.begin(), renamings.end(), [&](const Renaming& other) {
            return name == jack_port_short_name(other.side->port);
        });
    };
    for (std::size_t i = 0; i < renamings.size(); ++i) {
        if (isTaken(*renamings[i].name)) {
            const std::string between = "renaming " + std::to_string(i);
            jack_port_rename(client, renamings[i].side->port, between.c_str());
        }
    }
    for (const Renaming& renaming : renamings) {
        if (jack_port_rename(client, renaming.side->port, renaming.name->c_str()) != 0) {
            LogPrintf("JACK does not take \"%s\" as the new name of a port.\n", renaming.name->c_str());
        }
    }
}

void JackBackend::Register(const std::vector<Wanted>& visible) {
    const std::set<std::string> inUse = NamesInUse();
    for (const Wanted& one : visible) {
        Side& side = SideOf(one.port, one.output);
        if (side.port != nullptr) {
            continue;
        }
        if (inUse.contains(one.name)) {
            side.problem = "The port that had this name has not gone yet.";
            continue;
        }
        side.port = jack_port_register(client, one.name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                       one.output ? JackPortIsInput : JackPortIsOutput, 0);
        side.problem = side.port == nullptr ? "JACK does not take another port." : "";
        if (side.port != nullptr) {
            process->SetPort(one.port, one.output, side.port);
        }
    }
}

void JackBackend::ShutdownWithReason(jack_status_t, const char*, void* backend) {
    Shutdown(backend);
}

void JackBackend::Shutdown(void* backend) {
    auto* self = static_cast<JackBackend*>(backend);
    self->serverHasGone = true;
    static_cast<void>(::eventfd_write(self->wake.Number(), 1));  // a counter that is full is readable already
}

void JackBackend::PortsConnected(jack_port_id_t a, jack_port_id_t b, int connected, void* backend) {
    auto* self = static_cast<JackBackend*>(backend);
    if (connected == 0) {
        for (const jack_port_id_t id : {a, b}) {
            if (const jack_port_t* port = jack_port_by_id(self->client, id)) {
                self->process->Disconnected(port);
            }
        }
    }
}

int JackBackend::Process(jack_nframes_t frames, void* backend) {
    return static_cast<JackBackend*>(backend)->process->Cycle(frames);
}

}  // namespace vexil
