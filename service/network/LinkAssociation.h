// Everything between this computer and one peer inside the sealing: the hello, the ways of both directions,
// what is sent again and acknowledged, and the life from the first hello to the loss or the bye. It knows
// neither sockets nor a clock nor how datagrams are sealed: bodies and times go in, bodies and events come
// out.
//
// It is driven from outside: hand in a body that has arrived (HandleBody), say that a time has come
// (HandleTimeout), send what there is (PollTransmit, until it gives nothing), come back at PollTimeout, and
// take what has happened (PollEvent, until it gives nothing) after each of the first three. A caller that
// reads a socket empties it before HandleTimeout: whether a peer is lost is decided there.
//
// Sessions. A session is one sealed channel to the peer; LinkSealing makes it, and each has a number here.
// The first that begins makes the association. A later one either renews it (ways and numbers go on) or
// begins another, in which case everything of the old one ends first.
//
// Times are microseconds of a clock that never goes back and runs on while the computer sleeps. One thread at
// a time; nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "service/network/FullDatagrams.h"
#include "service/network/LinkCodec.h"
#include "service/network/LinkGreeting.h"
#include "service/network/LinkTimes.h"
#include "service/network/PeerClock.h"
#include "service/network/WaysIn.h"
#include "service/network/WaysOut.h"

namespace vexil {

struct LinkEvent {
    enum class Kind : std::uint8_t {
        Up,             // an association has begun: every way begins anew
        Lost,           // nothing valid came for 2 s; the peer gets a bye, for it may hear us
        Ended,          // the peer said bye
        Refused,        // the peer is not let in: `bye` says why; or it does not let us in (`byPeer`)
        SessionOver,    // `session` is no longer used
        WayOpened,      // the peer opens (source, input); answer with AnswerWay
        WayEnded,       // nothing more comes on it; what it left sounding is to be released
        Message,        // a whole message on an open way
        Piece,          // a piece of system exclusive on an open way; say PiecesPassedOn when it is
        WayState,       // what the peer says of a way of ours
        NameChanged,    // see PeerName
        ProbeAnswered,  // with the token of BuildProbe
    };

    Kind kind = Kind::Up;
    std::uint8_t source = 0;
    std::uint8_t input = 0;
    bool first = true;  // Piece
    bool last = true;
    bool byPeer = false;                    // Refused
    WayProblem problem = WayProblem::None;  // WayState
    Bye bye;                                // Ended, Refused
    std::uint32_t session = 0;              // SessionOver, Refused
    std::uint64_t token = 0;                // ProbeAnswered
    std::uint64_t due = 0;  // Message, Piece: when it was due there, in our microseconds, as if the
                            // quickest datagrams of late took no time
    ByteView bytes;         // Message, Piece; until the next call
};

struct LinkCounters {
    std::uint64_t malformed = 0;    // bodies, dropped whole
    std::uint64_t duplicates = 0;   // records that had come before
    std::uint64_t tooFarAhead = 0;  // records, dropped
    std::uint64_t outsideWays = 0;  // messages, left out
    std::uint64_t late = 0;         // note-ons, left out
    std::uint64_t lost = 0;         // messages of ours for which there was no room
    std::uint64_t cutWays = 0;      // ways that ended so
    std::uint64_t repeated = 0;     // records that were sent more than once
    std::uint64_t roundTrip = 0;    // smoothed, microseconds; 0: not known yet
};

class LinkAssociation {
  public:
    // `name`: of this computer, as announced; one that IsComputerName refuses is a bug.
    explicit LinkAssociation(std::string_view name);

    // A sealed session to the peer is there. See LinkGreeting for `start`.
    void BeginSession(std::uint64_t now, const SessionStart& start);
    // A sealed session is gone, or is to be used no longer.
    void EndSession(std::uint32_t session);

    // A body that came in a session. False when it was dropped whole.
    bool HandleBody(std::uint64_t now, std::uint32_t session, ByteView body);
    void HandleTimeout(std::uint64_t now);

    struct Transmit {
        std::size_t size = 0;  // of the body
        std::uint32_t session = 0;
    };
    // Writes one body that is to be sent now, at most as long as `out` and the limit; null when there is
    // nothing.
    std::optional<Transmit> PollTransmit(std::uint64_t now, std::span<std::uint8_t> out);
    // When something is to be done though nothing comes; null when never.
    std::optional<std::uint64_t> PollTimeout() const;
    std::optional<LinkEvent> PollEvent(std::uint64_t now);

    bool IsUp() const { return up; }
    // Of the association; 0 without an association. A caller renews it by beginning a session with it.
    std::uint64_t Number() const { return up ? number : 0; }
    // In which bodies are sent; 0: no session.
    std::uint32_t Session() const { return current.start.session; }
    // As the peer said last.
    std::string_view PeerName() const { return peerName; }
    LinkCounters Counters() const;

