// Calls, commands and times. RtpSessionMidi.cpp has what is played.
#include "service/network/rtp/RtpSession.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::uint64_t kAfterBye = 2 * RtpSession::kSecond;
constexpr std::uint64_t kFeedbackEvery = RtpSession::kSecond;
// A packet that only guards asks what has come: it is answered soon.
constexpr std::uint64_t kFeedbackSoon = 20'000;
constexpr std::uint32_t kBitsPerByte = 8;
// Less than this a second is asked for by nobody who wants to hear anything.
constexpr std::uint32_t kSlowestExclusive = 500;

}  // namespace

RtpSession::RtpSession(Mediator& outside, std::string_view itsName) : mediator(outside), name(itsName) {}

void RtpSession::SetWanted(std::uint64_t now, bool isWanted) {
    if (wanted == isWanted) {
        return;
    }
    wanted = isWanted;
    if (wanted && !up) {
        BeginCalling(now);
    } else if (!wanted && !up && calling != Calling::No) {
        if (peerSsrc && !answered) {
            PutAnswer(RtpPort::Control, SessionCommandKind::Bye, token);
            peerSsrc.reset();
        }
        calling = Calling::No;
        refused = false;
    }
}

void RtpSession::CallSoon(std::uint64_t now) {
    if (wanted && !up) {
        nextCall = now;
        calls = 0;
        refused = false;
    }
}

void RtpSession::SayBye(std::uint64_t now) {
    wanted = false;
    if (up || answered || (calling != Calling::No && peerSsrc)) {
        const bool isOwn = up ? clock.IsCaller() : !answered;
        PutAnswer(RtpPort::Control, SessionCommandKind::Bye, isOwn ? token : peerToken);
    }
    if (up) {
        End(now, RtpEvent::Kind::Ended);
    }
    calling = Calling::No;
    answered = false;
}

// A peer that still knows the connection before may not take another call of the same number.
void RtpSession::BeginCalling(std::uint64_t now) {
    if (!answered) {
        ssrc = static_cast<std::uint32_t>(mediator.Random());
        peerSsrc.reset();
    }
    token = static_cast<std::uint32_t>(mediator.Random());
    calling = Calling::Control;
    calledData = false;
    calls = 0;
    dataCalls = 0;
    nextCall = now;
}

void RtpSession::Put(RtpPort port, const SessionCommand& command) {
    // So many wait only where nobody takes them out: the oldest tell least.
    if (pendingCount == pending.size()) {
        std::move(pending.begin() + 1, pending.end(), pending.begin());
        --pendingCount;
    }
    pending[pendingCount] = {command, port};
    pending[pendingCount].command.ssrc = ssrc;
    ++pendingCount;
}

void RtpSession::PutAnswer(RtpPort port, SessionCommandKind kind, std::uint32_t itsToken) {
    SessionCommand command;
    command.kind = kind;
    command.token = itsToken;
    command.name = kind == SessionCommandKind::Bye ? std::string_view() : name;
    Put(port, command);
}

void RtpSession::Invite(std::uint64_t now) {
    if (calling == Calling::Data && dataCalls == kQuickCalls) {
        // It took the call and then fell silent.
        BeginCalling(now);
    }
    const bool isData = calling == Calling::Data;
    PutAnswer(isData ? RtpPort::Data : RtpPort::Control, SessionCommandKind::Invitation, token);
    calledData = calledData || isData;
    std::uint32_t& count = isData ? dataCalls : calls;
    ++count;
    nextCall = now + (count < kQuickCalls ? 1 : 2) * kSecond;
}

void RtpSession::TakeInvitation(std::uint64_t now, RtpPort port, const SessionCommand& invitation) {
    const std::uint32_t itsToken = invitation.token.value_or(0);
    if (port == RtpPort::Data) {
        // Peers may choose another token for each port, and a datagram that comes again changes nothing.
        if (peerSsrc != invitation.ssrc || (!answered && !up)) {
            return;
        }
        if (up && rejoins) {
            End(now, RtpEvent::Kind::Ended);
        }
        PutAnswer(RtpPort::Data, SessionCommandKind::Accepted, itsToken);
        if (!up) {
            calling = Calling::No;
            BecomeUp(now, false);
        }
        return;
    }
    if (!IsBusy()) {
        ssrc = static_cast<std::uint32_t>(mediator.Random());
    } else if (!up && peerSsrc && *peerSsrc != invitation.ssrc && calling == Calling::Data) {
        calling = Calling::Control;
    }
    // A call that crossed this computer's own may come late; a peer that has restarted calls on its other
    // port, too, and only then the connection before is over.
    rejoins = up && !(answered && itsToken == peerToken);
    peerSsrc = invitation.ssrc;
    peerName = invitation.name;
    peerToken = itsToken;
    answered = true;
    answeredAt = now;
    PutAnswer(RtpPort::Control, SessionCommandKind::Accepted, itsToken);
}

void RtpSession::HearCommand(std::uint64_t now, RtpPort port, const SessionCommand& command) {
    if (command.kind == SessionCommandKind::Accepted) {
        HearAccepted(now, port, command);
        return;
    }
    if (command.kind == SessionCommandKind::Refused) {
        HearRefused(now, command);
        return;
    }
    if (!peerSsrc || *peerSsrc != command.ssrc) {
        return;
    }
    if (command.kind == SessionCommandKind::Bye) {
        answered = false;
        calling = Calling::No;
        if (up) {
            End(now, RtpEvent::Kind::Ended);
        } else if (wanted) {
            BeginCalling(now);
        }
        nextCall = now + kAfterBye;
        return;
    }
    if (!up) {
        return;
    }
    clock.Heard(now);
    switch (command.kind) {
        case SessionCommandKind::Clock:
            if (const std::optional<SessionCommand> answer = clock.Take(now, command)) {
                Put(RtpPort::Data, *answer);
            }
            break;
        case SessionCommandKind::Feedback:
            journalOut.Confirm(command.feedback);
            guarding = guarding && journalOut.NeedsGuard();
            break;
        case SessionCommandKind::BitrateLimit:
            exclusiveRate = std::clamp(command.bitrate / kBitsPerByte, kSlowestExclusive, kExclusiveRate);
            break;
        default:
            break;
    }
}

