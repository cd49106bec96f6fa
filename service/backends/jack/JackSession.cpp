#include "service/backends/jack/JackSession.h"

#include <jack/metadata.h>
#include <jack/uuid.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "config/DriverConfiguration.h"
#include "service/backends/ClientName.h"
#include "service/backends/EndpointNames.h"
#include "service/backends/FirstReaders.h"
#include "shared/System/Deadline.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

using std::chrono::milliseconds;

// What was delivered in one cycle is read in that or, where programs are connected in a ring, in the next;
// one more for a reader that is late.
constexpr unsigned kCyclesUntilRead = 3;
// A port that was written to no longer has writers so many cycles after it was taken from the process
// thread.
constexpr unsigned kCyclesUntilWritersEnd = 3;
// The cycle that is under way may go by what was before; the next one does not.
constexpr unsigned kCyclesUntilTakenUp = 2;
// A program that is late holds JACK's cycles up, and hears what it was sent only then; a server that hangs is
// given up.
constexpr milliseconds kLongestStandstill{10'000};
constexpr milliseconds kLongestRead{500};
// PipeWire makes a connection in its own time, and nothing tells when it carries.
constexpr milliseconds kLongestLink{400};
constexpr milliseconds kShownByJack{5};
constexpr milliseconds kShown{100};
constexpr milliseconds kFirstReaders{kFirstReadersMilliseconds};
// A service that was killed keeps its name until the server has noticed.
constexpr int kTriesForName = 5;
constexpr milliseconds kBetweenTries{100};
constexpr int kCyclePoll = 2;  // milliseconds between two looks at whether cycles have ended
// JACK orders the graph by the end of a cycle and tells of it behind that.
constexpr milliseconds kLongestOrdering{200};
constexpr unsigned kCyclesOfOrder = 2;  // in which another may follow

// Of earlier versions.
constexpr const char* kFormerClientName = "vexil3:";
constexpr const char* kText = "text/plain";
constexpr const char* kInteger = "http://www.w3.org/2001/XMLSchema#int";

// Programs keep a full name in 256 bytes, with the end.
constexpr std::size_t kLongestFullName = 255;

// Whether another client has the name that this one has asked for. JACK then puts a number behind it, which
// tells nobody anything; PipeWire gives it to both.
bool IsNameTaken(jack_client_t* client, const std::string& name) {
    bool isTaken = name != jack_get_client_name(client);
    const std::string beginning = name + ":";
    const char** ports = jack_get_ports(client, nullptr, nullptr, 0);
    for (const char** port = ports; port != nullptr && *port != nullptr; ++port) {
        isTaken |= std::string_view(*port).starts_with(beginning);
    }
    jack_free(ports);
    return isTaken;
}

jack_client_t* OpenClient(jack_status_t& status) {
    jack_client_t* client = nullptr;
    int tries = 0;
    const auto isTaken = [&](const std::string& name) {
        for (bool again = true; again;) {
            client = jack_client_open(name.c_str(), JackNoStartServer, &status);
            if (client == nullptr || !IsNameTaken(client, name)) {
                return false;
            }
            jack_client_close(client);
            again = ++tries < kTriesForName;
            if (again) {
                std::this_thread::sleep_for(kBetweenTries);
            }
        }
        return true;
    };
    ChooseClientName(NameOfUser(), isTaken);
    return client;
}

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

std::unique_ptr<JackSession> JackSession::Open(const Parts& parts, std::string& problem) {
    jack_status_t status{};
    jack_client_t* client = OpenClient(status);
    if (client == nullptr) {
        problem = WhyNotOpened(status);
        return nullptr;
    }
    return std::unique_ptr<JackSession>(new JackSession(parts, client));
}

JackSession::JackSession(const Parts& sessionParts, jack_client_t* jackClient)
    : client(jackClient),
      parts(sessionParts),
      pulse(sessionParts.pulse),
      address(std::string(jack_get_client_name(jackClient)) + ":"),
      process(std::make_unique<JackProcess>(parts.engine, jackClient, parts.wake, pulse)),
      isPipeWire(RunsOnPipeWire()) {
    for (int port = 0; port < kMaxPorts; ++port) {
        parts.memory.Renew(port, true);
        parts.memory.Renew(port, false);
    }
    // A library calls the one or the other.
    jack_on_info_shutdown(client, ShutdownWithReason, this);
    jack_on_shutdown(client, Shutdown, this);
    if (jack_set_port_connect_callback(client, PortsConnected, this) != 0 ||
        jack_set_port_registration_callback(client, PortRegistered, this) != 0 ||
        jack_set_port_rename_callback(client, PortRenamed, this) != 0 ||
        jack_set_graph_order_callback(client, GraphOrdered, this) != 0 ||
        jack_set_process_callback(client, Process, this) != 0) {
        LogPrintf("JACK does not take the service's callbacks.\n");
    }
}

JackSession::~JackSession() {
    for (const auto& ofPorts : sides) {
        for (const Side& side : ofPorts) {
            if (side.port != nullptr && !serverHasGone) {
                ForgetProperties(side.port);
            }
        }
    }
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
    const auto latest = Clock::now() + kLongestRead;
    while (isActive && !serverHasGone && process->Cycles() - start < kCyclesUntilRead &&
           Clock::now() < latest) {
        std::this_thread::sleep_for(milliseconds(1));
    }
}

int JackSession::Timeout() const {
    if (std::any_of(leaving.begin(), leaving.end(), [this](const Leaving& side) { return MayGoOn(side); })) {
        return 0;
    }
    constexpr auto kNever = Clock::time_point::max();
    Clock::time_point next = lookAgain.value_or(kNever);
    if (isActive) {
        next = std::min(next, parts.memory.NextLook().value_or(kNever));
    }
    for (const auto& [port, due] : silenceAt) {
        next = std::min(next, due);
    }
    const int timeout = next == kNever ? -1 : MillisecondsUntil(next);
    return leaving.empty() ? timeout : timeout < 0 ? kCyclePoll : std::min(timeout, kCyclePoll);
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
                             isThere ? side.connections : 0, side.problem});
    }
    return published;
}

