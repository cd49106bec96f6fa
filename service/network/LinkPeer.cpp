#include "service/network/LinkPeer.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::uint64_t kCallLife = 3'000'000;
constexpr std::uint64_t kUnusedFor = 30'000'000;
constexpr std::uint64_t kHour = std::uint64_t{3600} * 1'000'000;
constexpr std::uint64_t kRenewalAfter = 24 * kHour;
constexpr std::uint64_t kPatience = kHour;

}  // namespace

LinkPeer::LinkPeer(Mediator& outside, LinkSealing& itsSealing, std::string_view name)
    : mediator(outside), sealing(itsSealing), association(name) {}

bool LinkPeer::IsBusy() const {
    return association.IsUp() || std::any_of(slots.begin(), slots.end(), [](const Slot& slot) {
               return slot.number != 0 && slot.session->Role() == SessionRole::Caller;
           });
}

LinkPeer::Slot* LinkPeer::FreeSlot() {
    const auto free =
        std::find_if(slots.begin(), slots.end(), [](const Slot& slot) { return slot.number == 0; });
    return free == slots.end() ? nullptr : &*free;
}

LinkPeer::Slot* LinkPeer::Find(std::uint32_t number) {
    const auto found = std::find_if(slots.begin(), slots.end(),
                                    [number](const Slot& slot) { return slot.number == number; });
    return number == 0 || found == slots.end() ? nullptr : &*found;
}

const LinkPeer::Slot* LinkPeer::SendingSlot() const {
    const auto found = std::find_if(slots.begin(), slots.end(), [this](const Slot& slot) {
        return slot.number != 0 && slot.number == association.Session();
    });
    return found == slots.end() ? nullptr : &*found;
}

std::optional<KeyHash> LinkPeer::SessionKey() const {
    const Slot* slot = SendingSlot();
    return slot == nullptr ? std::nullopt : std::optional(slot->session->PeerKey());
}

std::optional<LinkAddress> LinkPeer::SessionAddress() const {
    const Slot* slot = SendingSlot();
    return slot == nullptr ? std::nullopt : std::optional(slot->address);
}

void LinkPeer::Open(std::uint64_t now, std::unique_ptr<SealedSession> session, const LinkAddress& address) {
    Slot* slot = FreeSlot();
    if (slot == nullptr || !session) {
        return;
    }
    *slot = Slot();
    slot->number = nextNumber++;
    slot->session = std::move(session);
    slot->address = address;
    slot->begun = now;
    GoOn(now, *slot);
}

void LinkPeer::Call(std::uint64_t now, const LinkAddress& address) {
    if (!IsBusy()) {
        calls.Called(now);
        Open(now, sealing.Call(), address);
    }
}

void LinkPeer::TakeCall(std::uint64_t now, std::unique_ptr<SealedSession> session,
                        const LinkAddress& address) {
    // Of two calls that cross, the one with the smaller client random stands: at the other end, too.
    for (Slot& slot : slots) {
        if (slot.number == 0 || slot.session->Role() != SessionRole::Caller ||
            slot.session->CurrentState() != SealedSession::State::Handshaking) {
            continue;
        }
        if (slot.session->ClientRandom() < session->ClientRandom()) {
            return;
        }
        slot = Slot();
    }
    Open(now, std::move(session), address);
}

bool LinkPeer::StandsAgainst(const LinkPeer& later, std::uint64_t upSince) const {
    const Slot* own = SendingSlot();
    const Slot* other = later.SendingSlot();
    const bool haveCrossed = own != nullptr && other != nullptr &&
                             own->session->Role() != other->session->Role() && other->begun < upSince;
    return haveCrossed && own->session->ClientRandom() < other->session->ClientRandom();
}

bool LinkPeer::Claims(ByteView datagram) const {
    return std::any_of(slots.begin(), slots.end(), [datagram](const Slot& slot) {
        return slot.number != 0 && LinkSealing::IsCallOf(datagram, *slot.session);
    });
}

