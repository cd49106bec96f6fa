#include "service/backends/jack/JackSession.h"

#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <iterator>
#include <thread>

#include "config/DriverConfiguration.h"
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
constexpr milliseconds kLongestRead{500};
constexpr int kCyclePoll = 2;  // milliseconds between two looks at whether cycles have ended
// Each port that is unregistered costs a round through the server and all its clients: on a busy computer 20
// ms were seen. A newer wish is taken up in between.
constexpr std::size_t kUnregisteredAtOnce = 4;

// Programs keep a full name in 256 bytes, with the end.
constexpr std::size_t kLongestFullName = 255;

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

std::unique_ptr<JackSession> JackSession::Open(Engine& engine, int wakeDescriptor, JackPulse& pulse,
                                               std::string& problem) {
    jack_status_t status{};
    jack_client_t* client = jack_client_open(kJackClientName, JackNoStartServer, &status);
    if (client == nullptr) {
        problem = WhyNotOpened(status);
        return nullptr;
    }
    return std::unique_ptr<JackSession>(new JackSession(engine, client, wakeDescriptor, pulse));
}

JackSession::JackSession(Engine& engine, jack_client_t* jackClient, int wakeDescriptor, JackPulse& jackPulse)
    : client(jackClient),
      wake(wakeDescriptor),
      pulse(jackPulse),
      address(std::string(jack_get_client_name(jackClient)) + ":"),
      process(std::make_unique<JackProcess>(engine, jackClient, wakeDescriptor, jackPulse)) {
    // A library calls the one or the other.
    jack_on_info_shutdown(client, ShutdownWithReason, this);
    jack_on_shutdown(client, Shutdown, this);
    if (jack_set_port_connect_callback(client, PortsConnected, this) != 0 ||
        jack_set_process_callback(client, Process, this) != 0) {
        LogPrintf("JACK does not take the service's callbacks.\n");
    }
}

JackSession::~JackSession() {
    pulse.ForgetCycles();
    // Its result tells nothing: the client is gone either way.
    jack_client_close(client);
    pulse.ForgetCycles();
}

bool JackSession::Activate() {
    pulse.Cycle();
    isActive = jack_activate(client) == 0;
    return isActive;
}

