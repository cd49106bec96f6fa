// What happens to peers: they come up, are found to be a computer that is wanted, are refused, and go.
#include <algorithm>

#include "service/network/LinkTransport.h"
#include "service/network/LinkTransportPeer.h"
#include "service/routes/HostNames.h"

namespace vexil {

namespace {

// A peer that is not up and has been so for this long is forgotten when nobody wants it: longer than a call
// and its bye live.
constexpr std::uint64_t kForgetAfter = 4'000'000;

}  // namespace

Refusal LinkTransport::Judge(const Peer& peer, const KeyHash& key) {
    const Computer* computer = ComputerOf(peer.computer);
    const auto has = [&key](const std::vector<KeyHash>& keys) {
        return keys.empty() || std::find(keys.begin(), keys.end(), key) != keys.end();
    };
    // Another session of a peer that is up has its key.
    const bool isOther = (computer != nullptr && !has(computer->target.pinned)) ||
                         (peer.link.Association().IsUp() && peer.link.Key() && *peer.link.Key() != key);
    return isOther ? Refusal::OtherKey : parts.gate.Judge(key, "");
}

void LinkTransport::ChooseBuffer(Peer& peer, std::uint32_t interface) const {
    const bool needs = std::find(buffered.begin(), buffered.end(), interface) != buffered.end();
    if (needs != peer.jitter.has_value()) {
        peer.jitter = needs ? std::optional<JitterBuffer>(std::in_place) : std::nullopt;
        peer.link.Association().SetWireless(needs);
    }
}

void LinkTransport::Serve(std::uint64_t now, Peer& peer) {
    peer.dirty = false;
    TakeEvents(now, peer);
    if (const std::optional<LinkAddress> moved = peer.link.SessionAddress()) {
        const NetworkAddress address = FromLinkAddress(*moved);
        if (address != peer.address) {
            peer.address = address;
            peer.own = NetworkAddress();
            changed = true;
        }
    }
    while (const auto transmit = peer.link.PollTransmit(now, out)) {
        const NetworkAddress to = FromLinkAddress(transmit->address);
        const NetworkAddress own = to == peer.address ? peer.own : NetworkAddress();
        // What was in it is sent again, as after any loss.
        if (parts.socket.Send(to, own, ByteView(out).first(transmit->size)) == SendResult::TooLong) {
            peer.link.Association().SendOnlySmall();
        }
    }
    TakeEvents(now, peer);
    if (!staged.IsEmpty()) {
        FlushStaged(now);
    }
}

void LinkTransport::SendDirty(std::uint64_t now) {
    // What one takes may make room for what waits for another.
    for (bool again = true; again;) {
        again = false;
        for (const auto& peer : peers) {
            if (peer->dirty) {
                Serve(now, *peer);
                again = true;
            }
        }
    }
}

void LinkTransport::TakeEvents(std::uint64_t now, Peer& peer) {
    while (const std::optional<LinkEvent> event = peer.link.PollEvent(now)) {
        HandleEvent(now, peer, *event);
    }
}

void LinkTransport::HandleEvent(std::uint64_t now, Peer& peer, const LinkEvent& event) {
    LinkAssociation& association = peer.link.Association();
    switch (event.kind) {
        case LinkEvent::Kind::Up:
            BecameUp(now, peer);
            break;
        case LinkEvent::Kind::Lost:
        case LinkEvent::Kind::Ended:
        case LinkEvent::Kind::Refused:
            GoneDown(now, peer, event);
            break;
        case LinkEvent::Kind::WayOpened: {
            const WayVerdict verdict =
                parts.gate.JudgeWay(association.PeerName(), peer.address, event.source, event.input);
            association.AnswerWay(event.source, event.input,
                                  waysIn.Open(&peer, event.source, event.input, verdict, SteadyTime(now)));
            changed = true;
            break;
        }
        case LinkEvent::Kind::WayEnded:
            association.PiecesPassedOn(event.source, event.input,
                                       waysIn.End(&peer, event.source, event.input, SteadyTime(now)));
            changed = true;
            break;
        case LinkEvent::Kind::Message:
        case LinkEvent::Kind::Piece: {
            const std::uint64_t time = peer.jitter ? peer.jitter->PlayAt(now, event.due) : now;
            waysIn.Hear(&peer, event.source, event.input, event.kind == LinkEvent::Kind::Piece, event.bytes,
                        SteadyTime(time));
            break;
        }
        case LinkEvent::Kind::WayState:
            TakeWayState(peer, event);
            break;
        case LinkEvent::Kind::NameChanged:
            JudgeWaysAgain(now);
            changed = true;
            break;
        case LinkEvent::Kind::SessionOver:
        case LinkEvent::Kind::ProbeAnswered:
            break;  // LinkPeer's own
    }
}

void LinkTransport::BecameUp(std::uint64_t now, Peer& peer) {
    peer.upSince = now;
    changed = true;
    // The key of the session that has begun is known when its events are taken.
    const std::optional<KeyHash> key = peer.link.SessionKey();
    if (!key) {
        return;
    }
    const Refusal refusal = parts.gate.Judge(*key, peer.link.Association().PeerName());
    if (refusal != Refusal::None) {
        peer.link.Association().SayBye({ByeReason::Refused, refusal});
        return;
    }
    // One association for a pair of computers.
    for (const auto& other : peers) {
        if (other.get() == &peer || other->gone || other->link.SessionKey() != key) {
            continue;
        }
        if (other->link.Association().IsUp() && other->link.StandsAgainst(peer.link, other->upSince)) {
            GiveWay(now, peer, *other);
            return;
        }
        GiveWay(now, *other, peer);
    }
    if (peer.computer == 0) {
        if (Computer* computer = ComputerFor(peer)) {
            Bind(now, peer, *computer);
        }
    }
    if (Computer* computer = ComputerOf(peer.computer)) {
        computer->SetKind(LinkPeerState::Kind::Up, now);
        for (LinkWayOut& way : computer->ways) {
            way.answered = false;
        }
    }
    MakeRoom(now, peer);
}

// What was wanted of the one is wanted of the other now, which is the same computer.
void LinkTransport::GiveWay(std::uint64_t now, Peer& peer, Peer& toPeer) {
    if (peer.link.Association().IsUp()) {
        peer.link.Association().SayBye({ByeReason::Replaced, Refusal::None});
        peer.dirty = true;
    }
    if (toPeer.computer == 0 && peer.computer != 0) {
        if (Computer* computer = ComputerOf(peer.computer)) {
            peer.computer = 0;
            Bind(now, toPeer, *computer);
        }
    }
}

void LinkTransport::JudgePeersAgain(std::uint64_t now) {
    for (const auto& peer : peers) {
        const std::optional<KeyHash> key = peer->link.SessionKey();
        if (!key || !peer->link.Association().IsUp()) {
            continue;
        }
        const Refusal refusal = parts.gate.Judge(*key, peer->link.Association().PeerName());
        if (refusal != Refusal::None) {
            peer->link.Association().SayBye({ByeReason::Refused, refusal});
            peer->dirty = true;
        }
    }
    SendDirty(now);
    for (const auto& computer : computers) {
        if (computer && computer->kind == LinkPeerState::Kind::Refused) {
            computer->calls.Begin(now);
        }
    }
}

// Who is wanted and not up, by a key, an address or a name of the peer.
LinkTransport::Computer* LinkTransport::ComputerFor(const Peer& peer) {
    const std::string name = FoldHostName(peer.link.Association().PeerName());
    const std::optional<KeyHash> key = peer.link.SessionKey();
    for (const auto& computer : computers) {
        if (!computer) {
            continue;
        }
        const Peer* has = PeerOf(*computer);
        if (has != nullptr && has != &peer && has->link.Association().IsUp()) {
            continue;
        }
        const std::vector<KeyHash>& pinned = computer->target.pinned;
        const bool isKey = key && std::find(pinned.begin(), pinned.end(), *key) != pinned.end();
        const bool isThere =
            std::any_of(computer->target.candidates.begin(), computer->target.candidates.end(),
                        [&](const LinkCandidate& candidate) {
                            return candidate.address.IsSameHost(peer.address) &&
                                   candidate.address.port == peer.address.port;
                        });
        const bool isName = !name.empty() && FoldHostName(computer->target.name) == name;
        if (isKey || (pinned.empty() && (isThere || isName))) {
            return computer.get();
        }
    }
    return nullptr;
}

// The peer is that computer; whatever was tried to reach it otherwise is over. A call that is under way goes
// on: where it crossed the peer's own, both computers choose between the two when both are up.
void LinkTransport::Bind(std::uint64_t now, Peer& peer, Computer& computer) {
    for (const auto& other : peers) {
        if (other.get() != &peer && other->computer == computer.number) {
            other->computer = 0;
            other->gone = !other->link.IsBusy();
        }
    }
    peer.computer = computer.number;
    peer.link.SetNeeded(computer.target.needed);
    computer.asked = false;
    for (LinkWayOut& way : computer.ways) {
        way.answered = false;
        peer.link.Association().OpenWay(now, static_cast<std::uint8_t>(way.source),
                                        static_cast<std::uint8_t>(way.input));
    }
    if (peer.link.Association().IsUp()) {
        computer.SetKind(LinkPeerState::Kind::Up, now);
    }
    peer.dirty = true;
    changed = true;
}

// Where too many are up, strangers give way to computers that are wanted here.
void LinkTransport::MakeRoom(std::uint64_t, Peer& peer) {
    if (UpCount() <= kMostAssociations) {
        return;
    }
    Peer* leaves = &peer;
    if (peer.computer != 0) {
        const auto stranger = std::find_if(peers.begin(), peers.end(), [](const auto& other) {
            return other->computer == 0 && other->link.Association().IsUp();
        });
        leaves = stranger == peers.end() ? &peer : stranger->get();
    }
    leaves->link.Association().SayBye({ByeReason::Refused, Refusal::TooMany});
    leaves->dirty = true;
}

void LinkTransport::GoneDown(std::uint64_t now, Peer& peer, const LinkEvent& event) {
    changed = true;
    if (peer.link.Association().IsUp()) {
        return;  // a session beside the one that goes on was refused
    }
    waysIn.EndAll(&peer, SteadyTime(now));
    peer.begun = now;
    Computer* computer = ComputerOf(peer.computer);
    if (computer == nullptr) {
        return;
    }
    for (LinkWayOut& way : computer->ways) {
        way.answered = false;
        way.problem = WayProblem::None;
    }
    if (event.kind == LinkEvent::Kind::Refused) {
        computer->SetRefused(event.bye.refusal, event.byPeer, now);
        computer->calls.Refused(now);
        return;
    }
    const bool isUnheard =
        event.kind == LinkEvent::Kind::Ended && event.byPeer && event.bye.reason == ByeReason::Unheard;
    computer->SetKind(event.kind == LinkEvent::Kind::Lost ? LinkPeerState::Kind::Lost
                      : isUnheard                         ? LinkPeerState::Kind::Unheard
                                                          : LinkPeerState::Kind::Ended,
                      now);
    computer->calls.Begin(now);
}

// Those that nobody wants and that have nothing to say any more.
void LinkTransport::DropPeers(std::uint64_t now) {
    std::erase_if(peers, [&](const std::unique_ptr<Peer>& peer) {
        const bool isOver = (peer->computer == 0 || peer->gone) && !peer->link.Association().IsUp() &&
                            (peer->gone || now - peer->begun >= kForgetAfter || !peer->link.PollTimeout(now));
        if (isOver) {
            waysIn.EndAll(peer.get(), SteadyTime(now));
            changed = true;
        }
        return isOver;
    });
}

std::size_t LinkTransport::UpCount() const {
    return static_cast<std::size_t>(std::count_if(
        peers.begin(), peers.end(), [](const auto& peer) { return peer->link.Association().IsUp(); }));
}

std::vector<LinkPeerState> LinkTransport::States() const {
    std::vector<LinkPeerState> states;
    const auto addPeer = [this](LinkPeerState& state, const Peer& peer) {
        state.peerName = peer.link.Association().PeerName();
        state.address = peer.address;
        if (peer.link.Association().IsUp()) {
            state.kind = LinkPeerState::Kind::Up;
            state.since = peer.upSince;
            state.key = peer.link.SessionKey();
            state.counters = peer.link.Association().Counters();
        }
        waysIn.ForEach(&peer, [&state](const LinkWaysIn::Way& way) {
            state.waysIn.push_back({way.source, way.input, way.verdict.problem});
        });
    };
    for (const auto& computer : computers) {
        if (!computer) {
            continue;
        }
        LinkPeerState state;
        state.computer = computer->number;
        state.kind = computer->kind;
        state.refusal = computer->refusal;
        state.refusedThere = computer->refusedThere;
        state.since = computer->since;
        state.silent = computer->calls.Calls() >= kCallsUntilSilent;
        state.answered = computer->answered;
        state.waysOut = computer->ways;
        if (!computer->target.candidates.empty()) {
            state.address = computer->target.candidates.front().address;
        }
        if (const Peer* peer = PeerOf(*computer)) {
            addPeer(state, *peer);
        }
        states.push_back(std::move(state));
    }
    for (const auto& peer : peers) {
        if (peer->computer == 0 && peer->link.Association().IsUp()) {
            LinkPeerState state;
            addPeer(state, *peer);
            states.push_back(std::move(state));
        }
    }
    return states;
}

}  // namespace vexil
