#include "service/engine/Merger.h"

#include <algorithm>
#include <bit>
#include <limits>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

constexpr std::uint32_t kNoEnd = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kBytesOfMessage = 64;  // of system exclusive, for the share

bool IsRealtime(const Record& record) {
    return record.kind == RecordKind::Message && record.bytes[0] >= kFirstRealtime;
}

}  // namespace

Merger::Merger(std::size_t queueBytes)
    : queues(queueBytes), sources(kSourceCount), gathered(kLongestDelivery) {
    cut.reserve(kSourceCount);
}

int Merger::OutletFor(const Destination& to) {
    switch (to.kind) {
        case Destination::Kind::Input:
            return to.port;
        case Destination::Kind::Remote:
            return kFirstRemoteOutlet + to.from;
        default:
            return kNoOutlet;
    }
}

bool Merger::Push(int source, std::uint64_t due, const MidiPiece& piece) {
    if (!queues.PushPiece(source, due, piece)) {
        return false;
    }
    BeginWaiting(source);
    return true;
}

void Merger::EndWay(int source, std::uint64_t due, const Destination& next) {
    Source& way = Of(source);
    if (!way.isWaiting && way.sounding.IsAtRest() && !way.inExclusive) {
        Connect(source, next);
    } else if (queues.PushEndOfWay(source, due, next)) {
        ++openEnds;
        BeginWaiting(source);
    }
}

void Merger::Connect(int source, const Destination& to) {
    Source& way = Of(source);
    const bool wasWaiting = way.isWaiting;
    EndWaiting(source);
    if (way.outlet != kNoOutlet) {
        members.Remove(way.outlet, source);
    }
    way.to = to;
    way.outlet = OutletFor(to);
    if (way.outlet != kNoOutlet) {
        members.Append(way.outlet, source);
        if (wasWaiting) {
            BeginWaiting(source);
        }
    }
}

void Merger::BeginWaiting(int source) {
    Source& way = Of(source);
    if (!way.isWaiting) {
        way.isWaiting = true;
        waiting.Append(way.outlet, source);
        ActiveWord(way.outlet) |= std::uint64_t{1} << way.outlet % 64;
    }
}

void Merger::EndWaiting(int source) {
    Source& way = Of(source);
    if (way.isWaiting) {
        way.isWaiting = false;
        waiting.Remove(way.outlet, source);
        if (waiting.IsEmpty(way.outlet)) {
            ActiveWord(way.outlet) &= ~(std::uint64_t{1} << way.outlet % 64);
        }
    }
}

void Merger::NoteTaken(int source) {
    if (queues.IsEmpty(source)) {
        EndWaiting(source);
    }
}

void Merger::Run(std::uint64_t end, EngineSink& inputSink, EngineSink& remoteSink, TurnLimit* limit) {
    Pass all{end, end / kShareTime, inputSink, remoteSink, limit};
    if (!isPressed) {
        RunAll(all);
        isPressed = all.isStopped;
    }
    if (isPressed) {
        Pass first{end, all.share, inputSink, remoteSink, nullptr, true};
        RunAll(first);
        if (!all.isStopped) {
            all.unasked = kShare;
            RunInTurns(all);
            isPressed = all.isStopped;
        }
    }
}

void Merger::RunAll(Pass& pass) {
    // A way that ends may go on at an outlet that has had its turn.
    for (bool again = true; again;) {
        again = false;
        for (std::size_t word = 0; word < active.size(); ++word) {
            for (std::uint64_t left = active[word]; left != 0; left &= left - 1) {
                const int outlet = static_cast<int>(word) * 64 + std::countr_zero(left);
                again |= RunOutlet(outlet, pass, kNoEnd, true);
                if (pass.isStopped) {
                    return;
                }
            }
        }
    }
}

// Each outlet a share at a time, and another one first in each turn of the engine.
void Merger::RunInTurns(Pass& pass) {
    firstInTurn = (firstInTurn + 1) % kOutlets;
    bool isFirstRound = true;
    for (bool again = true; again; isFirstRound = false) {
        again = false;
        for (int i = 0; i < kOutlets && !pass.isStopped; ++i) {
            const int outlet = (firstInTurn + i) % kOutlets;
            if (!waiting.IsEmpty(outlet)) {
                again |= RunOutlet(outlet, pass, kShare, isFirstRound);
            }
        }
        again = again && !pass.isStopped;
    }
}

bool Merger::MayGoOn(Pass& pass) {
    if (pass.limit != nullptr && pass.unasked >= kShare) {
        pass.unasked = 0;
        pass.isStopped = !pass.limit->MayGoOn();
    }
    return !pass.isStopped;
}

// While a system exclusive is under way only its own source may deliver, and whose turn is a realtime
// message.
bool Merger::MayDeliver(int source, const Outlet& outlet) const {
    return outlet.owner < 0 || outlet.owner == source || IsRealtime(queues.Front(source));
}