void JackSession::WaitUntilRead() const {
    const unsigned start = process->Cycles();
    const auto latest = std::chrono::steady_clock::now() + kLongestRead;
    while (isActive && !serverHasGone && process->Cycles() - start < kCyclesUntilRead &&
           std::chrono::steady_clock::now() < latest) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

int JackSession::Timeout() const {
    if (leaving.empty()) {
        return -1;
    }
    return std::any_of(leaving.begin(), leaving.end(), [this](const Leaving& side) { return MayGoOn(side); })
               ? 0
               : kCyclePoll;
}

std::string JackSession::RealtimeProblem() const {
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

void JackSession::Publish(const std::vector<Endpoint>& endpoints) {
    wanted = endpoints;
    MakeVisible();
    TakeUpEndpoints();
}

std::vector<PublishedEndpoint> JackSession::Published() const {
    std::vector<PublishedEndpoint> published;
    for (const Wanted& one : visible) {
        const Side& side = SideOf(one.port, one.output);
        const bool isThere = side.port != nullptr;
        published.push_back({one.port, one.output, isThere ? address + side.name : "",
                             isThere ? jack_port_connected(side.port) : 0, side.problem});
    }
    return published;
}

void JackSession::MakeVisible() {
    std::vector<Endpoint> shown;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(shown),
                 [](const Endpoint& endpoint) { return !endpoint.hidden; });
    const std::size_t fullName =
        std::min(static_cast<std::size_t>(jack_port_name_size()) - 1, kLongestFullName);
    const std::vector<std::string> names =
        MakeEndpointNames(shown, {.longest = fullName - address.size(), .separators = ":"});
    visible.clear();
    for (std::size_t i = 0; i < shown.size(); ++i) {
        visible.push_back({shown[i].port, shown[i].output, names[i]});
    }
}

bool JackSession::IsVisible(int port, bool output) const {
    return std::any_of(visible.begin(), visible.end(),
                       [&](const Wanted& one) { return one.port == port && one.output == output; });
}

void JackSession::TakeUpEndpoints() {
    BringBack();
    Withdraw();
    Rename();
    Register();
}

// What is wanted again before it has gone stays, with its connections.
void JackSession::BringBack() {
    std::erase_if(leaving, [&](const Leaving& side) {
        const bool isWanted = IsVisible(side.port, side.output);
        if (isWanted) {
            SideOf(side.port, side.output) = {side.jackPort, side.name, ""};
            process->SetPort(side.port, side.output, side.jackPort);
        }
        return isWanted;
    });
}

// Outputs go first: what is held on their ways is released while the inputs are still there to hear it.
void JackSession::Withdraw() {
    for (const bool output : {true, false}) {
        for (int port = 0; port < kMaxPorts; ++port) {
            Side& side = SideOf(port, output);
            if (IsVisible(port, output)) {
                continue;
            }
            if (side.port != nullptr) {
                Leaving& one = leaving.emplace_back();
                one.port = port;
                one.output = output;
                one.jackPort = side.port;
                one.name = side.name;
                Begin(output ? Step::Unused : Step::Heard, one);
            }
            side = {};
        }
    }
}

// The notes of a port end behind what the engine still holds back for it.
unsigned JackSession::CyclesUntilReleased() const {
    constexpr unsigned kHeldBackPerSecond = 10'000 / kMaxSendGranularity;
    const unsigned heldBack =
        jack_get_sample_rate(client) / kHeldBackPerSecond / std::max(jack_get_buffer_size(client), 1U) + 1;
    return kCyclesUntilWritersEnd + heldBack;
}

void JackSession::Begin(Step step, Leaving& side) const {
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

bool JackSession::MayGoOn(const Leaving& side) const {
    return !isActive || process->Cycles() - side.since >= side.cycles ||
           std::chrono::steady_clock::now() >= side.latest;
}

void JackSession::Continue() {
    if (leaving.empty()) {
        return;
    }
    std::size_t room = kUnregisteredAtOnce;
    for (auto side = leaving.begin(); side != leaving.end() && room != 0;) {
        if (!MayGoOn(*side)) {
            ++side;
        } else if (side->step == Step::Unused) {
            Unregister(*side);
            side = leaving.erase(side);
            --room;
        } else {
            Begin(side->step == Step::Heard ? Step::Empty : Step::Unused, *side);
            ++side;
        }
    }
    // Those that wait for the names or the room of the last.
    if (leaving.empty()) {
        TakeUpEndpoints();
    }
}

void JackSession::Unregister(const Leaving& side) {
    if (jack_port_unregister(client, side.jackPort) != 0 && !serverHasGone) {
        LogPrintf("JACK does not let the port \"%s\" go.\n", side.name.c_str());
    }
    pulse.Beat();
}

std::set<std::string> JackSession::LeavingNames() const {
    std::set<std::string> names;
    for (const Leaving& side : leaving) {
        names.insert(side.name);
    }
    return names;
}

std::set<std::string> JackSession::NamesInUse() const {
    std::set<std::string> names = LeavingNames();
    for (const auto& ofPorts : sides) {
        for (const Side& side : ofPorts) {
            if (side.port != nullptr) {
                names.insert(side.name);
            }
        }
    }
    return names;
}

// A name that another port has at this moment is taken by way of one that nobody has. One that is leaving
// keeps its name, for programs on PipeWire know a port by its first; who wants it waits.
void JackSession::Rename() {
    struct Renaming {
        Side* side;
        const std::string* name;
    };
    std::vector<Renaming> renamings;
    for (const Wanted& one : visible) {
        Side& side = SideOf(one.port, one.output);
        if (side.port != nullptr && one.name != side.name) {
            renamings.push_back({&side, &one.name});
        }
    }
    std::set<std::string> kept = LeavingNames();
    for (auto waits = renamings.begin(); waits != renamings.end();) {
        if (kept.contains(*waits->name)) {
            kept.insert(waits->side->name);
            renamings.erase(waits);
            waits = renamings.begin();
        } else {
            ++waits;
        }
    }
    const auto isTaken = [&](const std::string& name) {
        return std::any_of(renamings.begin(), renamings.end(),
                           [&](const Renaming& other) { return name == other.side->name; });
    };
    for (std::size_t i = 0; i < renamings.size(); ++i) {
        if (isTaken(*renamings[i].name)) {
            Rename(*renamings[i].side, "renaming " + std::to_string(i));
        }
    }
    for (const Renaming& renaming : renamings) {
        Rename(*renaming.side, *renaming.name);
    }
}

bool JackSession::Rename(Side& side, const std::string& name) {
    const bool isRenamed = jack_port_rename(client, side.port, name.c_str()) == 0;
    pulse.Beat();
    if (isRenamed) {
        side.name = name;
    } else if (!serverHasGone) {
        LogPrintf("JACK does not take \"%s\" as the new name of a port.\n", name.c_str());
    }
    return isRenamed;
}

// Inputs come first: what is played into an output that comes is to be heard.
void JackSession::Register() {
    const std::set<std::string> inUse = NamesInUse();
    for (const bool output : {false, true}) {
        for (const Wanted& one : visible) {
            Side& side = SideOf(one.port, one.output);
            if (one.output != output || side.port != nullptr) {
                continue;
            }
            if (inUse.contains(one.name)) {
                side.problem = "The port that had this name has not gone yet.";
                continue;
            }
            side.port = jack_port_register(client, one.name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                           output ? JackPortIsInput : JackPortIsOutput, 0);
            pulse.Beat();
            side.name = one.name;
            side.problem = side.port == nullptr ? "JACK does not take another port." : "";
            if (side.port != nullptr) {
                process->SetPort(one.port, output, side.port);
            }
        }
    }
}

void JackSession::ShutdownWithReason(jack_status_t, const char*, void* session) {
    Shutdown(session);
}

void JackSession::Shutdown(void* session) {
    auto* self = static_cast<JackSession*>(session);
    self->serverHasGone = true;
    static_cast<void>(::eventfd_write(self->wake, 1));  // a counter that is full is readable already
}

void JackSession::PortsConnected(jack_port_id_t a, jack_port_id_t b, int connected, void* session) {
    auto* self = static_cast<JackSession*>(session);
    if (connected == 0) {
        for (const jack_port_id_t id : {a, b}) {
            if (const jack_port_t* port = jack_port_by_id(self->client, id)) {
                self->process->Disconnected(port);
            }
        }
    }
    static_cast<void>(::eventfd_write(self->wake, 1));
}

int JackSession::Process(jack_nframes_t frames, void* session) {
    return static_cast<JackSession*>(session)->process->Cycle(frames);
}

}  // namespace vexil
