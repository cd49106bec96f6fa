#include "service/NetworkService.h"

#include <sys/epoll.h>

#include <algorithm>
#include <chrono>
#include <set>

#include "driver/DriverOptions.h"
#include "service/NetworkCommands.h"
#include "service/control/RouteText.h"
#include "service/network/LinkTexts.h"
#include "shared/System/svLog.h"

namespace vexil {

namespace {

// What the engine may deliver before the network's thread takes it.
constexpr std::size_t kRingBytes = std::size_t{1} << 20;
constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
// Computers that nobody announced are asked for so often: an announcement may have been lost.
constexpr std::uint64_t kAskAgain = 30 * kMicrosecondsPerSecond;
// Bytes that a computer takes up in the list beside its name.
constexpr std::size_t kRecordOverhead = 19;

HostRecord RecordOf(const ComputerEntry& entry) {
    HostRecord record;
    record.name = entry.shown;
    record.port = entry.port;
    record.hardware = entry.hardware;
    record.enabled = entry.reachable;
    for (const NetworkAddress& address : entry.addresses) {
        if (address.family == AddressFamily::V4) {
            std::copy_n(address.bytes.begin(), record.address.size(), record.address.begin());
            break;
        }
    }
    return record;
}

HostRecord RecordOf(const AnnouncedSession& session) {
    HostRecord record;
    record.name = session.name;
    record.port = session.addresses.front().port;
    record.enabled = session.isThere;
    if (session.addresses.front().family == AddressFamily::V4) {
        std::copy_n(session.addresses.front().bytes.begin(), record.address.size(), record.address.begin());
    }
    return record;
}

}  // namespace

std::uint64_t NetworkService::SecondsSince1970() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

void NetworkService::RingWaker::Wake() {
    const std::lock_guard lock(mutex);
    if (thread != nullptr) {
        thread->Wake();
    }
}

void NetworkService::RingWaker::SetThread(NetworkThread* woken) {
    const std::lock_guard lock(mutex);
    thread = woken;
}

NetworkService::NetworkService(Parts networkParts, const std::optional<InterfaceChoice>& itsChoice)
    : parts(std::move(networkParts)),
      speaks(itsChoice.value_or(parts.store.Settings().speaks)),
      ring(kRingBytes, ringWaker),
      events(epoll_create1(EPOLL_CLOEXEC)),
      lookups(parts.resolver),
      targets(lookups) {
    parts.engine.SetRemoteSink(&ring);
    Watch(parts.resolver.EventDescriptor());
}

NetworkService::~NetworkService() {
    TurnOff();
    parts.engine.SetRemoteSink(nullptr);
}

void NetworkService::Watch(int descriptor) const {
    epoll_event event{};
    event.events = EPOLLIN;
    if (descriptor != -1) {
        epoll_ctl(events.Number(), EPOLL_CTL_ADD, descriptor, &event);
    }
}

const std::vector<NetworkInterface>& NetworkService::ListOf(const Running& running) {
    return running.interfaces->List();
}

void NetworkService::TurnOn() {
    problem.clear();
    remark.clear();
    rtpRemark.clear();
    if (speaks.IsOff() || stopped || MustWait()) {
        return;
    }
    const std::string& name = wishes.names.front();
    if (!ComputerDirectory::IsListedName(name)) {
        problem = "The name of this computer cannot be announced.";
        return;
    }
    const std::optional<LinkKey>& key = parts.store.Key();
    auto next = std::make_unique<Running>();
    next->sealing = key ? LinkSealing::Make(*key) : nullptr;
    if (!next->sealing) {
        problem = "The key of this computer cannot be read.";
        return;
    }
    auto opened = UdpSocket::Open({parts.port, speaks});
    if (const auto* failure = std::get_if<UdpFailure>(&opened); failure != nullptr && failure->portTaken) {
        remark = failure->sentence + "; another one is used.";
        opened = UdpSocket::Open({0, speaks});
    }
    if (const auto* failure = std::get_if<UdpFailure>(&opened)) {
        problem = failure->sentence + ".";
        return;
    }
    next->socket = std::move(std::get<std::unique_ptr<UdpSocket>>(opened));
    next->interfaces = parts.makeInterfaces();
    const NetworkHub::Self self{key->Hash(), wishes.names};
    next->hub = std::make_unique<NetworkHub>(
        NetworkHub::Parts{parts.engine, ring, *next->socket, *next->sealing}, self);
    const NetworkSettings& settings = parts.store.Settings();
    next->hub->Access().Set(settings.access);
    next->hub->SetSecret(settings.secret);
    // What an earlier connection left behind would reach whoever has its number now.
    for (RemoteRing::Delivery old; ring.Take(old);) {
        ring.PassedOn(old.to, old.bytes.size());
    }
    running = std::move(next);
    if (SpeaksRtp()) {
        const auto open = [this](std::uint16_t port) -> std::unique_ptr<DatagramSocket> {
            auto socket = UdpSocket::Open({port, speaks});
            if (const auto* failure = std::get_if<UdpFailure>(&socket)) {
                rtpRemark = failure->sentence + "; a port of this computer is not offered by RTP-MIDI.";
                return nullptr;
            }
            return std::move(std::get<std::unique_ptr<UdpSocket>>(socket));
        };
        running->rtp = std::make_unique<RtpTransport>(
            RtpTransport::Parts{parts.engine, ring, running->hub->Gate(), open, parts.rtpPort}, name);
        running->hub->SetSecondDoor(running->rtp.get());
    }
    TellInterfaces();
    running->hub->SetInputs({wishes.configuration, wishes.heard});
    running->hub->Start();
    running->thread = std::make_unique<NetworkThread>(*running->hub, parts.driver);
    ringWaker.SetThread(running->thread.get());
    Watch(running->thread->EventDescriptor());
    Watch(running->interfaces->EventDescriptor());
    StartServices();
}

bool NetworkService::SpeaksRtp() const {
    const NetworkSettings& settings = parts.store.Settings();
    return settings.rtp && MaySpeakRtp(settings);
}

void NetworkService::OfferSessions(std::uint64_t now) {
    if (!running->rtp) {
        return;
    }
    std::uint64_t ports = wishes.configuration.InputPorts;
    for (const RemoteTargets::Target& target : targets.Targets()) {
        for (const auto& [source, input] : target.ways) {
            ports |= target.isSession ? std::uint64_t{1} << source % kMaxPorts : 0;
        }
    }
    if (ports != running->rtp->Offered()) {
        rtpRemark.clear();
        running->rtp->SetOffered(now, ports);
    }
}

void NetworkService::StartServices() {
    // On loopback alone nobody else is looked for, and nobody is told of.
    const bool isTold = speaks.Which() != InterfaceChoice::Kind::Loopback && parts.makeServiceDiscovery;
    running->services = std::make_unique<ServiceHints>(isTold ? parts.makeServiceDiscovery() : nullptr);
    Watch(running->services->EventDescriptor());
    if (running->rtp) {
        running->sessions =
            std::make_unique<ServiceHints>(isTold ? parts.makeServiceDiscovery() : nullptr, true);
        Watch(running->sessions->EventDescriptor());
    }
    TellServices();
    TellSessions();
}

void NetworkService::TellServices() {
    running->services->Set(speaks, SpokenInterfaces(), {wishes.names.front(), Port()});
    TakeHints();
}

// DNS-SD begins anew when this computer offers other ports, and its system may end: a session to which a way
// leads is where it was until somebody says something else.
void NetworkService::TakeSessions() {
    std::vector<AnnouncedSession> next = SessionsOf(running->sessions->Found());
    for (AnnouncedSession& before : announced) {
        const bool isNeeded = std::any_of(told.begin(), told.end(), [&before](const auto& each) {
            return each.second.isSession && each.second.link.name == before.name;
        });
        const bool isKnown = std::any_of(next.begin(), next.end(), [&before](const AnnouncedSession& each) {
            return FoldHostName(each.name) == FoldHostName(before.name);
        });
        if (isNeeded && !isKnown) {
            before.isThere = false;
            next.push_back(std::move(before));
        }
    }
    announced = std::move(next);
}

// Each port that is offered is a session of its own.
void NetworkService::TellSessions() {
    if (!running->sessions) {
        return;
    }
    ServiceWish offer;
    offer.type = kSessionType;
    for (int port = 0; port < kMaxPorts; ++port) {
        if ((running->rtp->Offered() >> port & 1) == 0) {
            continue;
        }
        const auto udp = static_cast<std::uint16_t>(parts.rtpPort + 2 * port);
        if (offer.name.empty()) {
            offer.name = running->rtp->SessionName(port);
            offer.port = udp;
        } else {
            offer.further.push_back({running->rtp->SessionName(port), udp});
        }
    }
    running->sessions->Set(speaks, SpokenInterfaces(), std::move(offer));
}

void NetworkService::TakeHints() {
    if (running->services->Serve()) {
        const std::lock_guard lock(running->thread->Lock());
        running->hub->SetHints(running->services->Hints());
    }
    if (running->sessions && running->sessions->Serve()) {
        TakeSessions();
    }
}

bool NetworkService::MustWait() {
    // On loopback there is nobody to whom two drivers of one computer would be one.
    if (parts.turn == nullptr || speaks.Which() == InterfaceChoice::Kind::Loopback || parts.turn->Take()) {
        return false;
    }
    problem = "Vexil III of " + parts.turn->Holder() +
              " speaks to the network from this computer; this one waits until it ends.";
    Watch(parts.turn->EventDescriptor());
    return true;
}

void NetworkService::TurnOff() {
    if (running) {
        End();
    }
    if (parts.turn != nullptr && (speaks.IsOff() || stopped)) {
        parts.turn->Leave();
    }
}

void NetworkService::End() {
    {
        const std::lock_guard lock(running->thread->Lock());
        running->hub->Deliver();
        running->hub->Stop();
    }
    ringWaker.SetThread(nullptr);
    running->thread.reset();
    running.reset();
    told.clear();
    marks.clear();
    states.clear();
    computers.clear();
    announced.clear();
    sharedNames.clear();
    refused.clear();
    browseAt = 0;
}

void NetworkService::TurnAnew() {
    TurnOff();
    TurnOn();
    Refresh();
}

std::vector<NetworkInterface> NetworkService::SpokenInterfaces() const {
    std::vector<NetworkInterface> spoken;
    for (const NetworkInterface& interface : ListOf(*running)) {
        if (speaks.Admits(interface.name, interface.loopback)) {
            spoken.push_back(interface);
        }
    }
    return spoken;
}

void NetworkService::TellInterfaces() {
    const std::vector<NetworkInterface> spoken = SpokenInterfaces();
    running->hub->SetInterfaces(spoken);
    std::vector<std::uint32_t> buffered;
    for (const NetworkInterface& interface : spoken) {
        if (interface.wireless && wishes.wireless) {
            buffered.push_back(interface.index);
        }
    }
    running->hub->Link().SetBuffered(std::move(buffered));
}

void NetworkService::SetWishes(const RemoteWishes& wanted) {
    const bool isRenamed = !hasWishes || wanted.names != wishes.names;
    const bool areInputsSame =
        hasWishes && wanted.heard == wishes.heard && !Differs(wanted.configuration, wishes.configuration);
    const bool isWirelessSame = hasWishes && wanted.wireless == wishes.wireless;
    if (!isRenamed && areInputsSame && isWirelessSame && wanted.ways == wishes.ways) {
        return;
    }
    wishes = wanted;
    hasWishes = true;
    const std::uint64_t now = BootMicroseconds();
    std::vector<WantedWay> ways;
    for (const RemoteWish& wish : wishes.ways) {
        ways.push_back({wish.computer, wish.port, wish.from});
    }
    const LocalNames local(wishes.names);
    std::vector<std::string> sources;
    for (int port = 0; port < kMaxPorts; ++port) {
        const std::string source = wishes.configuration.Hosts[port].SrcHost.c_str();
        const bool isInput = (wishes.configuration.InputPorts >> port & 1) != 0;
        const bool isNamed = (wishes.configuration.PortFlags[port].flags & kSourceComputerUnused) == 0;
        if (isInput && isNamed && !FoldHostName(source).empty() && !local.Contains(source) &&
            !IsThisComputer(source)) {
            sources.push_back(source);
        }
    }
    targets.Set(now, std::move(ways), std::move(sources));
    if (isRenamed) {
        TurnAnew();
        return;
    }
    if (running && (!areInputsSame || !isWirelessSame)) {
        const std::lock_guard lock(running->thread->Lock());
        running->hub->SetInputs({wishes.configuration, wishes.heard});
        TellInterfaces();
    }
    Refresh();
}

void NetworkService::Refresh() {
    if (!running) {
        return;
    }
    const std::uint64_t now = BootMicroseconds();
    bool browses = false;
    {
        const std::lock_guard lock(running->thread->Lock());
        states = running->hub->States();
        for (const LinkPeerState& state : states) {
            if (state.computer != 0 && state.answered) {
                targets.Learn(state.computer, *state.answered);
            }
        }
        NotePins();
        FindTargets(now);
        OfferSessions(now);
        TellTargets(now);
        KeepInDirectory();
        if (targets.IsAnyUnannounced() && now >= browseAt) {
            browses = running->hub->Finder().Browse(now);
            browseAt = now + kAskAgain;
        }
        states = running->hub->States();
        const ComputerDirectory& directory = running->hub->Directory();
        sharedNames = directory.SharedNames();
        refused = running->hub->RefusedKeys();
        computers.clear();
        const std::size_t own = wishes.names.front().size() + kRecordOverhead + 1;
        for (const ComputerEntry* entry :
             directory.List(kHostInfosSize - std::min<std::size_t>(kHostInfosSize, own), kRecordOverhead)) {
            computers.push_back(RecordOf(*entry));
        }
    }
    ListSessions();
    TellSessions();
    running->thread->Wake();
    if (browses) {
        running->services->LookAgain();
    }
    Report(now);
}

// Sessions stand behind the computers, as far as the list has room.
void NetworkService::ListSessions() {
    std::size_t room = kHostInfosSize;
    const auto take = [&room](std::size_t bytes) {
        const bool fits = bytes <= room;
        room -= fits ? bytes : 0;
        return fits;
    };
    take(wishes.names.front().size() + kRecordOverhead + 1);
    for (const HostRecord& computer : computers) {
        take(computer.name.size() + kRecordOverhead);
    }
    for (const AnnouncedSession& session : announced) {
        const std::string folded = FoldHostName(session.name);
        const bool isListed = std::any_of(
            computers.begin(), computers.end(),
            [&folded](const HostRecord& computer) { return FoldHostName(computer.name) == folded; });
        if (!isListed && take(session.name.size() + kRecordOverhead)) {
            computers.push_back(RecordOf(session));
        }
    }
}

void NetworkService::Report(std::uint64_t now) {
    std::vector<RemoteSession> sessions;
    for (const LinkPeerState& state : states) {
        sessions.push_back(SessionOf(state));
    }
    report.Sessions(now, sessions, (wishes.configuration.MiscOptions & kEnableLogging) != 0);
}

void NetworkService::FindTargets(std::uint64_t now) {
    const LocalNames local(wishes.names);
    targets.Find(now,
                 {local, ListOf(*running), running->hub->Directory(), running->socket->Port(),
                  running->rtp != nullptr, running->sessions ? &announced : nullptr},
                 running->hub->Access());
}

void NetworkService::TellTargets(std::uint64_t now) {
    NetworkHub& hub = *running->hub;
    std::map<int, RemoteTargets::Target> next;
    for (const RemoteTargets::Target& target : targets.Targets()) {
        next[target.number] = target;
    }
    // What ends comes first: a way may go on under another number, and a number by another door.
    for (const auto& [number, target] : told) {
        const auto same = next.find(number);
        const auto wanted =
            same != next.end() && same->second.isSession == target.isSession ? same : next.end();
        for (const auto& [source, input] : target.ways) {
            const bool isWanted =
                wanted != next.end() && std::find(wanted->second.ways.begin(), wanted->second.ways.end(),
                                                  std::pair(source, input)) != wanted->second.ways.end();
            if (!isWanted) {
                hub.DoorOf(number).EndWay(now, number, source, input);
            }
        }
        if (wanted == next.end()) {
            hub.DoorOf(number).RemoveComputer(now, number);
        }
    }
    for (const auto& [number, target] : next) {
        hub.SetDoor(number, target.isSession);
        hub.DoorOf(number).SetComputer(now, number, target.link);
        for (const auto& [source, input] : target.ways) {
            hub.DoorOf(number).OpenWay(now, number, source, input);
        }
    }
    told = std::move(next);
}

// The first association with a name remembers its key.
void NetworkService::NotePins() {
    bool hasChanged = false;
    for (const LinkPeerState& state : states) {
        if (state.kind == LinkPeerState::Kind::Up && state.key && !state.peerName.empty() &&
            running->hub->Access().PinFirst(state.peerName, *state.key, SecondsSince1970())) {
            LogPrintf("The key of \"%s\" is remembered: %s. Another key under that name is not let in.\n",
                      NameText(state.peerName).c_str(), ShortKeyText(*state.key).c_str());
            hasChanged = true;
        }
    }
    if (hasChanged) {
        NetworkSettings settings = parts.store.Settings();
        settings.access = running->hub->Access().List();
        parts.store.Save(settings);
        running->hub->AccessChanged();
    }
}

void NetworkService::TakeUpAccess() {
    if (!running) {
        return;
    }
    {
        const std::lock_guard lock(running->thread->Lock());
        running->hub->Access().Set(parts.store.Settings().access);
        running->hub->AccessChangedByUser();
    }
    if (SpeaksRtp() != (running->rtp != nullptr)) {
        TurnAnew();
        return;
    }
    Refresh();
}

void NetworkService::KeepInDirectory() {
    std::map<ComputerId, std::pair<bool, bool>> next;
    for (const RemoteTargets::Target& target : targets.Targets()) {
        if (target.id) {
            next[*target.id].first = true;
        }
    }
    for (const LinkPeerState& state : states) {
        if (state.kind == LinkPeerState::Kind::Up && state.key) {
            next[ComputerIdOf(*state.key)].second = true;
        }
    }
    for (const auto& [id, mark] : marks) {
        if (!next.contains(id)) {
            running->hub->Keep(id, false, false);
        }
    }
    for (const auto& [id, mark] : next) {
        running->hub->Keep(id, mark.first, mark.second);
    }
    marks = std::move(next);
}

bool NetworkService::Serve() {
    const std::uint64_t now = BootMicroseconds();
    const bool isRunning = running != nullptr;
    if (!isRunning && hasWishes && parts.turn != nullptr && parts.turn->EventDescriptor() != -1) {
        TurnAnew();
    } else if (running) {
        running->thread->TakeEvent();
        if (running->interfaces->Take()) {
            lookups.Renew(now);
            browseAt = 0;
            {
                const std::lock_guard lock(running->thread->Lock());
                TellInterfaces();
            }
            TellServices();
        }
        TakeHints();
    }
    lookups.HandleAnswers(now);
    lookups.HandleTimeout(now);
    Refresh();
    return isRunning || running != nullptr;
}

int NetworkService::Timeout() const {
    if (!running) {
        return -1;
    }
    std::optional<std::uint64_t> first = targets.NextTime();
    const auto at = [&first](std::optional<std::uint64_t> time) {
        first = first && time ? std::min(*first, *time) : first ? first : time;
    };
    at(lookups.PollTimeout());
    if (targets.IsAnyUnannounced()) {
        at(browseAt);
    }
    if (!first) {
        return -1;
    }
    const std::uint64_t now = BootMicroseconds();
    return *first <= now ? 0 : static_cast<int>((*first - now) / 1000 + 1);
}

void NetworkService::Stop() {
    stopped = true;
    TurnOff();
}

void NetworkService::Browse() {
    if (!running) {
        return;
    }
    bool begins = false;
    {
        const std::lock_guard lock(running->thread->Lock());
        begins = running->hub->Finder().Browse(BootMicroseconds());
    }
    running->thread->Wake();
    if (begins) {
        running->services->LookAgain();
        if (running->sessions) {
            running->sessions->LookAgain();
        }
    }
}

bool NetworkService::IsThisComputer(const std::string& text) const {
    const LocalNames local(wishes.names);
    if (running) {
        return MeansThisComputer(text, local, ListOf(*running), Port());
    }
    // Most texts are names, for which the system need not be asked.
    const bool mayBeAddress = text.find_first_of(":.") != std::string::npos;
    return mayBeAddress ? MeansThisComputer(text, local, parts.makeInterfaces()->List(), Port())
                        : local.Contains(text);
}

std::uint16_t NetworkService::Port() const {
    return running ? running->socket->Port() : 0;
}

std::vector<HostRecord> NetworkService::Computers() const {
    return computers;
}

const LinkPeerState* NetworkService::StateOf(int number) const {
    const auto state = std::find_if(states.begin(), states.end(), [number](const LinkPeerState& each) {
        return number != 0 && each.computer == number;
    });
    return state == states.end() ? nullptr : &*state;
}

std::string NetworkService::ConnectionProblem(const RemoteTargets::Found& found,
                                              const std::string& computer) const {
    const std::string name = NameText(computer);
    const std::string quoted = "\"" + name + "\"";
    const LinkPeerState* state = StateOf(found.number);
    const bool isLooked = state == nullptr || state->kind == LinkPeerState::Kind::Searching;
    switch (found.state) {
        case RemoteTargets::State::Impossible:
            return quoted + " is neither the name nor the address of a computer.";
        case RemoteTargets::State::ThisComputer:
            return quoted + " leads to this computer, whose name is \"" + NameText(wishes.names.front()) +
                   "\".";
        case RemoteTargets::State::TooMany:
            return "More than " + std::to_string(LinkTransport::kMostComputers) +
                   " other computers are named.";
        case RemoteTargets::State::Unknown:
            if (isLooked) {
                return "No computer on the network is called " + quoted + ".";
            }
            break;
        case RemoteTargets::State::Waiting:
        case RemoteTargets::State::LookedUp:
        case RemoteTargets::State::Known:
            break;
    }
    return ConnectionProblemText(state == nullptr ? LinkPeerState() : *state, name);
}

RemoteAnswer NetworkService::Find(const RemoteWish& wish) const {
    if (!running) {
        return {0,
                !problem.empty() ? problem
                                 : "MIDI between computers is off; \"vexil3ctl network on\" switches it on.",
                false};
    }
    const RemoteTargets::Found found = targets.Of(wish.computer);
    const LinkPeerState* state = StateOf(found.number);
    if (state != nullptr && state->isSession && wish.port != kSessionPort) {
        // Known without asking, whether or not the session is up.
        const std::string name = NameText(wish.computer);
        return {found.number, WayProblemText(WayProblem::TargetPortUnused, name, wish.port, true), false};
    }
    std::string why = ConnectionProblem(found, wish.computer);
    bool isPassing = found.state == RemoteTargets::State::Waiting ||
                     found.state == RemoteTargets::State::LookedUp ||
                     (found.state == RemoteTargets::State::Known && (state == nullptr || IsPassing(*state)));
    if (why.empty() && state != nullptr) {
        const auto way = std::find_if(
            state->waysOut.begin(), state->waysOut.end(),
            [&wish](const LinkWayOut& each) { return each.source == wish.from && each.input == wish.port; });
        const std::string name = NameText(wish.computer);
        isPassing = way == state->waysOut.end() || !way->answered;
        why = isPassing ? "\"" + name + "\" has not answered for this port yet."
                        : WayProblemText(way->problem, name, wish.port, state->isSession);
    }
    return {found.number, why, isPassing};
}

std::string NetworkService::NameOf(const LinkPeerState& state) const {
    const auto target = told.find(state.computer);
    return target != told.end() && !target->second.texts.empty() ? target->second.texts.front()
           : state.peerName.empty()                              ? state.address.Text()
                                                                 : state.peerName;
}

const NetworkInterface* NetworkService::InterfaceToward(const NetworkAddress& address) const {
    const std::vector<NetworkInterface>& list = ListOf(*running);
    if (const NetworkInterface* named = FindInterface(list, address.interface)) {
        return named;
    }
    const auto place = std::find_if(list.begin(), list.end(), [&address](const NetworkInterface& interface) {
        return IsOnLink({interface}, address);
    });
    return place == list.end() ? nullptr : &*place;
}

RemoteSession NetworkService::SessionOf(const LinkPeerState& state) const {
    RemoteSession session;
    session.computer = NameOf(state);
    session.up = state.kind == LinkPeerState::Kind::Up;
    session.state = StateText(state.kind);
    if (state.computer != 0) {
        session.problem = ConnectionProblem(targets.Of(session.computer), session.computer);
    }
    session.address = state.address.IsThere() ? state.address.TextWithPort() : "";
    if (const NetworkInterface* interface = InterfaceToward(state.address)) {
        session.interface = interface->name;
        session.wireless = interface->wireless;
    }
    session.key = state.key ? ShortKeyText(*state.key) : "";
    session.since = state.key ? RememberedSince(*state.key) : 0;
    session.needs = session.problem.empty() ? "" : NeedsText(state);
    const std::uint64_t now = BootMicroseconds();
    session.seconds =
        state.since == 0 || state.since > now ? 0 : (now - state.since) / kMicrosecondsPerSecond;
    if (state.counters.roundTrip != 0) {
        session.roundTrip = static_cast<std::uint32_t>(state.counters.roundTrip);
    }
    session.repaired = state.counters.repeated;
    session.lost = state.counters.lost;
    session.late = state.counters.late;
    const std::string name = NameText(session.computer);
    for (const LinkWayOut& way : state.waysOut) {
        const bool isRefused = way.answered && way.problem != WayProblem::None;
        const std::string why = !session.up && !isRefused ? session.problem
                                : !way.answered
                                    ? "\"" + name + "\" has not answered for this port yet."
                                    : WayProblemText(way.problem, name, way.input, state.isSession);
        session.ways.push_back(
            {way.source % kMaxPorts, way.input, false, way.source >= kTestSourceBase, why});
    }
    for (const LinkWayIn& way : state.waysIn) {
        session.ways.push_back({way.source % kMaxPorts, way.input, true, way.source >= kTestSourceBase,
                                WayProblemText(way.problem, wishes.names.front(), way.input)});
    }
    return session;
}

std::uint64_t NetworkService::RememberedSince(const KeyHash& key) const {
    for (const RememberedKey& pin : parts.store.Settings().access.pins) {
        if (pin.key == key) {
            return pin.since;
        }
    }
    return 0;
}

RemoteStatus NetworkService::Status() const {
    RemoteStatus status;
    status.speaks = speaks.Text();
    status.problem = problem;
    if (!running) {
        return status;
    }
    if (const std::optional<LinkKey>& key = parts.store.Key()) {
        status.key = ShortKeyText(key->Hash());
    }
    status.port = Port();
    status.avahi = running->services->Problem();
    std::vector<LinkPeerState> present;
    {
        const std::lock_guard lock(running->thread->Lock());
        present = running->hub->States();
    }
    for (const LinkPeerState& state : present) {
        status.sessions.push_back(SessionOf(state));
    }
    for (const std::string& each : {remark, rtpRemark}) {
        if (!each.empty()) {
            status.remarks.push_back(each);
        }
    }
    if (!running->thread->RealtimeProblem().empty()) {
        status.remarks.push_back(running->thread->RealtimeProblem());
    }
    for (const std::string& name : sharedNames) {
        status.remarks.push_back("More than one computer is called \"" + NameText(name) + "\".");
    }
    for (const RemoteSession& session : status.sessions) {
        if (session.up && session.wireless && !wishes.wireless) {
            status.remarks.push_back("\"" + NameText(session.computer) +
                                     "\" is reached without a wire, and Use Wireless is off: its notes may "
                                     "come unevenly.");
        }
    }
    for (const RefusedKey& each : refused) {
        status.refused.push_back({each.name, ShortKeyText(each.key)});
        status.remarks.push_back("A computer with another key than before calls itself \"" +
                                 NameText(each.name) +
                                 "\" and is not let in; \"vexil3ctl network pin\" "
                                 "accepts its key, " +
                                 ShortKeyText(each.key) + ".");
    }
    return status;
}

std::string NetworkService::Command(const std::vector<std::string>& words) {
    return NetworkCommands(*this).Run(words);
}

}  // namespace vexil
