// The link of this computer: the peers behind one socket, what the engine plays to them, and what they play
// to the engine. Finds the peer of a datagram, calls the computers that are needed, takes calls, and keeps
// one association for each pair of computers.
//
// It is driven as a Transport. Nothing is allocated for messages; a peer that comes, and the calls of the
// control thread, allocate.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "service/engine/Engine.h"
#include "service/engine/RemoteRing.h"
#include "service/network/CallSchedule.h"
#include "service/network/DatagramRate.h"
#include "service/network/DatagramSocket.h"
#include "service/network/LinkPeer.h"
#include "service/network/LinkWays.h"
#include "service/network/PlainDatagram.h"
#include "service/network/Transport.h"

namespace vexil {

class LinkTransport final : public Transport {
  public:
    static constexpr std::size_t kMostAssociations = 32;
    static constexpr std::size_t kMostHalfOpen = 16;
    static constexpr std::size_t kMostCandidates = 6;

    class Gate : public TransportGate {
      public:
        // Whether a computer with this key and name is let in; the name is empty as long as it is not known.
        virtual Refusal Judge(const KeyHash& key, std::string_view name) = 0;
    };

    // What it works with; all outlive it.
    struct Parts {
        Engine& engine;
        RemoteRing& ring;  // what the engine delivers to other computers
        DatagramSocket& socket;
        LinkSealing& sealing;
        Gate& gate;
    };

    // `id` and `name`: of this computer.
    LinkTransport(const Parts& itsParts, const ComputerId& id, std::string_view name);
    ~LinkTransport() override;
    LinkTransport(const LinkTransport&) = delete;
    LinkTransport& operator=(const LinkTransport&) = delete;

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
    void SendDelivered(std::uint64_t now) override { SendDirty(now); }
    bool TakeChanged() override { return std::exchange(changed, false); }
    std::vector<LinkPeerState> States() const override;

    // What this computer wants besides.

    // There is a new reason to hope that it answers; that those do which may be at an address.
    void CallSoon(std::uint64_t now, int number);
    void CallSoonAt(std::uint64_t now, const NetworkAddress& address);
    // Callers have to prove this secret; null: none is needed. Holds for calls that begin from now on.
    void SetSecret(const std::optional<StretchedSecret>& stretched);
    // What comes by these interfaces is played a while later, which evens out its jitter (JitterBuffer).
    void SetBuffered(std::vector<std::uint32_t> interfaces) { buffered = std::move(interfaces); }
    // What the gate says of computers has changed: those that it no longer lets in get a bye, those that were
    // refused are called again.
    void JudgePeersAgain(std::uint64_t now);

    // A sealed datagram, or an answer to a query of its own: other plain ones are passed over.
    void HandleDatagram(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram);

    // Datagrams that were dropped because they came too often, were malformed, or were nobody's.
    std::uint64_t Dropped() const { return dropped; }
    std::size_t UpCount() const;

  private:
    struct Peer;
    struct Computer;

    Computer* ComputerOf(int number);
    const Computer* ComputerOf(int number) const;
    bool IsWanted(const Computer& computer) const;
    bool IsOfAnother(const Computer& computer, const ComputerId& id) const;
    Peer& AddPeer(int number);
    Peer* FindPeer(const NetworkAddress& address);
    Peer* PeerOf(const Computer& computer);
    const Peer* PeerOf(const Computer& computer) const;

    void HandlePlain(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram);
    void TakeAnswer(std::uint64_t now, Computer& computer, const ReceivedDatagram& received,
                    const PlainDatagram& answer);
    void HandleCall(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram);
    void HandleSealed(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram);
    void SendQueries(std::uint64_t now, Computer& computer, bool wireless);

    // Takes what has happened to a peer, and sends what it has to say.
    void Serve(std::uint64_t now, Peer& peer);
    void TakeEvents(std::uint64_t now, Peer& peer);
    void HandleEvent(std::uint64_t now, Peer& peer, const LinkEvent& event);
    void BecameUp(std::uint64_t now, Peer& peer);
    void Bind(std::uint64_t now, Peer& peer, Computer& computer);
    void GiveWay(std::uint64_t now, Peer& peer, Peer& toPeer);
    Computer* ComputerFor(const Peer& peer);
    void MakeRoom(std::uint64_t now, Peer& peer);
    void GoneDown(std::uint64_t now, Peer& peer, const LinkEvent& event);
    void DropPeers(std::uint64_t now);
    Refusal Judge(const Peer& peer, const KeyHash& key);
    void ChooseBuffer(Peer& peer, std::uint32_t interface) const;

    void TakeWayState(const Peer& peer, const LinkEvent& event);
    void SendDirty(std::uint64_t now);
    void FlushStaged(std::uint64_t now);
    WayResult Pass(const RemoteRing::Delivery& delivery);
    std::uint64_t SteadyTime(std::uint64_t now) const {
        return now * 1000 + static_cast<std::uint64_t>(steadyLead);
    }

    const Parts parts;
    const ComputerId selfId;
    const std::string selfName;
    std::optional<StretchedSecret> secret;
    std::int64_t steadyLead = 0;
    std::array<std::unique_ptr<Computer>, kMostComputers> computers;
    std::vector<std::unique_ptr<Peer>> peers;
    std::vector<std::uint32_t> buffered;
    StagedSources staged;
    LinkWaysIn waysIn;
    bool changed = false;
    bool stopping = false;
    std::uint64_t dropped = 0;
    std::uint64_t exclusivePollAt = 0;  // when to look again which of it the engine has passed on
    DatagramRate rate;                  // of calls
    std::uint64_t second = 0;           // when the present one began
    std::uint32_t triedThisSecond = 0;  // datagrams from unknown addresses
    std::array<std::uint8_t, kLongestDatagram> out{};
};

}  // namespace vexil
