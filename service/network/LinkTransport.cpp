// Which peer a datagram belongs to, calls and their answers. LinkTransportPeers.cpp has what happens to
// peers, LinkTransportWays.cpp the ways and what goes on them.
#include "service/network/LinkTransport.h"

#include <algorithm>

#include "service/network/LinkTransportPeer.h"
#include "service/routes/HostNames.h"

namespace vexil {

namespace {

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::uint64_t kWirelessLater = 20'000;  // than by wire
// Datagrams from addresses at which no peer is, tried on each association.
constexpr std::uint32_t kTriesPerSecond = 200;

}  // namespace

LinkTransport::LinkTransport(const Parts& itsParts, const ComputerId& id, std::string_view name)
    : parts(itsParts), selfId(id), selfName(name), waysIn(parts.engine) {}

LinkTransport::~LinkTransport() = default;

LinkTransport::Computer* LinkTransport::ComputerOf(int number) {
    return number < 1 || number > kMostComputers ? nullptr
                                                 : computers[static_cast<std::size_t>(number - 1)].get();
}

const LinkTransport::Computer* LinkTransport::ComputerOf(int number) const {
    return number < 1 || number > kMostComputers ? nullptr
                                                 : computers[static_cast<std::size_t>(number - 1)].get();
}

LinkTransport::Peer* LinkTransport::PeerOf(const Computer& computer) {
    const auto found = std::find_if(peers.begin(), peers.end(),
                                    [&](const auto& peer) { return peer->computer == computer.number; });
    return found == peers.end() ? nullptr : found->get();
}

const LinkTransport::Peer* LinkTransport::PeerOf(const Computer& computer) const {
    return const_cast<LinkTransport*>(this)->PeerOf(computer);  // NOLINT: nothing is changed
}

LinkTransport::Peer* LinkTransport::FindPeer(const NetworkAddress& address) {
    const auto found =
        std::find_if(peers.begin(), peers.end(), [&](const auto& peer) { return peer->address == address; });
    return found == peers.end() ? nullptr : found->get();
}

bool LinkTransport::IsWanted(const Computer& computer) const {
    return !stopping && (computer.target.needed || !computer.ways.empty());
}

bool LinkTransport::IsOfAnother(const Computer& computer, const ComputerId& id) const {
    return std::any_of(peers.begin(), peers.end(), [&](const auto& peer) {
        const Computer* its = ComputerOf(peer->computer);
        if (its == nullptr || its == &computer || !peer->link.IsBusy()) {
            return false;
        }
        const std::optional<KeyHash> key = peer->link.SessionKey();
        return key ? ComputerIdOf(*key) == id : its->answered == id;
    });
}

void LinkTransport::SetComputer(std::uint64_t now, int number, const LinkTarget& target) {
    if (number < 1 || number > kMostComputers) {
        return;
    }
    std::unique_ptr<Computer>& place = computers[static_cast<std::size_t>(number - 1)];
    if (place && place->target == target) {
        return;
    }
    if (!place) {
        place = std::make_unique<Computer>();
        place->number = number;
        place->kind = LinkPeerState::Kind::Searching;
    }
    const bool isElsewhere = place->target.candidates != target.candidates ||
                             place->target.pinned != target.pinned || place->target.name != target.name;
    place->target = target;
    if (place->target.candidates.size() > kMostCandidates) {
        place->target.candidates.resize(kMostCandidates);
    }
    if (Peer* peer = PeerOf(*place)) {
        peer->link.SetNeeded(target.needed);
    } else {
        // It may be up already, unasked.
        for (const auto& stranger : peers) {
            if (stranger->computer == 0 && stranger->link.Association().IsUp() &&
                ComputerFor(*stranger) == place.get()) {
                Bind(now, *stranger, *place);
                break;
            }
        }
    }
    if (isElsewhere) {
        place->calls.Begin(now);
    }
    if (target.candidates.empty() && place->kind == LinkPeerState::Kind::Calling) {
        place->SetKind(LinkPeerState::Kind::Searching, now);
    }
    changed = true;
}

void LinkTransport::RemoveComputer(std::uint64_t now, int number) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr) {
        return;
    }
    if (Peer* peer = PeerOf(*computer)) {
        for (const LinkWayOut& way : computer->ways) {
            peer->link.Association().EndWay(now, static_cast<std::uint8_t>(way.source),
                                            static_cast<std::uint8_t>(way.input));
        }
        peer->link.SetNeeded(false);
        peer->computer = 0;
        Serve(now, *peer);
    }
    computers[static_cast<std::size_t>(number - 1)].reset();
    changed = true;
}

void LinkTransport::CallSoon(std::uint64_t now, int number) {
    if (Computer* computer = ComputerOf(number)) {
        computer->calls.Begin(now);
    }
}

