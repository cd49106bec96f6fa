// One session of RTP-MIDI between a port of this computer and a port of another: calls it, takes its call,
// keeps time, sends what the port plays with a journal for what may be lost, and hands on what the peer
// plays, put right where packets were lost.
//
// Datagrams and times go in, datagrams and events come out: hand in what has arrived (Take..., Hear...), come
// back at PollTimeout (HandleTimeout), send what there is (PollTransmit, until it gives nothing), take what
// has happened (PollEvent, until it gives nothing). Whoever owns the sockets finds the session of a datagram
// by its SSRC and address, decides who may call, and answers those who may not.
//
// The session lasts over any number of connections: as long as it is wanted it is called again.
//
// Times are microseconds. One thread at a time. Nothing is allocated once it is made, but for the peer's
// name.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "service/engine/ByteRing.h"
#include "service/engine/MidiParser.h"
#include "service/engine/NoteTracker.h"
#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "service/network/rtp/RtpClock.h"
#include "service/network/rtp/RtpCodec.h"

namespace vexil {

// The port of the peer, or of this computer, by which a datagram goes.
enum class RtpPort : std::uint8_t { Control, Data };

struct RtpEvent {
    enum class Kind : std::uint8_t {
        Up,       // both may play
        Ended,    // the peer has said so
        Lost,     // it is no longer heard
        Refused,  // it does not take this computer's call
    };
    Kind kind = Kind::Up;
};

struct RtpCounters {
    std::uint64_t missing = 0;       // packets of the peer that did not come in time
    std::uint64_t late = 0;          // packets that came behind a newer one, or twice; left out
    std::uint64_t malformed = 0;     // datagrams, lists and journals
    std::uint64_t cutExclusive = 0;  // system exclusive messages of the peer that lost a part
};

enum class RtpTaken : std::uint8_t {
    Taken,
    NotUp,   // there is no connection; dropped
    NoRoom,  // keep it
};

class RtpSession : private RepairListener {
  public:
    static constexpr std::uint64_t kSecond = 1'000'000;
    // An invitation is sent again every second so often, then every 2 s.
    static constexpr std::uint32_t kQuickCalls = 12;
    static constexpr std::uint64_t kAfterRefusal = 30 * kSecond;
    // Somebody who has called on the control port has so long for the data port.
    static constexpr std::uint64_t kJoinWithin = 10 * kSecond;
    // Bytes of system exclusive a second: about six cables, and what devices with small buffers take.
    static constexpr std::uint32_t kExclusiveRate = 20'000;

    class Mediator {
      public:
        virtual ~Mediator() = default;
        // What the peer plays: a message, or a piece of system exclusive.
        virtual void Hear(const MidiPiece& piece) = 0;
        virtual std::uint64_t Random() = 0;
    };

    // `outside` outlives it. `name`: of this computer's side, as the peer shows it.
    RtpSession(Mediator& outside, std::string_view name);

    // This computer wants the session: it is called until it is up, and again when it has gone. No longer: a
    // call that is under way ends; a connection stays.
    void SetWanted(std::uint64_t now, bool wanted);
    bool IsWanted() const { return wanted; }
    // There is a new reason to hope: the next invitation goes now.
    void CallSoon(std::uint64_t now);
    void SayBye(std::uint64_t now);

    bool IsUp() const { return up; }
    // A call of this computer or of the peer is under way, or it is up.
    bool IsBusy() const { return up || calling != Calling::No || answered; }
    bool IsRefused() const { return refused; }
    // Invitations since it was wanted or lost.
    std::uint32_t Calls() const { return calls; }
    std::uint32_t OwnSsrc() const { return ssrc; }
    // Null as long as the peer has not answered.
    std::optional<std::uint32_t> PeerSsrc() const { return peerSsrc; }
    // As it says, any bytes; empty when it has not said.
    const std::string& PeerName() const { return peerName; }
    const RtpCounters& Counters() const { return counters; }
    const RtpClock& Clock() const { return clock; }

    // An invitation that may come in, of the peer that is up, or of where this computer calls or nobody is.
    // One that is up and calls anew on both ports has restarted.
    void TakeInvitation(std::uint64_t now, RtpPort port, const SessionCommand& invitation);
    // Any other command of the peer.
    void HearCommand(std::uint64_t now, RtpPort port, const SessionCommand& command);
    // A packet of the peer.
    void HearPacket(std::uint64_t now, const RtpPacket& packet);

    // One whole message, or one piece of system exclusive of at most kLongestPiece bytes, of a source of this
    // computer, to leave at `due`. A message of one source does not stand inside an exclusive of another.
    RtpTaken Send(std::uint64_t due, int source, const MidiPiece& piece);
    // Nothing more comes of a source: its system exclusive that is under way, if any, ends.
    void EndSource(int source);