void RtpSession::HearAccepted(std::uint64_t now, RtpPort port, const SessionCommand& command) {
    if (port == RtpPort::Control && calling == Calling::Control) {
        if (!answered) {
            peerSsrc = command.ssrc;
            peerName = command.name;
        }
        calling = Calling::Data;
        refused = false;
        dataCalls = 0;
        nextCall = now;
        return;
    }
    if (port != RtpPort::Data || !calledData || peerSsrc != command.ssrc) {
        return;
    }
    if (up) {
        clock.BecomeCaller();  // its own call came first
    } else if (calling == Calling::Data) {
        calling = Calling::No;
        BecomeUp(now, true);
    }
}

void RtpSession::HearRefused(std::uint64_t now, const SessionCommand& command) {
    // One that is late is not for this call.
    if (calling == Calling::No || (command.token && *command.token != token)) {
        return;
    }
    calling = Calling::Control;
    calledData = false;
    if (!answered) {
        peerSsrc.reset();
    }
    nextCall = now + kAfterRefusal;
    if (!refused) {
        refused = true;
        Report(RtpEvent::Kind::Refused);
    }
}

void RtpSession::BecomeUp(std::uint64_t now, bool hasCalled) {
    up = true;
    rejoins = false;
    refused = false;
    calls = 0;
    clock.Begin(now, hasCalled);
    realtimeCount = 0;
    exclusiveQueued = 0;
    exclusiveSource = -1;
    exclusiveAt = now;
    exclusiveRate = kExclusiveRate;
    journalOut = JournalSender(static_cast<std::uint16_t>(mediator.Random()));
    guarding = false;
    sent.Clear();
    journalIn = JournalReceiver();
    feedbackAt = 0;
    lastFeedback = now;
    exclusiveIn = ExclusiveInput();
    heard.Clear();
    counters = RtpCounters();
    Report(RtpEvent::Kind::Up);
}

// What the peer left sounding is released by whoever hears of it.
void RtpSession::End(std::uint64_t now, RtpEvent::Kind why) {
    up = false;
    answered = answered && rejoins;
    rejoins = false;
    calledData = false;
    while (TakeFront()) {
        front.reset();
    }
    segment.reset();
    isFrontCut = false;
    exclusiveOut = ExclusiveOutput();
    realtimeCount = 0;
    guarding = false;
    Report(why);
    if (wanted && !answered) {
        BeginCalling(now);
    }
}

void RtpSession::Report(RtpEvent::Kind kind) {
    if (eventCount < events.size()) {
        events[eventCount++] = {kind};
    }
}

std::optional<RtpEvent> RtpSession::PollEvent() {
    if (eventCount == 0) {
        return std::nullopt;
    }
    const RtpEvent event = events[0];
    std::move(events.begin() + 1, events.begin() + static_cast<std::ptrdiff_t>(eventCount), events.begin());
    --eventCount;
    return event;
}

void RtpSession::HandleTimeout(std::uint64_t now) {
    if (!up && answered && now >= answeredAt + kJoinWithin) {
        answered = false;
        if (calling == Calling::No && wanted) {
            BeginCalling(now);
        }
    }
    if (!up && calling != Calling::No && now >= nextCall) {
        Invite(now);
    }
    if (!up) {
        return;
    }
    if (now >= clock.DeadAt()) {
        PutAnswer(RtpPort::Control, SessionCommandKind::Bye, clock.IsCaller() ? token : peerToken);
        End(now, RtpEvent::Kind::Lost);
        return;
    }
    if (now >= clock.NextAsk()) {
        Put(RtpPort::Data, clock.Ask(now));
    }
    if (feedbackAt != 0 && now >= feedbackAt) {
        SessionCommand feedback;
        feedback.kind = SessionCommandKind::Feedback;
        if (const std::optional<std::uint16_t> known = journalIn.Known()) {
            feedback.feedback = FeedbackOf(*known);
            Put(RtpPort::Control, feedback);
        }
        feedbackAt = 0;
        lastFeedback = now;
    }
}

void RtpSession::NoteFeedback(std::uint64_t now, bool soon) {
    const std::uint64_t at =
        std::max(soon ? now : lastFeedback + kFeedbackEvery, lastFeedback + kFeedbackSoon);
    feedbackAt = feedbackAt == 0 ? at : std::min(feedbackAt, at);
}

std::optional<std::uint64_t> RtpSession::PollTimeout(std::uint64_t now) const {
    std::optional<std::uint64_t> first;
    const auto at = [&first](std::uint64_t time) { first = first ? std::min(*first, time) : time; };
    if (pendingCount != 0) {
        at(now);
    }
    if (!up && answered) {
        at(answeredAt + kJoinWithin);
    }
    if (!up && calling != Calling::No) {
        at(nextCall);
    }
    if (up) {
        at(clock.NextTime());
        if (feedbackAt != 0) {
            at(feedbackAt);
        }
        if (guarding) {
            at(guardAt);
        }
        if (realtimeCount != 0) {
            at(now);
        }
        if (front) {
            at(FrontTime());
        } else if (!queue.IsEmpty()) {
            at(now);
        }
    }
    return first;
}

}  // namespace vexil
