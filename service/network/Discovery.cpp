#include "service/network/Discovery.h"

#include <algorithm>
#include <utility>

namespace vexil {

namespace {

constexpr std::uint64_t kAnswersCount = 5'000'000;  // after a question, for so long
constexpr std::uint64_t kAnnounceAgain = 150'000;
const NetworkAddress kBroadcast = NetworkAddress::V4({255, 255, 255, 255}, kLinkPort);
const NetworkAddress kLoopbackBroadcast = NetworkAddress::V4({127, 255, 255, 255}, kLinkPort);
const NetworkAddress kAllNodes =
    NetworkAddress::V6({0xFF, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, kLinkPort);
const NetworkAddress kLoopbackV6 =
    NetworkAddress::V6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, kLinkPort);

bool Has(const NetworkInterface& interface, AddressFamily family) {
    return std::any_of(interface.addresses.begin(), interface.addresses.end(),
                       [family](const InterfaceAddress& own) { return own.address.family == family; });
}

bool IsSame(const ComputerAnswer& first, const ComputerAnswer& second) {
    return first.id == second.id && first.port == second.port &&
           first.hardwareAddress == second.hardwareAddress && first.secretNeeded == second.secretNeeded &&
           first.name == second.name;
}

}  // namespace

Discovery::Discovery(Mediator& outside, ComputerDirectory& itsDirectory, const AccessRules& rules)
    : mediator(outside), directory(itsDirectory), access(rules) {}

void Discovery::SetComputer(std::uint64_t now, const ComputerAnswer& computer) {
    const bool hasChanged = !IsSame(self, computer);
    std::string name(computer.name);
    self = computer;
    self.goingAway = false;
    selfName = std::move(name);
    self.name = selfName;
    if (hasChanged && started) {
        Announce(now);
    }
}

void Discovery::AnnounceAgain(std::uint64_t now) {
    if (started) {
        Announce(now);
    }
}

void Discovery::SetInterfaces(std::uint64_t now, std::vector<NetworkInterface> spoken) {
    const bool hasChanged = interfaces != spoken;
    interfaces = std::move(spoken);
    if (hasChanged && started) {
        Announce(now);
    }
}

void Discovery::Start(std::uint64_t now) {
    if (!std::exchange(started, true)) {
        Announce(now);
    }
}

void Discovery::Stop(std::uint64_t /*now*/) {
    if (!std::exchange(started, false)) {
        return;
    }
    pending.clear();
    // Twice: nobody is there to say it later, where one is lost.
    AnnounceNow(true);
    AnnounceNow(true);
    asksDone = kAskAgain.size();
    announceAgain.reset();
    questions = {};
    hintsBegun.reset();
    hintRounds = kHintAgain.size();
    dropAt.reset();
}

Nonce Discovery::MakeNonce() {
    Nonce nonce{};
    ByteWriter writer(nonce);
    writer.Put(mediator.Random());
    writer.Put(mediator.Random() | 1);  // zeros are no nonce
    return nonce;
}

// Where everybody hears it: each interface, each known computer that is on another port than the link's, and
// where computers may be that do not hear what goes to all.
std::vector<NetworkAddress> Discovery::Everybody() const {
    std::vector<NetworkAddress> all;
    for (const NetworkInterface& interface : interfaces) {
        if (interface.broadcasts && Has(interface, AddressFamily::V4)) {
            const NetworkAddress& broadcast = interface.loopback ? kLoopbackBroadcast : kBroadcast;
            all.push_back(broadcast.WithInterface(interface.index));
        }
        if ((interface.multicasts || interface.loopback) && Has(interface, AddressFamily::V6)) {
            const NetworkAddress& nodes = interface.loopback ? kLoopbackV6 : kAllNodes;
            all.push_back(nodes.WithInterface(interface.index));
        }
    }
    for (const ComputerEntry* entry : directory.All()) {
        if (entry->port != kLinkPort) {
            all.insert(all.end(), entry->addresses.begin(), entry->addresses.end());
        }
    }
    for (const NetworkAddress& hint : hints) {
        if (IsWorthAsking(hint) && std::find(all.begin(), all.end(), hint) == all.end()) {
            all.push_back(hint);
        }
    }
    return all;
}

void Discovery::Push(const Pending& datagram) {
    if (pending.size() < kMostPending) {
        pending.push_back(datagram);
    }
}

void Discovery::AskEverybody() {
    for (const NetworkAddress& address : Everybody()) {
        Push({PlainKind::Query, browse, false, address, {}});
    }
}

bool Discovery::IsWorthAsking(const NetworkAddress& hint) const {
    const bool isBySpoken = hint.interface == 0 || std::any_of(interfaces.begin(), interfaces.end(),
                                                               [&hint](const NetworkInterface& each) {
                                                                   return each.index == hint.interface;
                                                               });
    const bool isOwn = hint.port == self.port && IsOwnAddress(interfaces, hint);
    return hint.IsThere() && hint.port != 0 && !hint.IsForMany() && isBySpoken && !isOwn &&
           access.AdmitsAddress(hint);
}

void Discovery::SetHints(std::uint64_t now, std::vector<NetworkAddress> addresses) {
    std::sort(addresses.begin(), addresses.end());
    addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
    addresses.resize(std::min(addresses.size(), kMostHints));
    const std::vector<NetworkAddress> before = std::exchange(hints, std::move(addresses));
    if (!started) {
        return;
    }
    RenewHintNonce(now);
    for (const NetworkAddress& hint : hints) {
        const bool isNew = !std::binary_search(before.begin(), before.end(), hint);
        if (isNew && hintsAsked < kMostHints && IsWorthAsking(hint)) {
            ++hintsAsked;
            Push({PlainKind::Query, hintNonce, false, hint, {}});
            newHint = now;
            hintRounds = 0;
        }
    }
}

void Discovery::RenewHintNonce(std::uint64_t now) {
    if (!hintsBegun || now - *hintsBegun >= kHintTime) {
        hintsBegun = now;
        hintsAsked = 0;
        hintNonce = MakeNonce();
        Remember(now, hintNonce);
    }
}

bool Discovery::IsKnown(const NetworkAddress& hint) const {
    const std::vector<const ComputerEntry*> all = directory.All();
    return std::any_of(all.begin(), all.end(), [&hint](const ComputerEntry* entry) {
        return std::find(entry->addresses.begin(), entry->addresses.end(), hint) != entry->addresses.end();
    });
}

void Discovery::AnnounceNow(bool goingAway) {
    for (const NetworkAddress& address : Everybody()) {
        Push({PlainKind::Announcement, {}, goingAway, address, {}});
    }
}

void Discovery::Announce(std::uint64_t now) {
    AnnounceNow(false);
    announceAgain = now + kAnnounceAgain;
}

void Discovery::Remember(std::uint64_t now, const Nonce& nonce) {
    questions[nextQuestion++ % kQuestions] = {nonce, now + kAnswersCount};
}

bool Discovery::Browse(std::uint64_t now) {
    if (!started || (browseBegun && now - *browseBegun < kBrowseInterval)) {
        return false;
    }
    if (directory.BeginBrowse(now)) {
        Report({});
    }
    browse = MakeNonce();
    Remember(now, browse);
    browseBegun = now;
    asksDone = 0;
    AskEverybody();
    if (!directory.All().empty()) {
        dropAt = now + ComputerDirectory::kPatience;
    }
    return true;
}

Nonce Discovery::Ask(std::uint64_t now, const NetworkAddress& address) {
    const Nonce nonce = MakeNonce();
    Remember(now, nonce);
    Push({PlainKind::Query, nonce, false, address.port == 0 ? address.WithPort(kLinkPort) : address, {}});
    return nonce;
}

bool Discovery::IsAsked(std::uint64_t now, const Nonce& nonce) const {
    return std::any_of(questions.begin(), questions.end(), [&](const Question& question) {
        return question.nonce == nonce && now < question.until;
    });
}

void Discovery::HandleDatagram(std::uint64_t now, const ReceivedDatagram& told, ByteView datagram) {
    const NetworkAddress& from = told.from;
    const bool isEcho = from.port == self.port && IsOwnAddress(interfaces, from);
    if (!started || isEcho) {
        return;
    }
    if (!rate.Admit(now, from)) {
        ++counters.tooMany;
        return;
    }
    const std::optional<PlainDatagram> read = ReadPlainDatagram(datagram);
    if (!read) {
        ++counters.malformed;
        return;
    }
    if (read->kind == PlainKind::Answer) {
        if (!IsAsked(now, read->nonce)) {
            ++counters.unasked;
            return;
        }
    } else if (!access.AdmitsAddress(from)) {
        ++counters.notAdmitted;
        return;
    }
    if (read->version != kLinkVersion) {
        DiscoveryEvent event;
        event.kind = DiscoveryEvent::Kind::OtherVersion;
        event.from = from;
        event.version = read->version;
        Report(event);
    }
    if (read->kind == PlainKind::Query) {
        ++counters.answered;
        Push({PlainKind::Answer, read->nonce, false, from, told.own});
    } else if (read->computer) {
        TakeComputer(now, from, *read);
    }
}

void Discovery::TakeComputer(std::uint64_t now, const NetworkAddress& from, const PlainDatagram& read) {
    const ComputerAnswer& said = *read.computer;
    DiscoveryEvent event;
    event.id = said.id;
    event.from = from;
    event.question = read.nonce;
    event.announced = read.kind == PlainKind::Announcement;
    if (said.id == self.id) {
        if (!IsOwnAddress(interfaces, from)) {
            event.kind = DiscoveryEvent::Kind::OwnKey;
            Report(event);
        }
        return;
    }
    if (said.goingAway) {
        if (event.announced && directory.HearGoing(from, said.id)) {
            event.kind = DiscoveryEvent::Kind::Going;
            Report(event);
            Report({});
        }
        return;
    }
    event.from = from.WithPort(said.port);
    event.kind = DiscoveryEvent::Kind::Heard;
    const bool hasChanged = directory.Hear(now, from, said, read.nonce);
    Report(event);
    if (hasChanged) {
        Report({});
    }
}

void Discovery::HandleTimeout(std::uint64_t now) {
    if (browseBegun && asksDone < kAskAgain.size() && now - *browseBegun >= kAskAgain[asksDone]) {
        // Late, one is enough.
        while (asksDone < kAskAgain.size() && now - *browseBegun >= kAskAgain[asksDone]) {
            ++asksDone;
        }
        AskEverybody();
    }
    if (announceAgain && now >= *announceAgain) {
        announceAgain.reset();
        AnnounceNow(false);
    }
    if (dropAt && now >= *dropAt) {
        dropAt.reset();
        if (directory.DropUnanswering(now)) {
            Report({});
        }
    }
    AskHintsAgain(now);
}

std::optional<std::uint64_t> Discovery::NextHintRound() const {
    return hintRounds < kHintAgain.size() ? std::optional(newHint + kHintAgain[hintRounds]) : std::nullopt;
}

void Discovery::AskHintsAgain(std::uint64_t now) {
    if (const std::optional<std::uint64_t> next = NextHintRound(); !next || now < *next) {
        return;
    }
    ++hintRounds;
    RenewHintNonce(now);
    bool isAnyUnknown = false;
    for (const NetworkAddress& hint : hints) {
        if (IsWorthAsking(hint) && !IsKnown(hint)) {
            isAnyUnknown = true;
            Push({PlainKind::Query, hintNonce, false, hint, {}});
        }
    }
    if (!isAnyUnknown) {
        hintRounds = kHintAgain.size();
    }
}

std::optional<Discovery::Transmit> Discovery::PollTransmit(std::span<std::uint8_t> out) {
    while (!pending.empty()) {
        const Pending next = pending.front();
        pending.pop_front();
        ComputerAnswer said = self;
        said.goingAway = next.goingAway;
        std::size_t size = 0;
        switch (next.kind) {
            case PlainKind::Query:
                size = WriteQuery(next.nonce, out);
                break;
            case PlainKind::Answer:
                size = WriteAnswer(next.nonce, said, out);
                break;
            case PlainKind::Announcement:
                size = WriteAnnouncement(said, out);
                break;
        }
        if (size > 0) {
            return Transmit{size, next.to, next.own};
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> Discovery::PollTimeout() const {
    if (!pending.empty() || !events.empty()) {
        return 0;
    }
    std::optional<std::uint64_t> first = announceAgain;
    for (const std::optional<std::uint64_t>& time : {NextHintRound(), dropAt}) {
        if (time) {
            first = first ? std::min(*first, *time) : time;
        }
    }
    if (browseBegun && asksDone < kAskAgain.size()) {
        const std::uint64_t ask = *browseBegun + kAskAgain[asksDone];
        first = first ? std::min(*first, ask) : ask;
    }
    return first;
}

void Discovery::Report(const DiscoveryEvent& event) {
    const bool isTold = event.kind == DiscoveryEvent::Kind::ListChanged &&
                        std::any_of(events.begin(), events.end(), [](const DiscoveryEvent& waiting) {
                            return waiting.kind == DiscoveryEvent::Kind::ListChanged;
                        });
    if (!isTold && events.size() < kMostEvents) {
        events.push_back(event);
    }
}

std::optional<DiscoveryEvent> Discovery::PollEvent() {
    if (events.empty()) {
        return std::nullopt;
    }
    const DiscoveryEvent event = events.front();
    events.pop_front();
    return event;
}

}  // namespace vexil
