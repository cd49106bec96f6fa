// What comes in: sessions, hellos, bodies, and how an association begins and ends. LinkAssociationSend.cpp
// has what goes out.
#include "service/network/LinkAssociation.h"

#include <algorithm>

#include "service/network/LinkTimes.h"
#include "service/network/Require.h"

namespace vexil {

namespace {

// In a time that says nothing of where they differ.
bool IsSameProof(const SecretProof& a, const SecretProof& b) {
    unsigned difference = 0;
    for (std::size_t byte = 0; byte < a.size(); ++byte) {
        difference |= static_cast<unsigned>(a[byte] ^ b[byte]);
    }
    return difference == 0;
}

bool IsNoteOn(ByteView message) {
    return message.size() == 3 && (message[0] & 0xF0) == 0x90 && message[2] != 0;
}

LinkEvent SessionOver(std::uint32_t session) {
    LinkEvent over;
    over.kind = LinkEvent::Kind::SessionOver;
    over.session = session;
    return over;
}

}  // namespace

LinkAssociation::LinkAssociation(std::string_view name) : ownName(name) {
    Require(IsComputerName(name), "IsComputerName(name)");
    peerName.reserve(kLongestComputerName);
    ownName.reserve(kLongestComputerName);
}

void LinkAssociation::BeginSession(std::uint64_t now, const SessionStart& start) {
    Require(start.session != 0 && !Find(start.session), "a session has a number of its own");
    if (coming.IsThere()) {
        Report(SessionOver(coming.start.session));
    }
    const bool renews = start.role == SessionRole::Caller && up && start.association == number;
    coming.Begin(now, start, renews);
    if (start.refusal != Refusal::None) {
        Refuse(coming, start.refusal);
    }
}

void LinkAssociation::EndSession(std::uint32_t session) {
    if (coming.IsThere() && coming.start.session == session) {
        coming = LinkGreeting();
    } else if (current.IsThere() && current.start.session == session && up) {
        closedHere = false;
        Close(Closing::Lost);
    }
    previous = previous == session ? 0 : previous;
}

LinkGreeting* LinkAssociation::Find(std::uint32_t session) {
    if (current.IsThere() && current.start.session == session) {
        return &current;
    }
    return coming.IsThere() && coming.start.session == session ? &coming : nullptr;
}

bool LinkAssociation::HandleBody(std::uint64_t now, std::uint32_t session, ByteView body) {
    if (closing != Closing::No) {
        return false;  // what has ended was not taken yet; the peer sends again
    }
    std::optional<BodyReader> reader = BodyReader::Open(body);
    if (!reader) {
        ++malformed;
        return false;
    }
    bool saysHello = false;
    BodyReader hellos = *reader;
    while (const std::optional<Frame> frame = hellos.NextFrame()) {
        LinkGreeting* greeting = Find(session);
        if (static_cast<FrameKind>(frame->kind) == FrameKind::Hello && greeting != nullptr) {
            saysHello = true;
            HandleHello(now, *greeting, ReadHello(frame->content).value());
        }
    }
    LinkGreeting* greeting = Find(session);
    const bool isPrevious = session != 0 && session == previous;
    if (closing != Closing::No || (greeting == nullptr && !isPrevious)) {
        return saysHello;
    }
    if (greeting != nullptr && !greeting->hasTheirs) {
        while (const std::optional<Frame> frame = reader->NextFrame()) {
            if (static_cast<FrameKind>(frame->kind) == FrameKind::Bye && greeting->IsThere()) {
                HandleBye(*greeting, ReadBye(frame->content).value());
            }
        }
        return true;
    }
    if (!up) {
        return false;
    }
    if (greeting != nullptr && !saysHello) {
        greeting->theyHaveOurs = true;
    }
    lastHeard = now;
    probeDue = 0;
    clock.Take(now, reader->Header());
    out.Window().SetRoundTrip(clock.RoundTrip());
    out.Window().Acknowledge(now, reader->Header().allBelow);
    bool onlyAlive = !saysHello;
    while (const std::optional<Frame> frame = reader->NextFrame()) {
        onlyAlive = false;
        HandleFrame(now, *reader, *frame);
        if (closing != Closing::No) {
            return true;
        }
    }
    if (reader->Header().held != kHeldTooLong) {
        const auto has = [this](std::uint32_t record) { return out.Window().PeerHas(record); };
        onlySmall = full.Judge(reader->Header().echo, has) || onlySmall;
    }
    // Both then say that they live in one wake-up of each.
    aliveDue = aliveDue || (onlyAlive && now - lastSent >= kEarlyAlive);
    return true;
}

void LinkAssociation::HandleHello(std::uint64_t now, LinkGreeting& greeting, const Hello& hello) {
    greeting.theyHaveOurs = greeting.theyHaveOurs || hello.hasYours;
    if (greeting.hasTheirs) {
        aliveDue = true;  // it goes on saying hello: something of ours was lost
        return;
    }
    if (hello.lowestVersion > kLinkVersion || hello.highestVersion < kLinkVersion) {
        Refuse(greeting, Refusal::OtherVersion);
        return;
    }
    if (greeting.start.neededProof && !hello.proof) {
        Refuse(greeting, Refusal::SecretNeeded);
        return;
    }
    if (greeting.start.neededProof && !IsSameProof(*hello.proof, *greeting.start.neededProof)) {
        Refuse(greeting, Refusal::SecretWrong);
        return;
    }
    const bool isCaller = greeting.start.role == SessionRole::Caller;
    if (isCaller && hello.association != greeting.start.association) {
        return;
    }
    greeting.start.association = hello.association;
    greeting.renewal = hello.renewal && up && hello.association == number && (!isCaller || greeting.renewal);
    greeting.hasTheirs = true;
    peerName.assign(hello.name);
    Agree(now, greeting);
}

// Both hellos are known: the session takes the place of the one before.
void LinkAssociation::Agree(std::uint64_t now, LinkGreeting& greeting) {
    if (previous != 0) {
        Report(SessionOver(previous));
        previous = 0;
    }
    if (greeting.renewal) {
        previous = current.start.session;
        previousUntil = now + LinkGreeting::kLongest;
    } else if (current.IsThere()) {
        Report(SessionOver(current.start.session));
    }
    current = greeting;
    coming = LinkGreeting();
    current.due = now;
    aliveDue = true;
    if (current.renewal) {
        lastHeard = now;
        return;
    }
    number = current.start.association;
    if (up) {
        Close(Closing::Replaced);
    } else {
        Begin(now);
    }
}

void LinkAssociation::Begin(std::uint64_t now) {
    up = true;
    in.Begin();
    out.Begin(now);
    clock.Reset();
    full.Reset();
    lastHeard = lastSent = now;
    ackDue = probeDue = 0;
    probeToAnswer.reset();
    nameUntold = false;
    nameNumber = 0;
    LinkEvent event;
    event.kind = LinkEvent::Kind::Up;
    Report(event);
}

void LinkAssociation::Close(Closing why) {
    closing = why;
    up = false;
    out.Stop();
    in.Order().EndAll();
}

// In the session that carried the association: it stays until the bye has gone.
void LinkAssociation::CloseWithBye(Closing why, const Bye& ours) {
    bye = closedBy = ours;
    byeSession = current.start.session;
    byesLeft = kByes;
    closedHere = true;
    Close(why);
}

// After the last way has ended.
void LinkAssociation::FinishClosing(std::uint64_t now) {
    const Closing why = closing;
    closing = Closing::No;
    in.Begin();
    if (why == Closing::Replaced) {
        Begin(now);
        return;
    }
    LinkEvent event;
    event.kind = LinkEvent::Kind::Lost;
    if (why == Closing::Ended) {
        event.kind =
            closedBy.reason == ByeReason::Refused ? LinkEvent::Kind::Refused : LinkEvent::Kind::Ended;
        event.byPeer = !closedHere;
        event.bye = closedBy;
        event.session = current.start.session;
    }
    Report(event);
    // That of our own bye is over when the bye has gone.
    for (const std::uint32_t session : {current.start.session, previous}) {
        if (session != 0 && !(closedHere && session == byeSession)) {
            Report(SessionOver(session));
        }
    }
    current = LinkGreeting();
    previous = 0;
}

void LinkAssociation::Report(const LinkEvent& event) {
    // Taken after each call, these are never so many; a peer that tries to fill it loses only what it
    // reports.
    if (eventCount < kEvents) {
        events[(eventAt + eventCount++) % kEvents] = event;
    }
}

void LinkAssociation::Refuse(const LinkGreeting& greeting, Refusal refusal) {
    LinkEvent event;
    event.kind = LinkEvent::Kind::Refused;
    event.bye = {ByeReason::Refused, refusal};
    event.session = greeting.start.session;
    bye = event.bye;
    byeSession = event.session;
    byesLeft = kByes;
    coming = LinkGreeting();
    Report(event);
}

void LinkAssociation::HandleBye(const LinkGreeting& greeting, const Bye& theirs) {
    if (&greeting == &current) {
        closedBy = theirs;
        closedHere = false;
        Close(Closing::Ended);
        return;
    }
    LinkEvent event;
    event.kind = LinkEvent::Kind::Refused;
    event.byPeer = true;
    event.bye = theirs;
    event.session = greeting.start.session;
    coming = LinkGreeting();
    Report(event);
    Report(SessionOver(event.session));
}

void LinkAssociation::HandleFrame(std::uint64_t now, const BodyReader& body, const Frame& frame) {
    switch (static_cast<FrameKind>(frame.kind)) {
        case FrameKind::Records:
            HandleRecords(now, body.Header(), frame.content);
            break;
        case FrameKind::Gaps:
            out.Window().TakeGaps(now, ReadGaps(frame.content).value());
            break;
        case FrameKind::Bye:
            HandleBye(current, ReadBye(frame.content).value());
            break;
        case FrameKind::Probe:
            probeToAnswer = ReadProbe(frame.content);
            break;
        case FrameKind::ProbeAnswer:
            if (eventCount == 0) {
                LinkEvent event;
                event.kind = LinkEvent::Kind::ProbeAnswered;
                event.token = ReadProbe(frame.content).value();
                Report(event);
            }
            break;
        case FrameKind::Hello:
            break;  // taken before
    }
}

void LinkAssociation::HandleRecords(std::uint64_t now, const BodyHeader& header, ByteView content) {
    RecordReader records(content);
    bool anyNew = false;
    while (const std::optional<LinkRecord> record = records.Next()) {
        const WaysIn::Taken taken = in.Take(records.Number(), *record, clock.DueHere(header, record->age));
        anyNew = anyNew || taken == WaysIn::Taken::New;
        duplicates += taken == WaysIn::Taken::Duplicate ? 1U : 0U;
    }
    const std::uint64_t due = anyNew && in.Window().HasGaps() ? now : now + kAckDelay;
    ackDue = ackDue == 0 ? due : std::min(ackDue, due);
}

void LinkAssociation::HandleTimeout(std::uint64_t now) {
    if (up && now - lastHeard >= kLostAfter) {
        CloseWithBye(Closing::Lost, {ByeReason::Unheard, Refusal::None});
    }
    if (coming.IsThere() && now - coming.begun >= LinkGreeting::kLongest) {
        Report(SessionOver(coming.start.session));
        coming = LinkGreeting();
    }
    if (previous != 0 && now >= previousUntil) {
        Report(SessionOver(previous));
        previous = 0;
    }
}

std::optional<LinkEvent> LinkAssociation::PollEvent(std::uint64_t now) {
    if (closing != Closing::No) {
        while (const std::optional<OrderedRecord> record = in.Order().Next()) {
            if (const std::optional<LinkEvent> event = EventOf(now, *record)) {
                return event;
            }
        }
        FinishClosing(now);
    }
    if (eventCount > 0) {
        const LinkEvent event = events[eventAt];
        eventAt = (eventAt + 1) % kEvents;
        --eventCount;
        return event;
    }
    while (const std::optional<OrderedRecord> record = in.Order().Next()) {
        if (const std::optional<LinkEvent> event = EventOf(now, *record)) {
            return event;
        }
    }
    return std::nullopt;
}

std::optional<LinkEvent> LinkAssociation::EventOf(std::uint64_t now, const OrderedRecord& record) {
    LinkEvent event;
    event.source = record.source;
    event.input = record.input;
    event.first = record.first;
    event.last = record.last;
    event.bytes = record.bytes;
    const std::int32_t late32 = Distance(static_cast<std::uint32_t>(now), record.due);
    event.due = now - static_cast<std::uint64_t>(std::int64_t{late32});
    switch (record.kind) {
        case OrderedRecord::Kind::WayOpened:
            event.kind = LinkEvent::Kind::WayOpened;
            break;
        case OrderedRecord::Kind::WayEnded:
            event.kind = LinkEvent::Kind::WayEnded;
            break;
        case OrderedRecord::Kind::Message:
            if (late32 > kLateNoteOn && IsNoteOn(record.bytes)) {
                ++late;
                return std::nullopt;
            }
            event.kind = LinkEvent::Kind::Message;
            break;
        case OrderedRecord::Kind::Piece:
            event.kind = LinkEvent::Kind::Piece;
            break;
        case OrderedRecord::Kind::WayState: {
            const WayStateContent state = ReadWayState(record.bytes).value();
            if (up) {
                out.TakeState(record.source, record.input, state);
            }
            event.kind = LinkEvent::Kind::WayState;
            event.problem = state.problem;
            break;
        }
        case OrderedRecord::Kind::Name:
            peerName.assign(record.bytes.begin(), record.bytes.end());
            event.kind = LinkEvent::Kind::NameChanged;
            break;
    }
    return event;
}

LinkCounters LinkAssociation::Counters() const {
    LinkCounters counters;
    counters.malformed = malformed;
    counters.duplicates = duplicates;
    counters.tooFarAhead = in.TooFarAhead();
    counters.outsideWays = in.Order().OutsideWays();
    counters.late = late;
    counters.lost = out.LostMessages();
    counters.cutWays = out.CutWays();
    counters.repeated = out.Window().Repeated();
    counters.roundTrip = clock.RoundTrip();
    return counters;
}

}  // namespace vexil