void LinkPeer::GoOn(std::uint64_t now, Slot& slot) {
    if (slot.session->CurrentState() == SealedSession::State::Failed) {
        association.EndSession(slot.number);
        slot = Slot();
        return;
    }
    if (slot.session->CurrentState() != SealedSession::State::Ready || slot.introduced) {
        return;
    }
    slot.introduced = true;
    Introduce(now, slot);
}

void LinkPeer::Introduce(std::uint64_t now, Slot& slot) {
    const SealedSession& session = *slot.session;
    const Refusal refusal = mediator.Judge(session.PeerKey());
    const bool isCaller = session.Role() == SessionRole::Caller;
    SessionStart start;
    start.session = slot.number;
    start.role = session.Role();
    start.refusal = refusal;
    if (isCaller) {
        start.association = association.IsUp() ? association.Number() : mediator.Random() | 1;
    }
    if (secret) {
        const SessionRole theirs = isCaller ? SessionRole::Called : SessionRole::Caller;
        start.ownProof = session.ProofOf(*secret, session.Role());
        start.neededProof = session.ProofOf(*secret, theirs);
    }
    association.BeginSession(now, start);
}

bool LinkPeer::HandleDatagram(std::uint64_t now, const LinkAddress& address, ByteView datagram) {
    const bool isCall = LinkSealing::IsCall(datagram);
    // What a finished session cannot read changes nothing there; it may belong to one that begins.
    for (Slot& slot : slots) {
        if (slot.number == 0 || isCall || slot.session->CurrentState() != SealedSession::State::Ready) {
            continue;
        }
        const std::size_t size = slot.session->HandleDatagram(datagram, body);
        GoOn(now, slot);
        if (size > 0) {
            slot.heard = now;
            if (association.HandleBody(now, slot.number, ByteView(body).first(size)) &&
                slot.address != address) {
                TryRoaming(slot, address);
            }
            return true;
        }
    }
    for (Slot& slot : slots) {
        const bool isIts = slot.number != 0 && slot.address == address &&
                           slot.session->CurrentState() == SealedSession::State::Handshaking &&
                           (!isCall || LinkSealing::IsCallOf(datagram, *slot.session));
        if (isIts) {
            slot.session->HandleDatagram(datagram, body);
            GoOn(now, slot);
            return true;
        }
    }
    return false;
}

// The peer sends from another address: it is asked there before anything of ours goes there.
void LinkPeer::TryRoaming(const Slot& slot, const LinkAddress& address) {
    if (slot.number == carrier && (candidateToken == 0 || candidate != address)) {
        candidate = address;
        candidateToken = mediator.Random() | 1;
        probesCandidate = true;
    }
}

void LinkPeer::HandleTimeout(std::uint64_t now) {
    association.HandleTimeout(now);
    for (Slot& slot : slots) {
        if (slot.number == 0) {
            continue;
        }
        const bool isOver = now - slot.begun >= kCallLife && slot.number != carrier &&
                            (!slot.introduced || now - std::max(slot.heard, slot.begun) >= kCallLife);
        if (isOver) {
            association.EndSession(slot.number);
            slot = Slot();
        } else if (slot.session->TimeoutIn() == std::uint64_t{0}) {
            slot.session->HandleTimeout();
            GoOn(now, slot);
        }
    }
    if (!association.IsUp() || IsUsed()) {
        unusedSince = 0;
    } else if (unusedSince == 0) {
        unusedSince = now;
    } else if (now - unusedSince >= kUnusedFor) {
        association.SayBye({ByeReason::Unused, Refusal::None});
    }
    const std::optional<std::uint64_t> renewal = RenewalDue();
    if (renewal && now >= *renewal) {
        const LinkAddress address = Find(carrier)->address;
        Open(now, sealing.Call(), address);
    }
}

