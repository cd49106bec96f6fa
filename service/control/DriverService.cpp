#include "service/control/DriverService.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <utility>

#include "driver/DriverOptions.h"
#include "service/backends/EndpointNames.h"
#include "service/control/NetworkAnswers.h"
#include "service/control/OptionPayloads.h"
#include "service/control/RemoteRoutes.h"
#include "service/control/RouteText.h"
#include "shared/System/Deadline.h"

namespace vexil {

namespace {

constexpr int kReleasePoll = 2;  // milliseconds between two looks at whether notes are released
constexpr int kPostPoll = 20;    // and between two tries to post what the engine could not take

std::vector<Endpoint> MakeEndpoints(const DriverConfiguration& configuration, const RouteTable& table) {
    const bool hidden = (configuration.MiscOptions & kShowConnectors) == 0;
    const std::array<std::string, kMaxPorts> outputNames = MakePortNames(configuration, true);
    const std::array<std::string, kMaxPorts> inputNames = MakePortNames(configuration, false);
    std::vector<Endpoint> endpoints;
    for (int port = 0; port < kMaxPorts; ++port) {
        const auto index = static_cast<std::size_t>(port);
        if ((table.outputEndpoints >> port & 1) != 0) {
            endpoints.push_back({port, true, outputNames[index], hidden});
        }
        if ((table.inputEndpoints >> port & 1) != 0) {
            endpoints.push_back({port, false, inputNames[index], hidden});
        }
    }
    // Earlier versions numbered equal names of all endpoints that were there.
    const std::vector<std::string> formerNames =
        MakeEndpointNames(endpoints, {.longest = std::string::npos, .separators = ""});
    for (std::size_t i = 0; i < endpoints.size(); ++i) {
        endpoints[i].formerName = formerNames[i];
    }
    return endpoints;
}

bool IsShown(const Endpoint& endpoint) {
    return !endpoint.hidden;
}

// Bit p: the input of port p is among them, and is there: what is hidden is only where it can be.
std::uint64_t InputsOf(const std::vector<Endpoint>& endpoints, bool canHide) {
    std::uint64_t inputs = 0;
    for (const Endpoint& endpoint : endpoints) {
        if (!endpoint.output && (canHide || IsShown(endpoint))) {
            inputs |= std::uint64_t{1} << endpoint.port;
        }
    }
    return inputs;
}

// The route, or one that leads nowhere in place of one to an input that is not heard.
Route Open(const Route& route, std::uint64_t heardInputs) {
    const bool isShut = route.destination.kind == Destination::Kind::Input && GetsThrough(route) &&
                        (heardInputs >> route.destination.port & 1) == 0;
    return isShut ? Route{} : route;
}

// The names by which other computers may call this one: as it calls itself, and without its domain.
std::vector<std::string> NamesOf(const HostRecord& computer) {
    std::vector<std::string> names = {computer.name};
    const std::string label = computer.name.substr(0, computer.name.find('.'));
    if (!label.empty() && label != computer.name) {
        names.push_back(label);
    }
    return names;
}

int UntilOver(DriverService::Clock::time_point end, DriverService::Clock::time_point now, int poll) {
    return std::min(MillisecondsUntil(end, now), poll);
}

}  // namespace

DriverService::DriverService(Parts serviceParts)
    : parts(std::move(serviceParts)),
      store(parts.preferences),
      engineControl(parts.engine, parts.backend, parts.driver),
      changes({[this] { return Told(MakeStatusDigest); }, [this] { return Traffic(); },
               [this] { parts.engine.AwaitTraffic(); }, parts.now}),
      monitor(parts.engine, parts.now) {
    parts.engine.SetSuspicionWaker(&suspicion);
    parts.engine.SetTrafficWaker(&traffic);
}

DriverService::~DriverService() {
    parts.engine.SetSuspicionWaker(nullptr);
    parts.engine.SetTrafficWaker(nullptr);
}

void DriverService::Start() {
    store.Complete(attached);
    Reload();
    wireless = (configuration.MiscOptions & kUseWireless) != 0;
    TellNetwork();
}

void DriverService::StartBackend() {
    engineControl.LeaveToBackend();
    parts.backend.Start(parts.engine);
    Settle();
    report.Backend(parts.backend);
}

void DriverService::Settle() {
    engineControl.Settle();
    const bool isReleased = engineControl.IsCaughtUp();
    if (publishBy && !stopBy && (isReleased || parts.now() >= *publishBy)) {
        PublishMore();
        // A MIDI system that keeps up has the whole time again for what is left.
        if (publishBy && isReleased) {
            publishBy = parts.now() + kLongestRelease;
        }
    }
    changes.Settle();
}

int DriverService::Timeout() const {
    if (stopBy) {
        return UntilOver(*stopBy, parts.now(), kReleasePoll);
    }
    if (publishBy) {
        return UntilOver(*publishBy, parts.now(), kReleasePoll);
    }
    int timeout = engineControl.HasUnposted() ? kPostPoll : -1;
    const auto shorten = [&timeout](int left) {
        if (left >= 0) {
            timeout = timeout < 0 ? left : std::min(timeout, left);
        }
    };
    if (const auto untilTurn = engineControl.UntilNextTurn()) {
        shorten(MillisecondsOf(*untilTurn));
    }
    shorten(changes.Timeout());
    return timeout;
}

void DriverService::BeginStop() {
    stopBy = parts.now() + kLongestLastRelease;
    // Nobody would release what programs still play.
    RouteTable closed = engineControl.Routes();
    closed.routes = {};
    engineControl.SetRoutes(closed);
    engineControl.ReleaseAll();
}

bool DriverService::MayStop() const {
    return stopBy && (engineControl.IsCaughtUp() || parts.now() >= *stopBy);
}

void DriverService::Stop() {
    if (parts.network != nullptr) {
        parts.network->Stop();
    }
    parts.backend.Stop();
}

void DriverService::ServeBackend() {
    engineControl.LeaveToBackend();
    parts.backend.HandleEvents();
    Settle();
    report.Backend(parts.backend);
}

void DriverService::ServeLoops() {
    suspicion.Take();
    for (int port = 0; port < kMaxPorts; ++port) {
        report.Loop(port, routes.routes[static_cast<std::size_t>(port)], parts.engine.SuspectedRate(port),
                    parts.now());
    }
}

void DriverService::ServeTraffic() {
    traffic.Take();
    changes.Carried();
}

void DriverService::ServeNetwork() {
    if (parts.network != nullptr && parts.network->Serve()) {
        FollowNetwork();
    }
}

void DriverService::FollowNetwork() {
    if (stopBy) {
        return;
    }
    FindOwnNames();
    MakeRoutes();
    OpenWays();
    UpdateTestRoutes();
    Settle();
    report.Configuration(configuration, routes);
}

void DriverService::ComputerChanged() {
    if (stopBy) {
        return;
    }
    const std::vector<std::string> before = names;
    TakeUp();
    if (names != before) {
        report.Configuration(configuration, routes);
    }
}

void DriverService::StoreChanged() {
    if (stopBy) {
        return;
    }
    const std::optional<StoredConfiguration::Change> change = store.Look(attached);
    if (change) {
        TakeUp(change->configuration, change->granularity);
    }
}

std::string DriverService::Summary() const {
    const int used = std::popcount(routes.outputEndpoints | routes.inputEndpoints);
    const std::string problem = parts.backend.Problem();
    std::string summary = std::to_string(used) + (used == 1 ? " port" : " ports");
    if (attached) {
        summary += ", panel attached";
    }
    return problem.empty() ? summary : summary + ". " + problem;
}

void DriverService::PanelAttached(pid_t process) {
    attached = true;
    // Before the panel has its answer and reads what is stored: Use Wireless with the rest, which it takes
    // out of the store itself. Later panels find what this one left, unless that has gone meanwhile.
    if (!std::exchange(wasAttached, true) || store.LacksOptions()) {
        store.Complete(false);
    }
    report.PanelAttached(process);
}

void DriverService::PanelDetached() {
    attached = false;
    for (int port = 0; port < kMaxPorts; ++port) {
        if (tests.Find(port) != nullptr) {
            CloseTest(MakeUint32(static_cast<std::uint32_t>(port)));
        }
    }
    report.PanelDetached();
}

int DriverService::SetOption(std::uint32_t option, std::span<const std::uint8_t> payload) {
    if (option < kMaxPorts) {
        return PlayTest(static_cast<int>(option), payload);
    }
    switch (option) {
        case kOptionSendGranularity: {
            const std::optional<std::uint32_t> tenths = ReadUint32Payload(payload);
            if (!tenths) {
                return EINVAL;
            }
            SetQuantization(*tenths);
            return 0;
        }
        case kOptionOpenTestOutput:
            return OpenTest(payload);
        case kOptionActivateTestOutput:
            return ActivateTest(payload);
        case kOptionDeactivateTestOutput:
            return CloseTest(payload);
        case kOptionReloadConfiguration:
        case kOptionWirelessOn:
        case kOptionWirelessOff:
        case kOptionBrowseHosts:
            return payload.empty() ? SetOptionWithoutPayload(option) : EINVAL;
        default:
            return ENOPROTOOPT;
    }
}

int DriverService::SetOptionWithoutPayload(std::uint32_t option) {
    switch (option) {
        case kOptionReloadConfiguration:
            return Reload();
        case kOptionWirelessOn:
        case kOptionWirelessOff:
            SetWireless(option == kOptionWirelessOn);
            return 0;
        default:  // kOptionBrowseHosts
            if (parts.network != nullptr) {
                parts.network->Browse();
            }
            return 0;
    }
}

int DriverService::GetOption(std::uint32_t option, std::vector<std::uint8_t>& data) {
    if (option != kOptionReadHostInfos) {
        return ENOPROTOOPT;
    }
    data = MakeHostRecords(Computers());
    return 0;
}

std::vector<HostRecord> DriverService::Computers() const {
    std::vector<HostRecord> computers = parts.computers();
    if (parts.network != nullptr) {
        computers.front().port = parts.network->Port();
        const std::vector<HostRecord> others = parts.network->Computers();
        computers.insert(computers.end(), others.begin(), others.end());
    }
    return computers;
}

std::string DriverService::Status(std::size_t first) {
    return Told([first](const StatusSources& sources) { return MakeStatus(sources, first); });
}

std::string DriverService::Told(const std::function<std::string(const StatusSources&)>& make) const {
    const std::vector<HostRecord> hosts = Computers();
    const RemoteStatus remote = parts.network == nullptr ? RemoteStatus() : parts.network->Status();
    return make({hosts, remote, names, configuration, routes, tests, localNames, parts.engine, parts.backend,
                 parts.network, attached, wireless, sendGranularity, memory, controlPath, changes.Looks()});
}

std::uint64_t DriverService::Traffic() const {
    std::uint64_t bytes = 0;
    for (int port = 0; port < kMaxPorts; ++port) {
        bytes += parts.engine.CountersOfSource(port).bytes;
        bytes += parts.engine.CountersOfSource(kTestSourceBase + port).bytes;
        bytes += parts.engine.CountersOfInput(port).bytes;
    }
    return bytes;
}

int DriverService::Reload() {
    TakeUp(store.Read(), true);
    return 0;
}

std::string DriverService::Network(const std::vector<std::string>& words) {
    if (parts.network == nullptr) {
        return NetworkProblem("This service carries no MIDI between computers.");
    }
    std::string answer = parts.network->Command(words);
    FollowNetwork();
    return answer;
}

std::string DriverService::Panic() {
    const std::uint64_t inputs = parts.backend.IsRunning() ? HeardInputs() : 0;
    engineControl.Panic(inputs);
    const auto isRemote = [](const Route& route) {
        return GetsThrough(route) && route.destination.kind == Destination::Kind::Remote;
    };
    const auto ways = std::count_if(routes.routes.begin(), routes.routes.end(), isRemote) +
                      std::count_if(testRoutes.begin(), testRoutes.end(), isRemote);
    const std::string done =
        PanicText(std::popcount(inputs), static_cast<int>(ways), parts.backend.Problem());
    report.Panic(done);
    return NetworkDone(done);
}

void DriverService::TakeUp(const DriverConfiguration& read, bool granularity) {
    configuration = read;
    report.SetEnabled((configuration.MiscOptions & kEnableLogging) != 0);
    if (granularity) {
        SetQuantization(configuration.SendGranularity);
    }
    TakeUp();
    report.Configuration(configuration, routes);
}

void DriverService::ClientRefused(pid_t process, uid_t user) {
    ServiceReport::ClientRefused(process, user);
}

int DriverService::OpenTest(std::span<const std::uint8_t> payload) {
    int port = 0;
    const int error = tests.Open(payload, port);
    if (error == 0) {
        TestChanged(port);
    }
    return error;
}

int DriverService::ActivateTest(std::span<const std::uint8_t> payload) {
    int port = 0;
    const int error = tests.Activate(payload, port);
    if (error == 0) {
        TestChanged(port);
        report.TestOpened(port);
    }
    return error;
}

int DriverService::CloseTest(std::span<const std::uint8_t> payload) {
    int port = 0;
    const int error = tests.Close(payload, port);
    if (error == 0) {
        TestChanged(port);
        report.TestClosed(port);
    }
    return error;
}

void DriverService::TestChanged(int port) {
    FindOwnAddresses();
    TellNetwork();
    RetargetTest(port);
}

int DriverService::PlayTest(int port, std::span<const std::uint8_t> payload) {
    std::vector<std::uint8_t> data;
    const int error = tests.Play(port, payload, data);
    if (error != 0 || data.empty()) {
        return error;
    }
    report.TestPlayed(port, Resolved(tests.RouteOf(port, configuration, localNames), parts.network),
                      configuration);
    return engineControl.PlayTest(port, data) ? 0 : ENOBUFS;
}

void DriverService::SetQuantization(std::uint32_t tenths) {
    const std::uint32_t limited = std::min(tenths, kMaxSendGranularity);
    if (limited != sendGranularity) {
        sendGranularity = limited;
        report.Quantization(limited);
    }
    engineControl.SetQuantization(limited);
}

void DriverService::SetWireless(bool on) {
    if (on != wireless) {
        wireless = on;
        report.Wireless(on);
        TellNetwork();
    }
}

void DriverService::TakeUp() {
    FindOwnNames();
    routes = MakeRouteTable(configuration, localNames);
    UpdateEndpoints();
    MakeRoutes();
    OpenWays();
    UpdateTestRoutes();
    Settle();
}

void DriverService::FindOwnNames() {
    names = NamesOf(parts.computers().front());
    FindOwnAddresses();
}

void DriverService::FindOwnAddresses() {
    localNames = LocalNames(
        parts.network == nullptr ? names : WithOwnAddresses(names, configuration, tests, *parts.network));
}

void DriverService::MakeRoutes() {
    routes = MakeRouteTable(configuration, localNames);
    TellNetwork();
    for (Route& route : routes.routes) {
        route = Resolved(std::move(route), parts.network);
    }
}

void DriverService::TellNetwork() {
    if (parts.network != nullptr) {
        parts.network->SetWishes({WishesOf(routes, tests, configuration, localNames), configuration,
                                  HeardInputs(), names, wireless});
    }
}

Route DriverService::TestRoute(int port) const {
    return Open(Resolved(tests.RouteOf(port, configuration, localNames), parts.network), HeardInputs());
}

std::uint64_t DriverService::HeardInputs() const {
    const bool canHide = parts.backend.CanHide();
    return InputsOf(published, canHide) & InputsOf(endpoints, canHide);
}

void DriverService::OpenWays() {
    const std::uint64_t heard = HeardInputs();
    RouteTable open = routes;
    for (Route& route : open.routes) {
        route = Open(route, heard);
    }
    engineControl.SetRoutes(open);
}

void DriverService::UpdateTestRoutes() {
    for (int port = 0; port < kMaxPorts; ++port) {
        const Route route = TestRoute(port);
        if (!(route == testRoutes[static_cast<std::size_t>(port)])) {
            RetargetTest(port);
        }
    }
}

void DriverService::UpdateEndpoints() {
    std::vector<Endpoint> wanted = MakeEndpoints(configuration, routes);
    if (wanted != endpoints) {
        const std::vector<Endpoint> before = std::exchange(endpoints, std::move(wanted));
        // A reader that loses sight of an input hears the end of a test chord first; it would hear no other.
        if (std::any_of(before.begin(), before.end(), IsShown) &&
            std::none_of(endpoints.begin(), endpoints.end(), IsShown)) {
            EndTestNotes();
        }
        // A change on top of another does not put that one off.
        if (!publishBy) {
            publishBy = parts.now() + kLongestRelease;
        }
    }
}

// Each endpoint that comes costs the MIDI system a moment, and clients are not to wait for all of them.
// Inputs come first: what is played into an output that comes is to be heard.
void DriverService::PublishMore() {
    const auto find = [this](const Endpoint& endpoint) {
        return std::find_if(published.begin(), published.end(), [&](const Endpoint& one) {
            return one.port == endpoint.port && one.output == endpoint.output;
        });
    };
    const auto comes = [&](const Endpoint& endpoint) {
        const auto before = find(endpoint);
        return !endpoint.hidden && (before == published.end() || before->hidden);
    };
    const auto comingInputs = static_cast<std::size_t>(
        std::count_if(endpoints.begin(), endpoints.end(),
                      [&](const Endpoint& endpoint) { return !endpoint.output && comes(endpoint); }));
    std::size_t inputRoom = kPublishedAtOnce;
    std::size_t outputRoom = kPublishedAtOnce - std::min(comingInputs, kPublishedAtOnce);
    std::vector<Endpoint> next;
    bool isLeft = false;
    for (const Endpoint& endpoint : endpoints) {
        std::size_t& room = endpoint.output ? outputRoom : inputRoom;
        if (!comes(endpoint)) {
            next.push_back(endpoint);
        } else if (room != 0) {
            next.push_back(endpoint);
            --room;
        } else {
            isLeft = true;
            if (const auto before = find(endpoint); before != published.end()) {
                next.push_back(*before);
            }
        }
    }
    if (!isLeft) {
        publishBy.reset();
    }
    published = std::move(next);
    parts.backend.Publish(published);
    TellNetwork();
    OpenWays();
    UpdateTestRoutes();
}

void DriverService::EndTestNotes() {
    for (int port = 0; port < kMaxPorts; ++port) {
        if (tests.Find(port) != nullptr) {
            RetargetTest(port);
        }
    }
}

void DriverService::RetargetTest(int port) {
    const Route route = TestRoute(port);
    testRoutes[static_cast<std::size_t>(port)] = route;
    engineControl.SetTestRoute(port, route);
}

}  // namespace vexil