    // Ways out; see WaysOut. They may be opened at any time.
    void OpenWay(std::uint64_t now, std::uint8_t source, std::uint8_t input) { out.Open(now, source, input); }
    void EndWay(std::uint64_t now, std::uint8_t source, std::uint8_t input) { out.End(now, source, input); }
    WayResult Send(std::uint64_t due, std::uint8_t source, std::uint8_t input, const MidiPiece& piece) {
        return out.Send(due, source, input, piece);
    }
    std::size_t PieceRoom(std::uint8_t source, std::uint8_t input) const {
        return out.PieceRoom(source, input);
    }

    // Whether a way of either direction is there.
    bool HasWays() const { return out.IsAnyWanted() || in.Order().IsAnyOpen(); }

    // Ways in; see WaysIn.
    void AnswerWay(std::uint8_t source, std::uint8_t input, WayProblem problem) {
        in.Answer(source, input, problem);
    }
    void PiecesPassedOn(std::uint8_t source, std::uint8_t input, std::size_t bytes) {
        in.PiecesPassedOn(source, input, bytes);
    }

    // Whether the peer is to be told that this computer lives. Early: also if it could wait a little, so that
    // all peers are told in one wake-up.
    bool IsAliveDue(std::uint64_t now) const { return up && now - lastSent >= AliveInterval(); }
    void SayAliveEarly(std::uint64_t now) { aliveDue = aliveDue || (up && now - lastSent >= kEarlyAlive); }

    // Ends the association, saying why; the bye goes three times.
    void SayBye(const Bye& bye);
    // This computer has another name.
    void SetName(std::string_view name);
    // From now on only small datagrams are sent. It comes to that by itself where full ones vanish.
    void SendOnlySmall() { onlySmall = true; }
    // Whether the peer is heard or reached by a wireless network: repeats then go sooner.
    void SetWireless(bool isWireless) {
        out.Window().SetRepeatTimes(isWireless ? kSoonerRepeatTimes : kRepeatTimes);
    }
    // A body that asks for an answer, for whoever sends it to an address that is to be tried. Only while up.
    std::size_t BuildProbe(std::uint64_t now, std::uint64_t token, std::span<std::uint8_t> body);

  private:
    enum class Closing : std::uint8_t { No, Lost, Ended, Replaced };

    void HandleHello(std::uint64_t now, LinkGreeting& greeting, const Hello& hello);
    void Agree(std::uint64_t now, LinkGreeting& greeting);
    void HandleBye(const LinkGreeting& greeting, const Bye& bye);
    void HandleFrame(std::uint64_t now, const BodyReader& body, const Frame& frame);
    void HandleRecords(std::uint64_t now, const BodyHeader& header, ByteView content);
    void Refuse(const LinkGreeting& greeting, Refusal refusal);
    void Begin(std::uint64_t now);
    void Close(Closing why);
    void CloseWithBye(Closing why, const Bye& ours);
    void FinishClosing(std::uint64_t now);
    void Report(const LinkEvent& event);
    LinkGreeting* Find(std::uint32_t session);

    std::uint64_t AliveInterval() const {
        return current.start.role == SessionRole::Caller ? kAliveInterval : kCalledAliveInterval;
    }
    BodyHeader HeaderAt(std::uint64_t now) const;
    std::optional<Transmit> TransmitBye(std::uint64_t now, std::span<std::uint8_t> out);
    std::optional<Transmit> TransmitHello(std::uint64_t now, std::span<std::uint8_t> out);
    bool HasToSend(std::uint64_t now) const;
    std::size_t BodyLimit() const;
    void PushStates(std::uint64_t now);
    std::optional<LinkEvent> EventOf(std::uint64_t now, const OrderedRecord& record);

    std::string ownName;
    std::string peerName;
    bool nameUntold = false;
    std::uint16_t nameNumber = 0;

    LinkGreeting current;        // in which we send
    LinkGreeting coming;         // that is to take its place
    std::uint32_t previous = 0;  // session of which the peer's last bodies are still read; 0: no session
    std::uint64_t previousUntil = 0;

    bool up = false;
    Closing closing = Closing::No;
    Bye closedBy;
    bool closedHere = false;  // by our own bye
    std::uint64_t number = 0;

    WaysOut out;
    WaysIn in;
    PeerClock clock;
    FullDatagrams full;
    bool onlySmall = false;

    std::uint64_t lastHeard = 0;
    std::uint64_t lastSent = 0;
    std::uint64_t ackDue = 0;    // 0: nothing to acknowledge
    std::uint64_t probeDue = 0;  // while nothing is heard; 0: not yet
    bool aliveDue = false;       // the peer is told that we live, with the next body
    std::optional<std::uint64_t> probeToAnswer;

    Bye bye;
    std::uint32_t byeSession = 0;
    int byesLeft = 0;

    static constexpr std::size_t kEvents = 16;
    std::array<LinkEvent, kEvents> events;
    std::size_t eventCount = 0;
    std::size_t eventAt = 0;
    std::uint64_t malformed = 0;
    std::uint64_t duplicates = 0;
    std::uint64_t late = 0;
};

}  // namespace vexil