void LinkTransport::CallSoonAt(std::uint64_t now, const NetworkAddress& address) {
    for (const auto& computer : computers) {
        if (computer && std::any_of(computer->target.candidates.begin(), computer->target.candidates.end(),
                                    [&address](const LinkCandidate& candidate) {
                                        return candidate.address.IsSameHost(address) &&
                                               candidate.address.port == address.port;
                                    })) {
            computer->calls.Begin(now);
        }
    }
}

void LinkTransport::SetSecret(const std::optional<StretchedSecret>& stretched) {
    secret = stretched;
    for (const auto& peer : peers) {
        peer->link.SetSecret(secret);
    }
}

void LinkTransport::SayBye(std::uint64_t now) {
    stopping = true;
    for (const auto& peer : peers) {
        if (peer->link.Association().IsUp()) {
            peer->link.Association().SayBye({ByeReason::Stopping, Refusal::None});
            Serve(now, *peer);
        }
    }
}

LinkTransport::Peer& LinkTransport::AddPeer(int number) {
    peers.push_back(std::make_unique<Peer>(*this, parts.sealing, selfName));
    Peer& peer = *peers.back();
    peer.computer = number;
    peer.link.SetSecret(secret);
    return peer;
}

void LinkTransport::HandleDatagram(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram) {
    switch (KindOfDatagram(datagram)) {
        case DatagramKind::Plain:
            HandlePlain(now, received, datagram);
            break;
        case DatagramKind::Sealed:
            if (LinkSealing::IsCall(datagram)) {
                HandleCall(now, received, datagram);
            } else {
                HandleSealed(now, received, datagram);
            }
            break;
        case DatagramKind::Foreign:
            ++dropped;
            break;
    }
    SendDirty(now);
    DropPeers(now);
}

void LinkTransport::HandlePlain(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram) {
    const std::optional<PlainDatagram> plain = ReadPlainDatagram(datagram);
    if (!plain || plain->kind != PlainKind::Answer) {
        return;
    }
    for (const auto& computer : computers) {
        if (computer && computer->asked && computer->nonce == plain->nonce) {
            TakeAnswer(now, *computer, received, *plain);
            return;
        }
    }
}

void LinkTransport::SendQueries(std::uint64_t now, Computer& computer, bool wireless) {
    if (!wireless || !computer.asked) {
        for (std::size_t half = 0; half < computer.nonce.size(); half += 8) {
            const std::uint64_t random = parts.gate.Random();
            for (std::size_t byte = 0; byte < 8; ++byte) {
                computer.nonce[half + byte] = static_cast<std::uint8_t>(random >> (8 * byte));
            }
        }
    }
    computer.asked = true;
    const std::size_t size = WriteQuery(computer.nonce, out);
    for (const LinkCandidate& candidate : computer.target.candidates) {
        if (candidate.wireless == wireless) {
            parts.socket.Send(candidate.address, NetworkAddress(), ByteView(out).first(size));
        }
    }
    if (computer.kind == LinkPeerState::Kind::Searching) {
        computer.SetKind(LinkPeerState::Kind::Calling, now);
        changed = true;
    }
}

// One that answers, and has the right key if one is known, is called.
void LinkTransport::TakeAnswer(std::uint64_t now, Computer& computer, const ReceivedDatagram& received,
                               const PlainDatagram& answer) {
    if (!answer.computer) {
        if (answer.version != kLinkVersion && computer.refusal != Refusal::OtherVersion) {
            computer.SetRefused(Refusal::OtherVersion, false, now);
            changed = true;
        }
        return;
    }
    const std::vector<KeyHash>& pinned = computer.target.pinned;
    const bool isRight = pinned.empty() || std::any_of(pinned.begin(), pinned.end(), [&](const KeyHash& key) {
                             return ComputerIdOf(key) == answer.computer->id;
                         });
    if (!isRight) {
        if (computer.refusal != Refusal::OtherKey) {
            computer.SetRefused(Refusal::OtherKey, false, now);
            changed = true;
        }
        return;
    }
    if (answer.computer->id == selfId) {
        if (computer.refusal != Refusal::SameKey) {
            computer.SetRefused(Refusal::SameKey, false, now);
            changed = true;
        }
        return;
    }
    changed = changed || computer.answered != answer.computer->id;
    computer.answered = answer.computer->id;
    // It was set by two names that are not known to be one yet: a second association would end the first.
    if (IsOfAnother(computer, answer.computer->id)) {
        return;
    }
    computer.asked = false;
    const NetworkAddress address = received.from.WithPort(answer.computer->port);
    Peer* peer = PeerOf(computer);
    if (peer == nullptr) {
        peer = &AddPeer(computer.number);
        peer->link.SetNeeded(computer.target.needed);
        for (const LinkWayOut& way : computer.ways) {
            peer->link.Association().OpenWay(now, static_cast<std::uint8_t>(way.source),
                                             static_cast<std::uint8_t>(way.input));
        }
    }
    if (!peer->link.IsBusy()) {
        peer->address = address;
        peer->own = received.own;
        peer->begun = now;
        peer->link.Call(now, ToLinkAddress(address));
    }
    Serve(now, *peer);
}