void JackSession::MakeVisible() {
    std::vector<Endpoint> shown;
    std::copy_if(wanted.begin(), wanted.end(), std::back_inserter(shown),
                 [](const Endpoint& endpoint) { return !endpoint.hidden; });
    const std::size_t fullName =
        std::min(static_cast<std::size_t>(jack_port_name_size()) - 1, kLongestFullName);
    const std::vector<std::string> names = MakeEndpointNames(
        shown, {.longest = fullName - address.size(), .separators = ":", .directions = true});
    std::vector<Endpoint> former = shown;
    for (Endpoint& endpoint : former) {
        endpoint.name = endpoint.formerName;
    }
    const std::string formerClient = kFormerClientName;
    const std::vector<std::string> formerNames =
        MakeEndpointNames(former, {.longest = fullName - formerClient.size(), .separators = ":"});
    visible.clear();
    for (std::size_t i = 0; i < shown.size(); ++i) {
        visible.push_back({shown[i].port, shown[i].output, names[i], shown[i].name,
                           shown[i].formerName.empty() ? "" : formerClient + formerNames[i]});
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
    DescribeAll();
}

// What is wanted again before it has gone stays, with its connections.
void JackSession::BringBack() {
    std::erase_if(leaving, [&](const Leaving& side) {
        const bool isWanted = side.follower == nullptr && IsVisible(side.port, side.output);
        if (isWanted) {
            SideOf(side.port, side.output) = {side.jackPort,   side.name, side.formerName, "", 0,
                                              side.describedAs};
            connectionsChanged = true;
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
                parts.memory.Renew(port, output);
                FollowNow(port, output);
                Leaving& one = leaving.emplace_back();
                one.port = port;
                one.output = output;
                one.jackPort = side.port;
                one.name = side.name;
                one.formerName = side.formerName;
                one.describedAs = side.describedAs;
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
    if (step == Step::Empty && side.follower == nullptr) {
        process->LeaveEmpty(side.port);
    } else if (step == Step::Unused && side.follower != nullptr) {
        process->ForgetReplaced(side.port);
    } else if (step == Step::Unused) {
        process->SetPort(side.port, side.output, nullptr);
    }
    side.step = step;
    // Read after that: a cycle that ends in between may have begun before.
    side.since = process->Cycles();
    side.cycles = step == Step::Heard ? CyclesUntilReleased() + kCyclesUntilRead : kCyclesUntilTakenUp;
    side.latest = Clock::now() + kLongestStandstill;
}

bool JackSession::MayGoOn(const Leaving& side) const {
    if (side.step == Step::Followed) {
        return Clock::now() >= side.latest;
    }
    return !isActive || process->Cycles() - side.since >= side.cycles || Clock::now() >= side.latest;
}

void JackSession::Continue() {
    if (isActive) {
        const auto now = Clock::now();
        const auto look = parts.memory.NextLook();
        const bool isChanged = connectionsChanged.exchange(false);
        if (isChanged || (look && *look <= now) || (lookAgain && *lookAgain <= now)) {
            // Both libraries tell of a change before they show it: JACK's until the next cycle.
            lookAgain = isChanged             ? std::optional(now + kShownByJack)
                        : lookAgain && isSoon ? std::optional(now + kShown)
                                              : std::nullopt;
            isSoon = isChanged;
            LookAtConnections();
        }
        SilenceFirstReaders();
    }
    if (leaving.empty()) {
        return;
    }
    for (auto side = leaving.begin(); side != leaving.end();) {
        if (!MayGoOn(*side)) {
            ++side;
        } else if (side->step == Step::Unused) {
            if (!MayUnregister()) {
                ++side;
                continue;
            }
            Unregister(*side);
            side = leaving.erase(side);
        } else {
            if (side->step == Step::Followed) {
                Follow(*side);
            } else {
                Begin(side->step == Step::Heard ? Step::Empty : Step::Unused, *side);
            }
            ++side;
        }
    }
    // Those that wait for the names or the room of the last.
    if (leaving.empty()) {
        TakeUpEndpoints();
    }
}

// JACK's library goes through the list of a client's ports whenever the graph is ordered anew, on a thread of
// its own and without a lock, and ends the program when a port is taken out of the list meanwhile. So one
// goes when the order is over that the one before has caused.
bool JackSession::MayUnregister() const {
    const bool isOrdered = orders != ordersBefore && process->Cycles() - orderedAt >= kCyclesOfOrder;
    return isPipeWire || !orderedBy || isOrdered || Clock::now() >= *orderedBy;
}

void JackSession::Unregister(const Leaving& side) {
    ordersBefore = orders;
    orderedBy = Clock::now() + kLongestOrdering;
    ForgetProperties(side.jackPort);
    if (UnregisterAtJack(side) != 0 && !serverHasGone) {
        LogPrintf("JACK does not let the port \"%s\" go.\n", side.name.c_str());
    }
    pulse.Beat();
}

// Latencies are also computed anew when another program asks for it, or changes the graph.
int JackSession::UnregisterAtJack(const Leaving& side) {
    const auto unregister = [&] { return jack_port_unregister(client, side.jackPort); };
    if (isPipeWire || !isActive) {
        return unregister();
    }
    // The name that it has already: nobody sees a difference, and JACK tells everybody, this client as well.
    return gate.Hold([&] { static_cast<void>(jack_port_rename(client, side.jackPort, side.name.c_str())); },
                     unregister);
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
// keeps its name; who wants it waits.
void JackSession::Rename() {
    if (isPipeWire) {
        Reregister();
        return;
    }
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

// PipeWire's libjack 0.3 tells nobody of a new name, and takes a later port of the old name for this one: in
// the end it frees a port that is still in use. So a port never changes its name there: another one follows
// it, is connected to what it was connected to, and takes its place when those connections carry. And no port
// takes the name of one that is still there.
void JackSession::Reregister() {
    const auto differs = [this](const Wanted& one) {
        const Side& side = SideOf(one.port, one.output);
        return side.port != nullptr && one.name != side.name;
    };
    const std::set<std::string> inUse = NamesInUse();
    bool isAnyReplaced = false;
    for (const Wanted& one : visible) {
        if (differs(one) && !inUse.contains(one.name)) {
            isAnyReplaced |= Replace(one.port, one.output, one.name);
        }
    }
    const auto waits = std::find_if(visible.begin(), visible.end(), differs);
    // They wait for each other's names, and for nothing else.
    if (!isAnyReplaced && leaving.empty() && waits != visible.end()) {
        const std::string between =
            "Port " + std::to_string(ShownPortNumber(waits->port)) + " is being renamed";
        Replace(waits->port, waits->output, between);
    }
}

bool JackSession::Replace(int port, bool output, const std::string& name) {
    FollowNow(port, output);
    Side& side = SideOf(port, output);
    jack_port_t* next = Register(name, output);
    if (next == nullptr) {
        LogPrintf("JACK does not take \"%s\" as the new name of a port.\n", name.c_str());
        return false;
    }
    Leaving& before = leaving.emplace_back();
    before.port = port;
    before.output = output;
    before.jackPort = side.port;
    before.name = side.name;
    before.follower = next;
    before.step = Step::Followed;
    before.latest = Clock::now() + (side.connections == 0 ? milliseconds(0) : kLongestLink);
    side = {next, name, "", "", 0};
    parts.memory.Renew(port, output);
    connectionsChanged = true;
    return true;
}

// The process thread goes over from a port to that which follows it.
void JackSession::Follow(Leaving& before) {
    process->Replace(before.port, before.output, before.follower);
    Begin(before.output ? Step::Unused : Step::Empty, before);
}

void JackSession::FollowNow(int port, bool output) {
    for (Leaving& one : leaving) {
        if (one.port == port && one.output == output && one.step == Step::Followed) {
            Follow(one);
        }
    }
}

jack_port_t* JackSession::Register(const std::string& name, bool output) {
    jack_port_t* port = jack_port_register(client, name.c_str(), JACK_DEFAULT_MIDI_TYPE,
                                           output ? JackPortIsInput : JackPortIsOutput, 0);
    pulse.Beat();
    return port;
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
            jack_port_t* port = Register(one.name, output);
            side = {port, one.name, "", port == nullptr ? "JACK does not take another port." : "", 0};
            if (port != nullptr) {
                process->SetPort(one.port, output, port);
                parts.memory.Renew(one.port, output);
                connectionsChanged = true;
            }
        }
    }
}

// What patchbays show and sort by, and the name by which a saved session may know the port. The ports are
// there without all that, so it comes last, and what JACK does not take of it is told of once.
void JackSession::DescribeAll() {
    for (const Wanted& one : visible) {
        Side& side = SideOf(one.port, one.output);
        if (side.port == nullptr) {
            continue;
        }
        // PipeWire's library tells nobody of aliases.
        if (!isPipeWire && side.formerName != one.formerName) {
            if (!side.formerName.empty()) {
                static_cast<void>(
                    jack_port_unset_alias(side.port, side.formerName.c_str()));  // it is replaced
            }
            if (!one.formerName.empty() && jack_port_set_alias(side.port, one.formerName.c_str()) != 0 &&
                std::exchange(takesAliases, false)) {
                LogPrintf("JACK does not take \"%s\" as another name of a port.\n", one.formerName.c_str());
            }
            side.formerName = one.formerName;
        }
        if (side.describedAs != one.title) {
            Describe(one);
            side.describedAs = one.title;
        }
    }
}

void JackSession::Describe(const Wanted& one) {
    jack_port_t* port = SideOf(one.port, one.output).port;
    SetProperty(port, JACK_METADATA_PRETTY_NAME, one.title, kText);
    SetProperty(port, JACK_METADATA_ORDER, std::to_string(ShownPortNumber(one.port)), kInteger);
    SetProperty(port, JACK_METADATA_SIGNAL_TYPE, "MIDI", kText);
    pulse.Beat();
}

void JackSession::SetProperty(jack_port_t* port, const char* key, const std::string& value,
                              const char* type) {
    if (takesProperties && jack_set_property(client, jack_port_uuid(port), key, value.c_str(), type) != 0) {
        takesProperties = false;
        LogPrintf("JACK takes no properties of ports: patchbays may sort them by name.\n");
    }
}

// JACK gives the number of a port that has gone, and with it the properties, to the next. One by one: to
// remove all of a port, JACK's library goes through those of all ports.
void JackSession::ForgetProperties(jack_port_t* port) {
    for (const char* key : {JACK_METADATA_PRETTY_NAME, JACK_METADATA_ORDER, JACK_METADATA_SIGNAL_TYPE}) {
        if (takesProperties) {
            static_cast<void>(jack_remove_property(client, jack_port_uuid(port), key));  // it goes either way
        }
    }
}

std::set<std::string> JackSession::ConnectionsOf(const Side& side) const {
    std::set<std::string> names;
    const char** ports = jack_port_get_all_connections(client, side.port);
    for (const char** port = ports; port != nullptr && *port != nullptr; ++port) {
        names.insert(*port);
    }
    jack_free(ports);
    return names;
}

void JackSession::LookAtConnections() {
    const auto now = Clock::now();
    const auto isThere = [this](const std::string& name) {
        return jack_port_by_name(client, name.c_str()) != nullptr;
    };
    for (const bool output : {false, true}) {
        for (int port = 0; port < kMaxPorts; ++port) {
            Side& side = SideOf(port, output);
            if (side.port == nullptr) {
                continue;
            }
            const std::set<std::string> connected = ConnectionsOf(side);
            side.connections = static_cast<int>(connected.size());
            if (output) {
                process->SetWriters(port, side.connections);
            }
            for (const std::string& name : parts.memory.Look(port, output, connected, isThere, now)) {
                Connect(port, output, name);
            }
            if (!output && !connected.empty() && (parts.unreleased >> port & 1) != 0) {
                silenceAt.emplace(port, now + kFirstReaders);
            }
        }
    }
    parts.memory.Save();
}

void JackSession::Connect(int port, bool output, const std::string& name) {
    const std::string own = address + SideOf(port, output).name;
    const int result = output ? jack_connect(client, name.c_str(), own.c_str())
                              : jack_connect(client, own.c_str(), name.c_str());
    pulse.Beat();
    const bool isMade = result == 0 || result == EEXIST || serverHasGone;
    if (!isMade && !parts.memory.Failed(port, output, name, Clock::now())) {
        LogPrintf("JACK does not connect \"%s\" with \"%s\" again.\n", own.c_str(), name.c_str());
    }
}

void JackSession::SilenceFirstReaders() {
    for (auto one = silenceAt.begin(); one != silenceAt.end();) {
        if (one->second > Clock::now()) {
            ++one;
        } else {
            process->Silence(one->first);
            parts.unreleased &= ~(std::uint64_t{1} << one->first);
            one = silenceAt.erase(one);
        }
    }
}

void JackSession::ShutdownWithReason(jack_status_t, const char*, void* session) {
    Shutdown(session);
}

void JackSession::Shutdown(void* session) {
    auto* self = static_cast<JackSession*>(session);
    self->serverHasGone = true;
    static_cast<void>(::eventfd_write(self->parts.wake, 1));  // a counter that is full is readable already
}

void JackSession::WakeForConnections() {
    connectionsChanged = true;
    static_cast<void>(::eventfd_write(parts.wake, 1));
}

void JackSession::PortRegistered(jack_port_id_t, int, void* session) {
    static_cast<JackSession*>(session)->WakeForConnections();
    static_cast<JackSession*>(session)->gate.Pass();
}

void JackSession::PortRenamed(jack_port_id_t, const char*, const char*, void* session) {
    static_cast<JackSession*>(session)->gate.Pass();
}

int JackSession::GraphOrdered(void* session) {
    auto* self = static_cast<JackSession*>(session);
    self->orderedAt = self->process->Cycles();
    ++self->orders;
    self->gate.Pass();
    return 0;
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
    self->WakeForConnections();
    self->gate.Pass();
}

int JackSession::Process(jack_nframes_t frames, void* session) {
    return static_cast<JackSession*>(session)->process->Cycle(frames);
}

}  // namespace vexil
