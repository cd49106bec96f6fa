// The link of this computer: the peers behind one socket, what the engine plays to them, and what they play
// to the engine. Finds the peer of a datagram, calls the computers that are needed, takes calls, and keeps
// one association for each pair of computers.
//
// No thread and no clock of its own. It is driven like LinkPeer: hand in a datagram, say that a time has
// come, take what the engine has delivered, and come back at PollTimeout; what is to be sent goes to the
// socket at once. Whoever drives it holds a lock that the control thread takes for its own calls.
//
// Times are microseconds of CLOCK_BOOTTIME. Nothing is allocated for messages; a peer that comes, and the
// calls of the control thread, allocate.
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

namespace vexil {

// Where a computer may be reached.
struct LinkCandidate {
    NetworkAddress address;  // with the UDP port of the link there
    bool wireless = false;   // by a wireless interface: called a moment later than by wire
    bool operator==(const LinkCandidate&) const = default;
};

// A computer that is to be reached.
struct LinkTarget {
    std::string name;  // as it may announce itself; empty: it is known by its address alone
    std::vector<LinkCandidate> candidates;  // at most kMostCandidates count; empty: it is not found yet
    std::vector<KeyHash> pinned;            // its keys; empty: whoever answers is taken
    bool needed = false;                    // to be called although no way leads there
    bool operator==(const LinkTarget&) const = default;
};

// How things stand with a peer, for whoever tells the user.
struct LinkPeerState {
    enum class Kind : std::uint8_t {
        Searching,
        Calling,
        Up,
        Lost,     // it is no longer heard
        Unheard,  // it no longer hears this computer
        Ended,
        Refused,
    };

    int computer = 0;      // its number; 0: nobody here has asked for it
    std::string peerName;  // as it says; empty: not known
    Kind kind = Kind::Searching;
    Refusal refusal = Refusal::None;     // Refused
    bool refusedThere = false;           // by the other computer
    bool silent = false;                 // Calling: it has had the time to answer
    std::uint64_t since = 0;             // Up and the states behind it: since when
    NetworkAddress address;              // Up: where it is; else where it was called last
    std::optional<KeyHash> key;          // Up
    std::optional<ComputerId> answered;  // who answered where the computer was looked for last
    LinkCounters counters;               // Up
    std::vector<LinkWayOut> waysOut;
    std::vector<LinkWayIn> waysIn;
};

class LinkTransport {
  public:
    static constexpr int kMostComputers = 32;
    static constexpr std::size_t kMostAssociations = 32;
    static constexpr std::size_t kMostHalfOpen = 16;
    static constexpr std::size_t kMostCandidates = 6;

    // Who may come in, and what the inputs listen to. Asked on the thread that drives the transport.
    class Gate {
      public:
        virtual ~Gate() = default;
        // Whether anything that an address sends is answered.
        virtual bool MayCall(const NetworkAddress& from) = 0;
        // Whether a computer with this key and name is let in; the name is empty as long as it is not known.
        virtual Refusal Judge(const KeyHash& key, std::string_view name) = 0;
        // Whether what a source of a peer plays is heard at an input.
        virtual WayVerdict JudgeWay(std::string_view name, const NetworkAddress& from, int source,
                                    int input) = 0;
        virtual std::uint64_t Random() = 0;
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
    ~LinkTransport();
    LinkTransport(const LinkTransport&) = delete;
    LinkTransport& operator=(const LinkTransport&) = delete;

    // The steady clock is so far ahead of CLOCK_BOOTTIME, nanoseconds; negative after a sleep.
    void SetSteadyLead(std::int64_t nanoseconds) { steadyLead = nanoseconds; }

    // What this computer wants.

    // The computer of a number from 1 to kMostComputers. The same again is nothing new.
    void SetComputer(std::uint64_t now, int number, const LinkTarget& target);
    void RemoveComputer(std::uint64_t now, int number);
    // There is a new reason to hope that it answers; that those do which may be at an address.
    void CallSoon(std::uint64_t now, int number);
    void CallSoonAt(std::uint64_t now, const NetworkAddress& address);
    // A way from a source here (0 to 127) to an input of a computer.
    void OpenWay(std::uint64_t now, int number, int source, int input);
    void EndWay(std::uint64_t now, int number, int source, int input);
    // Callers have to prove this secret; null: none is needed. Holds for calls that begin from now on.
    void SetSecret(const std::optional<StretchedSecret>& stretched);
    // What comes by these interfaces is played a while later, which evens out its jitter (JitterBuffer).
    void SetBuffered(std::vector<std::uint32_t> interfaces) { buffered = std::move(interfaces); }
    // What the gate says of computers has changed: those that it no longer lets in get a bye, those that were
    // refused are called again.
    void JudgePeersAgain(std::uint64_t now);
    // What the gate says of ways has changed: ways that it no longer admits end, others begin.
    void JudgeWaysAgain(std::uint64_t now);
    // Says bye to every peer, calls nobody and takes no call any more.
    void SayBye(std::uint64_t now);

    // Driving it.

    // A sealed datagram, or an answer to a query of its own: other plain ones are passed over.
    void HandleDatagram(std::uint64_t now, const ReceivedDatagram& received, ByteView datagram);
    void HandleTimeout(std::uint64_t now);
    // Sends what the engine has delivered to the ring.
    void SendDeliveries(std::uint64_t now);
    // When HandleTimeout is to be called; null: not before something happens.
    std::optional<std::uint64_t> PollTimeout(std::uint64_t now) const;

    // Whether anything of States has changed since the last call that would be told to a user.
    bool TakeChanged() { return std::exchange(changed, false); }
    // Computers in the order of their numbers, then peers that nobody here has asked for.
    std::vector<LinkPeerState> States() const;
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
    DatagramRate rate;                  // of calls
    std::uint64_t second = 0;           // when the present one began
    std::uint32_t triedThisSecond = 0;  // datagrams from unknown addresses
    std::array<std::uint8_t, kLongestDatagram> out{};
};

}  // namespace vexil