// What is left of a system exclusive goes on: others wait for its end.
bool Merger::HasShare(int source, const Outlet& outlet, const Pass& pass) const {
    const Source& way = Of(source);
    return way.share != pass.share || way.used < kShare || outlet.owner == source;
}

// The source that is due first before `end`, and has a turn in the pass; null: any. Of those due at one time
// the one that has waited longest.
Merger::Turn Merger::NextTurn(int outlet, std::uint64_t end, const Pass* pass) const {
    Turn turn{-1, end, end};
    const Outlet& at = outlets[static_cast<std::size_t>(outlet)];
    for (int source = waiting.First(outlet); source >= 0; source = waiting.Next(source)) {
        if (!MayDeliver(source, at) ||
            (pass != nullptr && pass->withinShare && !HasShare(source, at, *pass))) {
            continue;
        }
        const std::uint64_t due = queues.Front(source).due;
        if (due < turn.due) {
            turn.until = turn.due;
            turn.due = due;
            turn.source = source;
        } else {
            turn.until = std::min(turn.until, due);
        }
    }
    return turn;
}

// Delivers `most` messages. Returns whether there may be more to do in this pass: those were not all, or a
// way has moved from this outlet to another with something queued.
bool Merger::RunOutlet(int number, Pass& pass, std::uint32_t most, bool mayBegin) {
    const Outlet& outlet = outlets[static_cast<std::size_t>(number)];
    pass.sink = number < kFirstRemoteOutlet ? &pass.inputSink : &pass.remoteSink;
    bool moved = false;
    for (;;) {
        const Turn turn = NextTurn(number, pass.end, &pass);
        const int source = turn.source;
        if (source < 0) {
            if (outlet.owner < 0 || !CutSilentExclusive(number, pass)) {
                return moved;
            }
            continue;
        }
        const int owner = outlet.owner;
        const Source& way = Of(source);
        do {
            if (most-- == 0 || !MayGoOn(pass)) {
                return true;
            }
            if (!DeliverFront(source, mayBegin, pass)) {
                return moved;
            }
            mayBegin = false;
            if (way.outlet != number) {
                moved = moved || way.isWaiting;
                break;
            }
        } while (way.isWaiting && queues.Front(source).due < turn.until && outlet.owner == owner &&
                 MayDeliver(source, outlet) && (!pass.withinShare || HasShare(source, outlet, pass)));
    }
}

// False when the destination has no room for the front of the source's queue.
bool Merger::DeliverFront(int source, bool mayBegin, Pass& pass) {
    const Record& record = queues.Front(source);
    if (record.kind == RecordKind::Exclusive) {
        return DeliverExclusive(source, mayBegin, pass);
    }
    if (record.kind == RecordKind::EndOfWay) {
        return FinishWay(source, pass);
    }
    Source& way = Of(source);
    const std::span<const std::uint8_t> bytes = queues.FrontBytes(source);
    if (pass.sink->Room(way.to) < bytes.size()) {
        return false;
    }
    way.sounding.Heard(bytes);
    Deliver(way, record.due, bytes, pass);
    OutletOf(way).messages.Add(1);
    queues.TakeRecord(source);
    NoteTaken(source);
    return true;
}

// Delivers as many pieces of one message at once as are there and due: most programs want a message whole.
// For the same reason a message is not begun in the rest of a room that has been used, unless `mayBegin`.
bool Merger::DeliverExclusive(int source, bool mayBegin, Pass& pass) {
    Source& way = Of(source);
    Outlet& outlet = OutletOf(way);
    const std::size_t room = std::min(pass.sink->Room(way.to), kLongestDelivery);
    if (room == 0) {
        return false;
    }
    const std::uint64_t due = queues.Front(source).due;
    const std::span<const std::uint8_t> front = queues.FrontBytes(source);
    if (!way.inExclusive && !mayBegin && front.size() > room) {
        return false;
    }
    const bool begins = !way.inExclusive;
    std::size_t length = 0;
    bool last = false;
    while (length < room && !last && !queues.IsEmpty(source) &&
           queues.Front(source).kind == RecordKind::Exclusive && queues.Front(source).due < pass.end) {
        const std::span<const std::uint8_t> bytes = queues.FrontBytes(source);
        const std::size_t count = std::min(bytes.size(), room - length);
        std::copy_n(bytes.begin(), count, gathered.begin() + static_cast<std::ptrdiff_t>(length));
        length += count;
        last = count == bytes.size() && queues.Front(source).last;
        queues.Take(source, count);
    }
    NoteTaken(source);
    way.inExclusive = !last;
    outlet.owner = last ? -1 : source;
    outlet.ownerHeard = due;
    if (begins) {
        outlet.messages.Add(1);
    }
    Deliver(way, due, std::span<const std::uint8_t>(gathered).first(length), pass);
    return true;
}