// The first datagram of a call, or a repetition of it.
void LinkTransport::HandleCall(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram) {
    const LinkAddress address = ToLinkAddress(received.from);
    for (const auto& peer : peers) {
        if (peer->link.Claims(datagram)) {
            peer->link.HandleDatagram(now, address, datagram);
            Serve(now, *peer);
            return;
        }
    }
    Peer* there = FindPeer(received.from);
    if (stopping || !rate.Admit(now, received.from) ||
        (there == nullptr && !parts.gate.MayCall(received.from))) {
        ++dropped;
        return;
    }
    LinkSealing::Heard heard = parts.sealing.Listen(datagram, address, out);
    if (heard.answerSize > 0) {
        parts.socket.Send(received.from, received.own, ByteView(out).first(heard.answerSize));
    }
    if (!heard.session) {
        return;
    }
    if (there == nullptr) {
        const auto halfOpen = std::count_if(peers.begin(), peers.end(), [](const auto& peer) {
            return peer->computer == 0 && !peer->link.Association().IsUp();
        });
        if (static_cast<std::size_t>(halfOpen) >= kMostHalfOpen) {
            ++dropped;
            return;
        }
        there = &AddPeer(0);
        there->address = received.from;
        there->begun = now;
    }
    there->own = received.own;
    there->link.TakeCall(now, std::move(heard.session), address);
    Serve(now, *there);
}

void LinkTransport::HandleSealed(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram) {
    const LinkAddress address = ToLinkAddress(received.from);
    for (const auto& peer : peers) {
        if (peer->address == received.from && peer->link.HandleDatagram(now, address, datagram)) {
            peer->own = received.own;
            ChooseBuffer(*peer, received.from.interface);
            Serve(now, *peer);
            return;
        }
    }
    if (now - second >= kSecond) {
        second = now;
        triedThisSecond = 0;
    }
    if (triedThisSecond++ >= kTriesPerSecond) {
        ++dropped;
        return;
    }
    for (const auto& peer : peers) {
        if (peer->address != received.from && peer->link.HandleDatagram(now, address, datagram)) {
            Serve(now, *peer);
            return;
        }
    }
    ++dropped;
}

void LinkTransport::HandleTimeout(std::uint64_t now) {
    const bool isAnyAliveDue = std::any_of(peers.begin(), peers.end(), [now](const auto& peer) {
        return peer->link.Association().IsAliveDue(now);
    });
    for (std::size_t place = 0; place < peers.size(); ++place) {
        peers[place]->link.HandleTimeout(now);
        if (isAnyAliveDue) {
            peers[place]->link.Association().SayAliveEarly(now);
        }
        Serve(now, *peers[place]);
    }
    DropPeers(now);
    for (const auto& computer : computers) {
        if (!computer || !IsWanted(*computer)) {
            continue;
        }
        Peer* peer = PeerOf(*computer);
        if (peer != nullptr && peer->link.IsBusy()) {
            continue;
        }
        if (computer->wirelessAt != 0 && now >= computer->wirelessAt) {
            computer->wirelessAt = 0;
            SendQueries(now, *computer, true);
        }
        if (!computer->target.candidates.empty() && now >= computer->calls.Next()) {
            computer->calls.Called(now);
            changed = changed || computer->calls.Calls() == kCallsUntilSilent;
            computer->wirelessAt = now + kWirelessLater;
            computer->asked = false;
            SendQueries(now, *computer, false);
        }
    }
    exclusivePollAt = now + LinkWaysIn::kPoll;
    if (waysIn.IsWaiting()) {
        waysIn.Retry(SteadyTime(now));
        waysIn.TakePassedOn([&](const LinkWaysIn::Way& way, std::uint32_t bytes) {
            Peer& peer = *static_cast<Peer*>(const_cast<void*>(way.peer));  // NOLINT: it is its own
            peer.link.Association().PiecesPassedOn(way.source, way.input, bytes);
            peer.dirty = true;
        });
    }
    SendDirty(now);
}

std::optional<std::uint64_t> LinkTransport::PollTimeout(std::uint64_t now) const {
    std::optional<std::uint64_t> first;
    const auto at = [&first](std::uint64_t time) { first = first ? std::min(*first, time) : time; };
    for (const auto& peer : peers) {
        if (const auto due = peer->link.PollTimeout(now)) {
            at(*due);
        }
    }
    for (const auto& computer : computers) {
        if (!computer || !IsWanted(*computer) || computer->target.candidates.empty()) {
            continue;
        }
        const Peer* peer = PeerOf(*computer);
        if (peer == nullptr || !peer->link.IsBusy()) {
            at(computer->calls.Next());
            if (computer->wirelessAt != 0) {
                at(computer->wirelessAt);
            }
        }
    }
    if (waysIn.IsWaiting()) {
        at(exclusivePollAt);
    }
    return first;
}

}  // namespace vexil
