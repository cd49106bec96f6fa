// Seam: a door of this computer to others. It reaches the computers that are wanted, hands them what the
// engine plays to them, hands the engine what they play, and tells how things stand.
//
// A door has no thread and no clock of its own: hand in what has arrived, as the door at hand has it, say
// that a time has come, hand over what the engine has delivered, and come back at PollTimeout. What is to be
// sent goes to the socket at once. Whoever drives it holds a lock that the control thread takes for its own
// calls.
//
// Times are microseconds of CLOCK_BOOTTIME.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/engine/RemoteRing.h"
#include "service/network/LinkPeer.h"
#include "service/network/LinkWays.h"
#include "service/network/NetworkAddress.h"
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

    int computer = 0;        // its number; 0: nobody here has asked for it
    bool isSession = false;  // an RTP-MIDI session, which has one port and no key
    std::string peerName;    // as it says; empty: not known
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

// Who may come in by any door, and what the inputs listen to. Asked on the thread that drives the door.
class TransportGate {
  public:
    virtual ~TransportGate() = default;
    // Whether anything that an address sends is answered.
    virtual bool MayCall(const NetworkAddress& from) = 0;
    // Whether what a source of a peer plays is heard at an input.
    virtual WayVerdict JudgeWay(std::string_view name, const NetworkAddress& from, int source, int input) = 0;
    // A random number that nobody can foresee.
    virtual std::uint64_t Random() = 0;
};

class Transport {
  public:
    // Computers are numbered from 1 to this, over all doors.
    static constexpr int kMostComputers = 32;

    virtual ~Transport() = default;

    // The steady clock is so far ahead of CLOCK_BOOTTIME, nanoseconds; negative after a sleep.
    virtual void SetSteadyLead(std::int64_t nanoseconds) = 0;

    // What this computer wants.

    // The computer of a number is to be reached by this door. The same again is nothing new.
    virtual void SetComputer(std::uint64_t now, int number, const LinkTarget& target) = 0;
    virtual void RemoveComputer(std::uint64_t now, int number) = 0;
    // A way from a source here (0 to 127) to an input of a computer.
    virtual void OpenWay(std::uint64_t now, int number, int source, int input) = 0;
    virtual void EndWay(std::uint64_t now, int number, int source, int input) = 0;
    // What inputs listen to has changed: ways that are no longer admitted end, others begin.
    virtual void JudgeWaysAgain(std::uint64_t now) = 0;
    // Says bye to every peer, calls nobody and takes no call any more.
    virtual void SayBye(std::uint64_t now) = 0;

    // Driving it.

    virtual void HandleTimeout(std::uint64_t now) = 0;
    // When HandleTimeout is to be called, which it is not before: a time that stays while nothing happens;
    // null: not before something happens.
    virtual std::optional<std::uint64_t> PollTimeout(std::uint64_t now) const = 0;
    // What the engine has delivered to a computer of this door. The door tells the ring when it has gone on
    // its way. SendDelivered is called behind the last of those that came together.
    virtual void Deliver(const RemoteRing::Delivery& delivery) = 0;
    virtual void SendDelivered(std::uint64_t now) = 0;

    // Whether anything of States has changed since the last call that would be told to a user.
    virtual bool TakeChanged() = 0;
    // Computers in the order of their numbers, then peers that nobody here has asked for.
    virtual std::vector<LinkPeerState> States() const = 0;
};

// A door that has sockets of its own.
class OwnSocketsTransport : public Transport {
  public:
    // Readable when Read is to be called; the same one for as long as this object lives.
    virtual int EventDescriptor() const = 0;
    // Takes all datagrams that have arrived.
    virtual void Read(std::uint64_t now) = 0;
};

}  // namespace vexil
