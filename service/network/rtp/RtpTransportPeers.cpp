// What happens to peers: they are wanted, come up, and go; and what is played to them and by them.
#include <algorithm>

#include "service/network/rtp/RtpTransport.h"
#include "service/network/rtp/RtpTransportPeer.h"
#include "service/routes/HostNames.h"

namespace vexil {

namespace {

constexpr std::uint8_t kFirstRealtimeStatus = 0xF8;

int PortOf(int source) {
    return source % kMaxPorts;
}

auto FindWay(std::vector<LinkWayOut>& ways, int source, int input) {
    return std::find_if(ways.begin(), ways.end(),
                        [&](const LinkWayOut& way) { return way.source == source && way.input == input; });
}

}  // namespace

RtpTransport::Computer* RtpTransport::ComputerOf(int number) const {
    return number < 1 || number > kMostComputers ? nullptr
                                                 : computers[static_cast<std::size_t>(number - 1)].get();
}

RtpTransport::Peer* RtpTransport::PeerOf(const Computer& computer, int port) const {
    const auto found = std::find_if(peers.begin(), peers.end(), [&](const auto& peer) {
        return peer->computer == computer.number && peer->port == port;
    });
    return found == peers.end() ? nullptr : found->get();
}

RtpTransport::Peer& RtpTransport::AddPeer(int port) {
    peers.push_back(std::make_unique<Peer>(*this, port));
    return *peers.back();
}

// Whether what a port plays here, or its test output, is to be heard there.
bool RtpTransport::IsWayWanted(const Computer& computer, int port) const {
    return !stopping && (offered >> port & 1) != 0 &&
           std::any_of(computer.ways.begin(), computer.ways.end(), [port](const LinkWayOut& way) {
               return PortOf(way.source) == port && way.input == kSessionPort;
           });
}

RtpTransport::Computer* RtpTransport::ComputerAt(const NetworkAddress& control, std::string_view name) const {
    const std::string folded = FoldHostName(name);
    for (const auto& computer : computers) {
        if (!computer) {
            continue;
        }
        const bool isThere = std::any_of(
            computer->target.candidates.begin(), computer->target.candidates.end(),
            [&](const LinkCandidate& candidate) {
                return candidate.address.IsSameHost(control) && candidate.address.port == control.port;
            });
        if (isThere || (!folded.empty() && FoldHostName(computer->target.name) == folded)) {
            return computer.get();
        }
    }
    return nullptr;
}

void RtpTransport::Want(std::uint64_t now, Computer& computer, int port) {
    Peer* peer = PeerOf(computer, port);
    if (peer == nullptr) {
        // It may be up already, unasked.
        const auto stranger = std::find_if(peers.begin(), peers.end(), [&](const auto& each) {
            return each->port == port && each->computer == 0 &&
                   ComputerAt(each->control, each->name) == &computer;
        });
        if (stranger == peers.end() && computer.target.candidates.empty()) {
            return;
        }
        peer = stranger == peers.end() ? &AddPeer(port) : stranger->get();
        peer->computer = computer.number;
        if (!peer->control.IsThere()) {
            peer->control = computer.target.candidates.front().address;
        }
        changed = true;
    }
    if (!computer.target.candidates.empty()) {
        peer->session.SetWanted(now, true);
    }
    Serve(now, *peer);
}

// A session that the peer has called stays as long as it likes.
void RtpTransport::Unwant(std::uint64_t now, Computer& computer, int port) {
    Peer* peer = PeerOf(computer, port);
    if (peer == nullptr) {
        return;
    }
    peer->session.SetWanted(now, false);
    if (peer->session.IsUp() && peer->session.Clock().IsCaller()) {
        peer->session.SayBye(now);
    }
    peer->computer = 0;
    changed = true;
    Serve(now, *peer);
}

void RtpTransport::SetComputer(std::uint64_t now, int number, const LinkTarget& target) {
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
    }
    const bool isElsewhere = place->target.candidates != target.candidates;
    place->target = target;
    for (int port = 0; port < kMaxPorts; ++port) {
        if (IsWayWanted(*place, port)) {
            Want(now, *place, port);
            if (Peer* peer = PeerOf(*place, port); peer != nullptr && isElsewhere) {
                peer->candidate = 0;
                peer->session.CallSoon(now);
                Serve(now, *peer);
            }
        }
    }
    changed = true;
}

void RtpTransport::RemoveComputer(std::uint64_t now, int number) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr) {
        return;
    }
    for (int port = 0; port < kMaxPorts; ++port) {
        Unwant(now, *computer, port);
    }
    computers[static_cast<std::size_t>(number - 1)].reset();
    changed = true;
    DropPeers(now);
}

void RtpTransport::OpenWay(std::uint64_t now, int number, int source, int input) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr || FindWay(computer->ways, source, input) != computer->ways.end()) {
        return;
    }
    computer->ways.push_back({source, input});
    changed = true;
    if (IsWayWanted(*computer, PortOf(source))) {
        Want(now, *computer, PortOf(source));
    }
}

