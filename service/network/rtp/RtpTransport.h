// RTP-MIDI sessions with other computers and devices: the second door. Each port of this computer that is
// offered has two UDP ports, 5004 + 2 x its index and the one above. What others call there is heard at the
// input of that port; what the port's output plays to a session invites that session from there, and what
// comes back is heard at the same input.
//
// A session that is wanted is a computer with one port (kSessionPort). A way to another port of it is refused
// here.
//
// It is driven as a Transport with sockets of its own. Nothing is allocated for messages; a peer that comes,
// and the calls of the control thread, allocate.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/engine/Engine.h"
#include "service/engine/RemoteRing.h"
#include "service/network/DatagramRate.h"
#include "service/network/DatagramSocket.h"
#include "service/network/LinkWays.h"
#include "service/network/Transport.h"
#include "service/network/rtp/RtpSession.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// The one port of a session, as ports are numbered inside: 11 for people.
inline constexpr int kSessionPort = 0;

class RtpTransport final : public OwnSocketsTransport {
  public:
    static constexpr std::size_t kMostSessions = 64;
    static constexpr std::size_t kMostHalfOpen = 16;
    // Invitations without an answer: then a peer is silent.
    static constexpr std::uint32_t kCallsUntilSilent = 2;

    // What it works with; all outlive it.
    struct Parts {
        Engine& engine;
        RemoteRing& ring;
        TransportGate& gate;
        // A socket on a UDP port; null when it cannot be opened.
        std::function<std::unique_ptr<DatagramSocket>(std::uint16_t)> open;
        std::uint16_t firstPort = kRtpPort;
    };

    // `name`: of this computer; its sessions are called so, with the number of the port behind it.
    RtpTransport(Parts itsParts, std::string_view name);
    ~RtpTransport() override;
    RtpTransport(const RtpTransport&) = delete;
    RtpTransport& operator=(const RtpTransport&) = delete;

    // The ports (bit p) that others may call and that call others: their sockets are open, those of others
    // are closed, and sessions of those end. False when a socket cannot be opened.
    bool SetOffered(std::uint64_t now, std::uint64_t ports);
    // Those whose sockets are open.
    std::uint64_t Offered() const { return offered; }
    // "HOST 11".
    std::string SessionName(int port) const;

    // Of Transport.
    void SetSteadyLead(std::int64_t nanoseconds) override { steadyLead = nanoseconds; }
    void SetComputer(std::uint64_t now, int number, const LinkTarget& target) override;
    void RemoveComputer(std::uint64_t now, int number) override;
    void OpenWay(std::uint64_t now, int number, int source, int input) override;
    void EndWay(std::uint64_t now, int number, int source, int input) override;
    void JudgeWaysAgain(std::uint64_t now) override;
    void SayBye(std::uint64_t now) override;
    void HandleTimeout(std::uint64_t now) override;
    std::optional<std::uint64_t> PollTimeout(std::uint64_t now) const override;
    void Deliver(const RemoteRing::Delivery& delivery) override;
    void SendDelivered(std::uint64_t now) override;
    bool TakeChanged() override { return std::exchange(changed, false); }
    std::vector<LinkPeerState> States() const override;
    // Of OwnSocketsTransport.
    int EventDescriptor() const override { return events.Number(); }
    void Read(std::uint64_t now) override;

    // Datagrams that were dropped because they came too often, were malformed, or were nobody's.
    std::uint64_t Dropped() const { return dropped; }

  private:
    struct Sockets {
        std::unique_ptr<DatagramSocket> control;
        std::unique_ptr<DatagramSocket> data;
    };
    struct Peer;
    struct Computer;

    bool OpenSockets(int port);
    void CloseSockets(std::uint64_t now, int port);
    DatagramSocket* SocketOf(int port, RtpPort which) const;

    Computer* ComputerOf(int number) const;
    Peer* PeerOf(const Computer& computer, int port) const;
    Peer& AddPeer(int port);
    bool IsWayWanted(const Computer& computer, int port) const;
    void Want(std::uint64_t now, Computer& computer, int port);
    void Unwant(std::uint64_t now, Computer& computer, int port);
    Computer* ComputerAt(const NetworkAddress& control, std::string_view name) const;

    void ReadSocket(std::uint64_t now, int port, RtpPort which);
    void HandleDatagram(std::uint64_t now, int port, RtpPort which, const ReceivedDatagram& received,
                        ByteView datagram);
    void HandleInvitation(std::uint64_t now, int port, RtpPort which, const ReceivedDatagram& received,
                          const SessionCommand& invitation);
    Peer* TakeStranger(std::uint64_t now, int port, const ReceivedDatagram& received,
                       const SessionCommand& invitation);
    void Refuse(int port, const ReceivedDatagram& received, const SessionCommand& invitation);
    Peer* FindPeer(int port, const NetworkAddress& from, std::uint32_t ssrc) const;
    Peer* FindCalled(int port, RtpPort which, const NetworkAddress& from) const;

    void Serve(std::uint64_t now, Peer& peer);
    void TakeEvents(std::uint64_t now, Peer& peer);
    void BecameUp(std::uint64_t now, Peer& peer);
    void Transmit(Peer& peer, const RtpSession::Transmit& transmit);
    void DropPeers(std::uint64_t now);
    bool FlushStaged();
    RtpTaken Pass(const RemoteRing::Delivery& delivery);
    WayVerdict Judge(const Peer& peer) const;
    LinkPeerState StateOf(const Computer& computer) const;
    void AddWaysIn(const Peer& peer, LinkPeerState& state) const;
    std::uint64_t SteadyTime(std::uint64_t now) const {
        return now * 1000 + static_cast<std::uint64_t>(steadyLead);
    }

    const Parts parts;
    const std::string selfName;
    Descriptor events;
    std::int64_t steadyLead = 0;
    std::uint64_t offered = 0;
    std::size_t watched = 0;  // sockets in `events`
    std::array<Sockets, kMaxPorts> sockets;
    std::array<std::unique_ptr<Computer>, kMostComputers> computers;
    std::vector<std::unique_ptr<Peer>> peers;
    StagedSources staged;
    LinkWaysIn waysIn;
    bool changed = false;
    bool stopping = false;
    std::uint64_t hearingAt = 0;        // when what is heard now has come
    std::uint64_t exclusivePollAt = 0;  // when to look again which system exclusive the engine has passed on
    std::uint64_t dropped = 0;
    DatagramRate rate;  // of invitations
    std::array<std::uint8_t, 2048> in{};
    std::array<std::uint8_t, kLongestRtpDatagram> out{};
};

}  // namespace vexil