// When a silent system exclusive is over for those who wait behind it; none while there is none or nobody
// waits.
std::optional<std::uint64_t> Merger::EndOfSilence(int outlet) const {
    const Outlet& at = outlets[static_cast<std::size_t>(outlet)];
    if (at.owner < 0 || Of(at.owner).isWaiting) {
        return std::nullopt;
    }
    std::uint64_t due = kNever;
    for (int other = waiting.First(outlet); other >= 0; other = waiting.Next(other)) {
        due = std::min(due, queues.Front(other).due);
    }
    return due == kNever ? std::nullopt : std::optional(std::max(due, at.ownerHeard + kLongestSilence));
}

bool Merger::CutSilentExclusive(int number, Pass& pass) {
    Outlet& outlet = outlets[static_cast<std::size_t>(number)];
    Source& owner = Of(outlet.owner);
    const std::optional<std::uint64_t> due = EndOfSilence(number);
    if (!due || *due >= pass.end || pass.sink->Room(owner.to) < sizeof kEndBytes) {
        return false;
    }
    owner.inExclusive = false;
    cut.push_back(outlet.owner);
    outlet.owner = -1;
    Deliver(owner, *due, kEndBytes, pass);
    return true;
}

bool Merger::FinishWay(int source, Pass& pass) {
    Source& way = Of(source);
    const Record end = queues.Front(source);
    if (way.inExclusive) {
        if (pass.sink->Room(way.to) < sizeof kEndBytes) {
            return false;
        }
        way.inExclusive = false;
        OutletOf(way).owner = -1;
        Deliver(way, end.due, kEndBytes, pass);
    }
    while (const std::optional<NoteTracker::Release> release = way.sounding.NextRelease()) {
        if (!IsHeldByAnother(source, *release)) {
            if (pass.sink->Room(way.to) < release->length) {
                return false;
            }
            Deliver(way, end.due, release->Message(), pass);
            OutletOf(way).messages.Add(1);
        }
        way.sounding.Heard(release->Message());
    }
    queues.TakeRecord(source);
    NoteTaken(source);
    --openEnds;
    Connect(source, NextDestination(end));
    return true;
}

bool Merger::IsHeldByAnother(int source, const NoteTracker::Release& release) const {
    const Source& way = Of(source);
    for (int other = members.First(way.outlet); other >= 0; other = members.Next(other)) {
        if (other != source && Of(other).to == way.to && Of(other).sounding.Holds(release)) {
            return true;
        }
    }
    return false;
}

void Merger::Deliver(Source& source, std::uint64_t due, std::span<const std::uint8_t> bytes, Pass& pass) {
    Outlet& outlet = OutletOf(source);
    outlet.lastTime = std::max(outlet.lastTime, due);
    outlet.bytes.Add(bytes.size());
    pass.sink->Deliver(source.to, outlet.lastTime, bytes);
    const auto work = static_cast<std::uint32_t>(1 + bytes.size() / kBytesOfMessage);
    if (source.share != pass.share) {
        source.share = pass.share;
        source.used = 0;
    }
    source.used += work;
    pass.unasked += work;
}

std::optional<std::uint64_t> Merger::NextDue() const {
    std::uint64_t due = kNever;
    for (std::size_t word = 0; word < active.size(); ++word) {
        for (std::uint64_t left = active[word]; left != 0; left &= left - 1) {
            const int outlet = static_cast<int>(word) * 64 + std::countr_zero(left);
            due =
                std::min({due, NextTurn(outlet, kNever, nullptr).due, EndOfSilence(outlet).value_or(kNever)});
        }
    }
    return due == kNever ? std::nullopt : std::optional(due);
}

std::uint64_t Merger::Forget(int source) {
    Source& way = Of(source);
    std::uint64_t lost = 0;
    Destination next = way.to;
    while (!queues.IsEmpty(source)) {
        const Record& record = queues.Front(source);
        if (record.kind == RecordKind::EndOfWay) {
            next = NextDestination(record);
            --openEnds;
        } else {
            lost += record.last ? 1 : 0;
        }
        queues.TakeRecord(source);
    }
    EndWaiting(source);
    if (way.to.kind == Destination::Kind::Remote) {
        EndWay(source, 0, next);
        return lost;
    }
    if (way.inExclusive) {
        OutletOf(way).owner = -1;
        way.inExclusive = false;
    }
    way.sounding.Clear();
    Connect(source, next);
    return lost;
}

void Merger::ForgetTimes() {
    for (Outlet& outlet : outlets) {
        outlet.lastTime = 0;
    }
}

InputCounters Merger::CountersOf(int input) const {
    const Outlet& counted = outlets[static_cast<std::size_t>(input)];
    return {counted.messages.Read(), counted.bytes.Read()};
}

}  // namespace vexil