void RtpTransport::EndWay(std::uint64_t now, int number, int source, int input) {
    Computer* computer = ComputerOf(number);
    if (computer == nullptr) {
        return;
    }
    const auto way = FindWay(computer->ways, source, input);
    if (way == computer->ways.end()) {
        return;
    }
    computer->ways.erase(way);
    changed = true;
    const int port = PortOf(source);
    if (Peer* peer = PeerOf(*computer, port)) {
        peer->session.EndSource(source);
        Serve(now, *peer);
    }
    if (!IsWayWanted(*computer, port)) {
        Unwant(now, *computer, port);
    }
    DropPeers(now);
}

WayVerdict RtpTransport::Judge(const Peer& peer) const {
    return parts.gate.JudgeWay(peer.name, peer.control, kSessionPort, peer.port);
}

void RtpTransport::JudgeWaysAgain(std::uint64_t now) {
    for (const auto& peer : peers) {
        const WayVerdict verdict = Judge(*peer);
        waysIn.ForEach(peer.get(), [&](LinkWaysIn::Way& way) {
            if (verdict != way.verdict) {
                waysIn.Change(way, verdict, SteadyTime(now));
                changed = true;
            }
        });
        if (peer->session.IsUp() && peer->computer == 0 && verdict.problem != WayProblem::None) {
            peer->session.SayBye(now);
            Serve(now, *peer);
        }
    }
    DropPeers(now);
}

void RtpTransport::SayBye(std::uint64_t now) {
    stopping = true;
    for (const auto& peer : peers) {
        peer->session.SayBye(now);
        Serve(now, *peer);
    }
    DropPeers(now);
}

void RtpTransport::Transmit(Peer& peer, const RtpSession::Transmit& transmit) {
    const Computer* computer = ComputerOf(peer.computer);
    if (transmit.invites && computer != nullptr && !computer->target.candidates.empty()) {
        // One after another: a peer that is asked at two of its addresses would begin two sessions.
        const std::vector<LinkCandidate>& candidates = computer->target.candidates;
        peer.control = candidates[peer.candidate++ % candidates.size()].address;
        peer.data = peer.control.WithPort(static_cast<std::uint16_t>(peer.control.port + 1));
        peer.own = NetworkAddress();
    }
    DatagramSocket* socket = SocketOf(peer.port, transmit.port);
    if (socket != nullptr && transmit.size != 0) {
        // What does not leave is lost, as on any wire.
        socket->Send(transmit.port == RtpPort::Control ? peer.control : peer.data, peer.own,
                     ByteView(out).first(transmit.size));
    }
}

void RtpTransport::Serve(std::uint64_t now, Peer& peer) {
    peer.dirty = false;
    TakeEvents(now, peer);
    const std::uint32_t calls = peer.session.Calls();
    while (const auto transmit = peer.session.PollTransmit(now, out)) {
        Transmit(peer, *transmit);
    }
    changed = changed || (calls < kCallsUntilSilent) != (peer.session.Calls() < kCallsUntilSilent);
    TakeEvents(now, peer);
}

void RtpTransport::TakeEvents(std::uint64_t now, Peer& peer) {
    while (const std::optional<RtpEvent> event = peer.session.PollEvent()) {
        changed = true;
        switch (event->kind) {
            case RtpEvent::Kind::Up:
                BecameUp(now, peer);
                break;
            case RtpEvent::Kind::Ended:
            case RtpEvent::Kind::Lost:
                peer.hasLost = event->kind == RtpEvent::Kind::Lost;
                peer.hasEnded = !peer.hasLost;
                peer.upSince = now;
                waysIn.EndAll(&peer, SteadyTime(now));
                break;
            case RtpEvent::Kind::Refused:
                break;
        }
    }
}

void RtpTransport::BecameUp(std::uint64_t now, Peer& peer) {
    peer.upSince = now;
    peer.hasLost = peer.hasEnded = false;
    peer.name = IsComputerName(peer.session.PeerName()) ? peer.session.PeerName() : peer.control.Text();
    // Whoever was there before has gone without a word.
    for (const auto& other : peers) {
        if (other.get() != &peer && other->port == peer.port && other->control.IsSameHost(peer.control) &&
            other->control.port == peer.control.port) {
            peer.computer = peer.computer == 0 ? other->computer : peer.computer;
            other->computer = 0;
            other->session.SayBye(now);
            other->dirty = true;
        }
    }
    if (peer.computer != 0) {
        peer.session.SetWanted(now, true);
    }
    waysIn.Open(&peer, kSessionPort, static_cast<std::uint8_t>(peer.port), Judge(peer), SteadyTime(now));
}

// Those that nobody wants and that have nothing to say any more.
void RtpTransport::DropPeers(std::uint64_t now) {
    for (const auto& peer : peers) {
        if (peer->dirty) {
            Serve(now, *peer);
        }
    }
    const auto gone = std::erase_if(peers, [&](const std::unique_ptr<Peer>& peer) {
        const bool isOver = peer->computer == 0 && !peer->session.IsBusy() && !peer->session.PollTimeout(now);
        if (isOver) {
            waysIn.EndAll(peer.get(), SteadyTime(now));
        }
        return isOver;
    });
    changed = changed || gone != 0;
}

