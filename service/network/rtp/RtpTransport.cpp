// Sockets, and whose a datagram is. RtpTransportPeers.cpp has what happens to peers, and what is played.
#include "service/network/rtp/RtpTransport.h"

#include <sys/epoll.h>

#include <algorithm>

#include "config/DriverConfiguration.h"
#include "service/network/rtp/RtpTransportPeer.h"

namespace vexil {

RtpTransport::RtpTransport(Parts itsParts, std::string_view name)
    : parts(std::move(itsParts)),
      selfName(name),
      events(epoll_create1(EPOLL_CLOEXEC)),
      waysIn(parts.engine) {}

RtpTransport::~RtpTransport() = default;

std::string RtpTransport::SessionName(int port) const {
    return selfName + " " + std::to_string(ShownPortNumber(port));
}

DatagramSocket* RtpTransport::SocketOf(int port, RtpPort which) const {
    const Sockets& pair = sockets[static_cast<std::size_t>(port)];
    return which == RtpPort::Control ? pair.control.get() : pair.data.get();
}

bool RtpTransport::OpenSockets(int port) {
    const auto number = static_cast<std::uint16_t>(parts.firstPort + 2 * port);
    Sockets next{parts.open(number), parts.open(static_cast<std::uint16_t>(number + 1))};
    if (!next.control || !next.data) {
        return false;
    }
    for (const RtpPort which : {RtpPort::Control, RtpPort::Data}) {
        const DatagramSocket& socket = which == RtpPort::Control ? *next.control : *next.data;
        if (socket.EventDescriptor() != -1) {
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u32 = static_cast<std::uint32_t>(2 * port + (which == RtpPort::Data ? 1 : 0));
            ++watched;
            epoll_ctl(events.Number(), EPOLL_CTL_ADD, socket.EventDescriptor(), &event);
        }
    }
    sockets[static_cast<std::size_t>(port)] = std::move(next);
    offered |= std::uint64_t{1} << port;
    return true;
}

void RtpTransport::CloseSockets(std::uint64_t now, int port) {
    for (const auto& peer : peers) {
        if (peer->port == port) {
            peer->session.SayBye(now);
            Serve(now, *peer);
        }
    }
    for (const RtpPort which : {RtpPort::Control, RtpPort::Data}) {
        watched -= SocketOf(port, which)->EventDescriptor() != -1 ? 1U : 0U;
    }
    // Closed, they are no longer watched.
    sockets[static_cast<std::size_t>(port)] = Sockets();
    offered &= ~(std::uint64_t{1} << port);
}

bool RtpTransport::SetOffered(std::uint64_t now, std::uint64_t ports) {
    bool areOpen = true;
    for (int port = 0; port < kMaxPorts; ++port) {
        const bool isWanted = (ports >> port & 1) != 0;
        const bool isOpen = (offered >> port & 1) != 0;
        if (isWanted && !isOpen) {
            areOpen = OpenSockets(port) && areOpen;
        } else if (!isWanted && isOpen) {
            CloseSockets(now, port);
        }
    }
    // Ways that were there before their sockets.
    for (const auto& computer : computers) {
        for (int port = 0; computer && port < kMaxPorts; ++port) {
            if (IsWayWanted(*computer, port)) {
                Want(now, *computer, port);
            }
        }
    }
    DropPeers(now);
    return areOpen;
}

void RtpTransport::Read(std::uint64_t now) {
    // Of up to 128 sockets, those that have something; in memory, where nothing is watched, all of them.
    std::array<epoll_event, std::size_t{2} * kMaxPorts> ready{};
    const int count = watched == 0 ? 0 : epoll_wait(events.Number(), ready.data(), ready.size(), 0);
    for (int each = 0; each < count; ++each) {
        const std::uint32_t place = ready[static_cast<std::size_t>(each)].data.u32;
        ReadSocket(now, static_cast<int>(place / 2), place % 2 == 0 ? RtpPort::Control : RtpPort::Data);
    }
    for (int port = 0; watched == 0 && port < kMaxPorts; ++port) {
        ReadSocket(now, port, RtpPort::Control);
        ReadSocket(now, port, RtpPort::Data);
    }
    DropPeers(now);
}

void RtpTransport::ReadSocket(std::uint64_t now, int port, RtpPort which) {
    DatagramSocket* socket = SocketOf(port, which);
    while (socket != nullptr) {
        const std::optional<ReceivedDatagram> received = socket->Receive(in);
        if (!received) {
            return;
        }
        HandleDatagram(now, port, which, *received, ByteView(in).first(received->size));
    }
}

RtpTransport::Peer* RtpTransport::FindPeer(int port, const NetworkAddress& from, std::uint32_t ssrc) const {
    const auto found = std::find_if(peers.begin(), peers.end(), [&](const auto& peer) {
        return peer->port == port && peer->session.PeerSsrc() == ssrc && peer->control.IsSameHost(from);
    });
    return found == peers.end() ? nullptr : found->get();
}

// Who is being called there and is not up.
RtpTransport::Peer* RtpTransport::FindCalled(int port, RtpPort which, const NetworkAddress& from) const {
    const int above = which == RtpPort::Data ? 1 : 0;
    for (const auto& peer : peers) {
        const Computer* computer = ComputerOf(peer->computer);
        if (peer->port != port || computer == nullptr || peer->session.IsUp()) {
            continue;
        }
        const bool isThere = std::any_of(
            computer->target.candidates.begin(), computer->target.candidates.end(),
            [&](const LinkCandidate& candidate) {
                return candidate.address.IsSameHost(from) && candidate.address.port + above == from.port;
            });
        if (isThere) {
            return peer.get();
        }
    }
    return nullptr;
}

void RtpTransport::HandleDatagram(std::uint64_t now, int port, RtpPort which,
                                  const ReceivedDatagram& received, ByteView datagram) {
    hearingAt = now;
    if (IsSessionCommand(datagram)) {
        const std::optional<SessionCommand> command = ReadSessionCommand(datagram);
        if (!command) {
            ++dropped;
            return;
        }
        if (command->kind == SessionCommandKind::Invitation) {
            HandleInvitation(now, port, which, received, *command);
            return;
        }
        const bool isAnswer =
            command->kind == SessionCommandKind::Accepted || command->kind == SessionCommandKind::Refused;
        Peer* peer = FindPeer(port, received.from, command->ssrc);
        if (peer == nullptr && isAnswer) {
            peer = FindCalled(port, which, received.from);
        }
        if (peer == nullptr) {
            ++dropped;
            return;
        }
        if (isAnswer && which == RtpPort::Control && !peer->session.IsUp()) {
            peer->control = received.from;
            peer->data = received.from.WithPort(static_cast<std::uint16_t>(received.from.port + 1));
            peer->own = received.own;
        }
        peer->session.HearCommand(now, which, *command);
        Serve(now, *peer);
        return;
    }
    const std::optional<RtpPacket> packet = which == RtpPort::Data ? ReadRtpPacket(datagram) : std::nullopt;
    Peer* peer = packet ? FindPeer(port, received.from, packet->header.ssrc) : nullptr;
    if (peer == nullptr) {
        ++dropped;
        return;
    }
    peer->session.HearPacket(now, *packet);
    Serve(now, *peer);
}

void RtpTransport::HandleInvitation(std::uint64_t now, int port, RtpPort which,
                                    const ReceivedDatagram& received, const SessionCommand& invitation) {
    if (stopping || !rate.Admit(now, received.from)) {
        ++dropped;
        return;
    }
    Peer* peer = FindPeer(port, received.from, invitation.ssrc);
    if (peer == nullptr && which == RtpPort::Control) {
        peer = FindCalled(port, which, received.from);
        peer = peer == nullptr ? TakeStranger(now, port, received, invitation) : peer;
    }
    if (peer == nullptr) {
        return;
    }
    if (which == RtpPort::Data) {
        peer->data = received.from;
    } else if (!peer->session.IsUp()) {
        peer->control = received.from;
        peer->data = received.from.WithPort(static_cast<std::uint16_t>(received.from.port + 1));
        peer->own = received.own;
    }
    peer->session.TakeInvitation(now, which, invitation);
    Serve(now, *peer);
}

// Somebody who is not known calls. Null: it is not let in.
RtpTransport::Peer* RtpTransport::TakeStranger(std::uint64_t now, int port, const ReceivedDatagram& received,
                                               const SessionCommand& invitation) {
    const std::string name =
        IsComputerName(invitation.name) ? std::string(invitation.name) : received.from.Text();
    Computer* computer = ComputerAt(received.from, name);
    const bool isWanted = computer != nullptr && IsWayWanted(*computer, port);
    if (!isWanted && !parts.gate.MayCall(received.from)) {
        ++dropped;
        return nullptr;
    }
    const auto halfOpen = std::count_if(peers.begin(), peers.end(), [](const auto& peer) {
        return peer->computer == 0 && !peer->session.IsUp();
    });
    const bool isRoom =
        peers.size() < kMostSessions && (isWanted || static_cast<std::size_t>(halfOpen) < kMostHalfOpen);
    const WayVerdict verdict = parts.gate.JudgeWay(name, received.from, kSessionPort, port);
    if (!isRoom || (!isWanted && verdict.problem != WayProblem::None)) {
        Refuse(port, received, invitation);
        return nullptr;
    }
    Peer& peer = AddPeer(port);
    peer.name = name;
    if (isWanted && PeerOf(*computer, port) == nullptr) {
        peer.computer = computer->number;
        peer.session.SetWanted(now, true);
    }
    return &peer;
}

void RtpTransport::Refuse(int port, const ReceivedDatagram& received, const SessionCommand& invitation) {
    SessionCommand refusal;
    refusal.kind = SessionCommandKind::Refused;
    refusal.token = invitation.token;
    refusal.ssrc = static_cast<std::uint32_t>(parts.gate.Random());
    const std::size_t size = WriteSessionCommand(refusal, out);
    SocketOf(port, RtpPort::Control)->Send(received.from, received.own, ByteView(out).first(size));
}

void RtpTransport::HandleTimeout(std::uint64_t now) {
    hearingAt = now;
    for (std::size_t place = 0; place < peers.size(); ++place) {
        peers[place]->session.HandleTimeout(now);
        Serve(now, *peers[place]);
    }
    exclusivePollAt = now + LinkWaysIn::kPoll;
    if (waysIn.IsWaiting()) {
        waysIn.Retry(SteadyTime(now));
        // A session has no word for how much it may be sent.
        waysIn.TakePassedOn([](const LinkWaysIn::Way&, std::uint32_t) {});
    }
    SendDelivered(now);
    DropPeers(now);
}

std::optional<std::uint64_t> RtpTransport::PollTimeout(std::uint64_t now) const {
    std::optional<std::uint64_t> first;
    for (const auto& peer : peers) {
        const std::optional<std::uint64_t> due = peer->session.PollTimeout(now);
        first = first && due ? std::min(*first, *due) : first ? first : due;
    }
    if (waysIn.IsWaiting()) {
        first = std::min(first.value_or(~std::uint64_t{0}), exclusivePollAt);
    }
    return first;
}

}  // namespace vexil