// Whether the other computer needs it is not known here: whoever called says when it is over.
bool LinkPeer::IsUsed() const {
    const Slot* slot = SendingSlot();
    const bool hasCalled = slot != nullptr && slot->session->Role() == SessionRole::Caller;
    return needed || association.HasWays() || !hasCalled;
}

// The caller renews; the called does so an hour later, when the caller did not. Null while another session is
// there.
std::optional<std::uint64_t> LinkPeer::RenewalDue() const {
    std::optional<std::uint64_t> due;
    for (const Slot& slot : slots) {
        if (slot.number != 0 && slot.number != carrier) {
            return std::nullopt;
        }
        if (slot.number != 0 && association.IsUp()) {
            const bool isCaller = slot.session->Role() == SessionRole::Caller;
            due = carrierSince + kRenewalAfter + (isCaller ? 0 : kPatience);
        }
    }
    return due;
}

std::optional<LinkPeer::Transmit> LinkPeer::PollTransmit(std::uint64_t now, std::span<std::uint8_t> out) {
    for (Slot& slot : slots) {
        if (slot.number == 0) {
            continue;
        }
        if (const std::size_t size = slot.session->PollTransmit(out)) {
            return Transmit{size, slot.address};
        }
    }
    if (probesCandidate) {
        probesCandidate = false;
        Slot* slot = Find(carrier);
        const std::size_t size =
            association.BuildProbe(now, candidateToken, std::span(body).first(kLongestBody));
        if (slot != nullptr && size > 0) {
            return Transmit{slot->session->Seal(ByteView(body).first(size), out), candidate};
        }
    }
    while (const auto transmit = association.PollTransmit(now, std::span(body).first(kLongestBody))) {
        Slot* slot = Find(transmit->session);
        const std::size_t size =
            slot == nullptr ? 0 : slot->session->Seal(ByteView(body).first(transmit->size), out);
        if (size > 0) {
            return Transmit{size, slot->address};
        }
    }
    return std::nullopt;
}

std::optional<std::uint64_t> LinkPeer::PollTimeout(std::uint64_t now) const {
    std::optional<std::uint64_t> first = association.PollTimeout();
    const auto at = [&first](std::uint64_t time) { first = first ? std::min(*first, time) : time; };
    for (const Slot& slot : slots) {
        if (slot.number == 0) {
            continue;
        }
        if (const auto left = slot.session->TimeoutIn()) {
            at(now + *left);
        }
        if (slot.number != carrier) {
            at(std::max(slot.heard, slot.begun) + kCallLife);
        }
    }
    if (const auto renewal = RenewalDue()) {
        at(*renewal);
    }
    const bool isUnused = association.IsUp() && !IsUsed();
    if (isUnused != (unusedSince != 0)) {
        at(0);
    } else if (isUnused) {
        at(unusedSince + kUnusedFor);
    }
    return first;
}

std::optional<LinkEvent> LinkPeer::PollEvent(std::uint64_t now) {
    while (const std::optional<LinkEvent> event = association.PollEvent(now)) {
        if (event->kind == LinkEvent::Kind::ProbeAnswered) {
            Slot* slot = Find(carrier);
            if (slot != nullptr && candidateToken != 0 && event->token == candidateToken) {
                slot->address = candidate;
                candidateToken = 0;
            }
            continue;
        }
        if (event->kind == LinkEvent::Kind::SessionOver) {
            if (Slot* slot = Find(event->session)) {
                *slot = Slot();
            }
            continue;
        }
        if (event->kind == LinkEvent::Kind::Refused) {
            calls.Refused(now);
        } else if (event->kind == LinkEvent::Kind::Lost || event->kind == LinkEvent::Kind::Ended) {
            calls.Begin(now);
        }
        return event;
    }
    // The association may have taken another session.
    const std::uint32_t session = association.Session();
    if (session != carrier) {
        carrier = session;
        carrierSince = now;
        candidateToken = 0;
        if (const Slot* slot = Find(carrier)) {
            key = slot->session->PeerKey();
        }
    }
    return std::nullopt;
}

}  // namespace vexil