RtpTaken RtpTransport::Pass(const RemoteRing::Delivery& delivery) {
    const Computer* computer = ComputerOf(delivery.to.computer);
    Peer* peer = computer == nullptr ? nullptr : PeerOf(*computer, PortOf(delivery.to.from));
    if (peer == nullptr || delivery.to.port != kSessionPort) {
        return RtpTaken::NotUp;
    }
    const std::uint64_t steady = delivery.time - static_cast<std::uint64_t>(parts.engine.ClockLead());
    const std::uint64_t due = (steady - static_cast<std::uint64_t>(steadyLead)) / 1000;
    const RtpTaken taken = peer->session.Send(due, delivery.to.from, PieceOfDelivery(delivery.bytes));
    peer->dirty = peer->dirty || taken == RtpTaken::Taken;
    return taken;
}

void RtpTransport::Deliver(const RemoteRing::Delivery& delivery) {
    // Behind what waits, only what may stand inside a system exclusive goes at once.
    const bool waits = staged.Has(delivery.to.from) && delivery.bytes.front() < kFirstRealtimeStatus;
    if (waits || Pass(delivery) == RtpTaken::NoRoom) {
        staged.Put(delivery);
    } else {
        parts.ring.PassedOn(delivery.to, delivery.bytes.size());
    }
}

void RtpTransport::SendDelivered(std::uint64_t now) {
    for (bool again = true; again;) {
        again = false;
        for (const auto& peer : peers) {
            if (peer->dirty) {
                Serve(now, *peer);
                again = true;
            }
        }
        // What they have sent makes room for what waits.
        if (!staged.IsEmpty()) {
            again = FlushStaged() || again;
        }
    }
}

bool RtpTransport::FlushStaged() {
    bool hasPassed = false;
    staged.Flush([&](const RemoteRing::Delivery& delivery) {
        if (Pass(delivery) == RtpTaken::NoRoom) {
            return false;
        }
        parts.ring.PassedOn(delivery.to, delivery.bytes.size());
        hasPassed = true;
        return true;
    });
    return hasPassed;
}

void RtpTransport::AddWaysIn(const Peer& peer, LinkPeerState& state) const {
    waysIn.ForEach(&peer, [&state](const LinkWaysIn::Way& way) {
        state.waysIn.push_back({way.source, way.input, way.verdict.problem});
    });
}

// Of all its sessions, the one that stands best tells how the computer stands.
LinkPeerState RtpTransport::StateOf(const Computer& computer) const {
    LinkPeerState state;
    state.computer = computer.number;
    state.isSession = true;
    state.waysOut = computer.ways;
    if (!computer.target.candidates.empty()) {
        state.kind = LinkPeerState::Kind::Calling;
        state.address = computer.target.candidates.front().address;
    }
    bool isAnyUp = false;
    bool isAllSilent = true;
    for (const auto& peer : peers) {
        if (peer->computer != computer.number) {
            continue;
        }
        AddWaysIn(*peer, state);
        isAllSilent = isAllSilent && peer->session.Calls() >= kCallsUntilSilent;
        const bool isUp = peer->session.IsUp();
        if (isUp && !isAnyUp) {
            isAnyUp = true;
            state.kind = LinkPeerState::Kind::Up;
            state.peerName = peer->name;
            state.since = peer->upSince;
            state.address = peer->control;
            state.counters.roundTrip = peer->session.Clock().RoundTrip().value_or(0);
        } else if (!isAnyUp && peer->session.IsRefused()) {
            state.kind = LinkPeerState::Kind::Refused;
            state.refusal = Refusal::NotAllowed;
            state.refusedThere = true;
        } else if (!isAnyUp && (peer->hasLost || peer->hasEnded)) {
            state.kind = peer->hasLost ? LinkPeerState::Kind::Lost : LinkPeerState::Kind::Ended;
            state.since = peer->upSince;
        }
    }
    state.silent = state.kind == LinkPeerState::Kind::Calling && isAllSilent;
    for (LinkWayOut& way : state.waysOut) {
        const Peer* peer = PeerOf(computer, PortOf(way.source));
        way.problem = way.input == kSessionPort ? WayProblem::None : WayProblem::TargetPortUnused;
        way.answered = way.input != kSessionPort || (peer != nullptr && peer->session.IsUp());
    }
    return state;
}

std::vector<LinkPeerState> RtpTransport::States() const {
    std::vector<LinkPeerState> states;
    for (const auto& computer : computers) {
        if (computer) {
            states.push_back(StateOf(*computer));
        }
    }
    for (const auto& peer : peers) {
        if (peer->computer == 0 && peer->session.IsUp()) {
            LinkPeerState state;
            state.isSession = true;
            state.kind = LinkPeerState::Kind::Up;
            state.peerName = peer->name;
            state.since = peer->upSince;
            state.address = peer->control;
            AddWaysIn(*peer, state);
            states.push_back(std::move(state));
        }
    }
    return states;
}

}  // namespace vexil
