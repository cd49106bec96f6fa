// One peer: its association and the sealed sessions that carry it, by any number of addresses. Calls it when
// it is needed, takes its calls, lets two calls that cross end in one session, takes a peer up that has
// restarted, and renews the session once a day.
//
// Datagrams and times go in, datagrams and events come out, as with LinkAssociation, whose events it passes
// on. Whoever owns the socket finds the peer of a datagram by its address, and asks every peer (Claims) where
// the address is a new one.
//
// Times are microseconds. One thread at a time. Nothing is allocated while the association is up, but for
// renewals and calls.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "service/network/CallSchedule.h"
#include "service/network/LinkAssociation.h"
#include "service/network/LinkSealing.h"

namespace vexil {

class LinkPeer {
  public:
    // What it needs from outside.
    class Mediator {
      public:
        virtual ~Mediator() = default;
        // Whether a peer with this key is let in; Refusal::None if so. Asked once for each session.
        virtual Refusal Judge(const KeyHash& key) = 0;
        // A random number.
        virtual std::uint64_t Random() = 0;
    };

    // Both outlive the peer. `name`: of this computer.
    LinkPeer(Mediator& outside, LinkSealing& sealing, std::string_view name);

    // Callers have to prove this secret, and so does this computer when it calls; null: there is none.
    void SetSecret(const std::optional<StretchedSecret>& stretched) { secret = stretched; }

    // Calls the peer at an address, which has answered a query. Nothing happens while it is up or a call is
    // under way.
    void Call(std::uint64_t now, const LinkAddress& address);
    // A call of the peer, as LinkSealing::Listen heard it.
    void TakeCall(std::uint64_t now, std::unique_ptr<SealedSession> session, const LinkAddress& address);

    // Whether a hello that comes again belongs to a session here; it then goes to HandleDatagram, not to
    // Listen.
    bool Claims(ByteView datagram) const;
    // A datagram from an address. False when no session here could read it, and none that begins is with that
    // address.
    bool HandleDatagram(std::uint64_t now, const LinkAddress& address, ByteView datagram);
    void HandleTimeout(std::uint64_t now);

    struct Transmit {
        std::size_t size = 0;
        LinkAddress address{};
    };
    // Writes one datagram; null when there is nothing to send. `out` is kLongestDatagram long.
    std::optional<Transmit> PollTransmit(std::uint64_t now, std::span<std::uint8_t> out);
    std::optional<std::uint64_t> PollTimeout(std::uint64_t now) const;
    std::optional<LinkEvent> PollEvent(std::uint64_t now);

    LinkAssociation& Association() { return association; }
    const LinkAssociation& Association() const { return association; }
    // Of the session that carries the association, or of the last that did; null before the first.
    const std::optional<KeyHash>& Key() const { return key; }
    // Of the session in which the association sends; null while there is no such session. Known as soon as
    // the association is up, Key only when all events are taken.
    std::optional<KeyHash> SessionKey() const;
    // Where that session sends; null while there is no such session.
    std::optional<LinkAddress> SessionAddress() const;
    // Of two peers that are up and are one computer, this one since `upSince`: whether this one stands and
    // the later one goes. Where their calls crossed, over two addresses, both computers choose the same; else
    // the later one stands, for the earlier may be of a computer that has started again.
    bool StandsAgainst(const LinkPeer& later, std::uint64_t upSince) const;
    // Whether the peer is needed though no way leads there: an input listens to it by name. One that is up,
    // was called by this computer, is not needed, and has had no way for 30 s gets a bye.
    void SetNeeded(bool isNeeded) { needed = isNeeded; }
    // When the peer, if it is needed, is to be called.
    CallSchedule& Calls() { return calls; }
    // A call is under way, or the peer is up.
    bool IsBusy() const;

  private:
    static constexpr std::size_t kSessions = 4;

    struct Slot {
        std::uint32_t number = 0;  // 0: free
        std::unique_ptr<SealedSession> session;
        LinkAddress address{};
        std::uint64_t begun = 0;
        bool introduced = false;  // to the association
        std::uint64_t heard = 0;  // when a body came last
    };

    Slot* FreeSlot();
    Slot* Find(std::uint32_t number);
    const Slot* SendingSlot() const;
    void Open(std::uint64_t now, std::unique_ptr<SealedSession> session, const LinkAddress& address);
    void GoOn(std::uint64_t now, Slot& slot);
    void Introduce(std::uint64_t now, Slot& slot);
    void TryRoaming(const Slot& slot, const LinkAddress& address);
    bool IsUsed() const;
    std::optional<std::uint64_t> RenewalDue() const;

    Mediator& mediator;
    LinkSealing& sealing;
    LinkAssociation association;
    std::optional<StretchedSecret> secret;
    std::optional<KeyHash> key;
    CallSchedule calls;
    std::array<Slot, kSessions> slots;
    std::uint32_t nextNumber = 1;
    std::uint32_t carrier = 0;  // session in which the association sends
    std::uint64_t carrierSince = 0;
    bool needed = false;
    std::uint64_t unusedSince = 0;  // up, and nobody needs it; 0: it is needed
    // An address to which the peer may have moved.
    LinkAddress candidate{};
    std::uint64_t candidateToken = 0;
    bool probesCandidate = false;
    std::array<std::uint8_t, kLongestDatagram> body{};
};

}  // namespace vexil