    void HandleTimeout(std::uint64_t now);
    // Null: not before something happens.
    std::optional<std::uint64_t> PollTimeout(std::uint64_t now) const;

    struct Transmit {
        std::size_t size = 0;
        RtpPort port = RtpPort::Control;
        bool invites = false;  // it is an invitation on the control port: to wherever the peer may be
    };
    // Writes one datagram; `out` is kLongestRtpDatagram long.
    std::optional<Transmit> PollTransmit(std::uint64_t now, std::span<std::uint8_t> out);
    std::optional<RtpEvent> PollEvent();

  private:
    enum class Calling : std::uint8_t { No, Control, Data };
    struct Pending {
        SessionCommand command;
        RtpPort port = RtpPort::Control;
    };
    struct Head {
        std::uint64_t due = 0;
        bool exclusive = false;
        bool first = false;
        bool last = false;
    };

    void BeginCalling(std::uint64_t now);
    void BecomeUp(std::uint64_t now, bool hasCalled);
    void End(std::uint64_t now, RtpEvent::Kind why);
    void Report(RtpEvent::Kind kind);
    void Put(RtpPort port, const SessionCommand& command);
    void PutAnswer(RtpPort port, SessionCommandKind kind, std::uint32_t itsToken);
    void Invite(std::uint64_t now);

    void HearAccepted(std::uint64_t now, RtpPort port, const SessionCommand& command);
    void HearRefused(std::uint64_t now, const SessionCommand& command);
    void Hear(const MidiPiece& piece);
    void EndExclusive();
    void Repair(ByteView message) override;
    void NoteFeedback(std::uint64_t now, bool soon);

    void NoteSounding();
    bool TakeFront();
    bool AddMessage(std::uint64_t now, ByteView message, RtpPacketWriter& writer);
    bool AddFront(std::uint64_t now, RtpPacketWriter& writer);
    bool AddExclusive(std::uint64_t now, RtpPacketWriter& writer);
    bool IsPacketDue(std::uint64_t now) const;
    std::uint64_t FrontTime() const;
    std::size_t WritePacket(std::uint64_t now, std::span<std::uint8_t> out);

    static constexpr std::size_t kQueueBytes = std::size_t{32} << 10;
    static constexpr std::size_t kMostPending = 16;

    Mediator& mediator;
    const std::string name;

    // The connection, and the call that leads to one.
    bool wanted = false;
    bool up = false;
    bool answered = false;  // the peer's invitation on the control port
    bool rejoins = false;   // up, and the peer has called anew on the control port
    bool refused = false;
    Calling calling = Calling::No;
    std::uint32_t ssrc = 0;
    std::uint32_t token = 0;      // of this computer's call
    std::uint32_t peerToken = 0;  // of the peer's call, on the control port
    std::optional<std::uint32_t> peerSsrc;
    std::string peerName;
    std::uint32_t calls = 0;
    std::uint32_t dataCalls = 0;
    std::uint64_t nextCall = 0;
    std::uint64_t answeredAt = 0;
    bool calledData = false;  // this computer's invitation on the data port may still be answered
    RtpClock clock;

    // What goes out.
    std::array<Pending, kMostPending> pending;
    std::size_t pendingCount = 0;
    ByteRing<Head> queue{kQueueBytes};
    std::optional<Head> front;
    std::span<const std::uint8_t> frontBytes;
    ExclusiveOutput exclusiveOut;
    std::optional<ExclusiveSegment> segment;
    bool isFrontCut = false;  // the front is in exclusiveOut
    std::array<std::uint8_t, 64> realtime{};
    std::size_t realtimeCount = 0;
    std::uint32_t exclusiveQueued = 0;  // pieces
    int exclusiveSource = -1;
    std::uint64_t lastDue = 0;
    std::uint64_t exclusiveAt = 0;  // when the next segment may leave
    std::uint32_t exclusiveRate = kExclusiveRate;
    JournalSender journalOut{0};
    bool guarding = false;  // packets without commands follow
    std::uint32_t guards = 0;
    std::uint64_t guardAt = 0;
    NoteTracker sent;

    // What comes in.
    JournalReceiver journalIn;
    std::uint64_t feedbackAt = 0;  // 0: none is due
    std::uint64_t lastFeedback = 0;
    ExclusiveInput exclusiveIn;
    NoteTracker heard;

    std::array<RtpEvent, 8> events{};
    std::size_t eventCount = 0;
    RtpCounters counters;
};

}  // namespace vexil
