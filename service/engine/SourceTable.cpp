#include "service/engine/SourceTable.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "service/engine/MidiStatus.h"
#include "service/engine/Silencing.h"

namespace vexil {

namespace {

bool LeadsNowhere(const Way& way) {
    return way.to.kind == Destination::Kind::Nowhere;
}

// Whether something would sound on, or sound wrong, if this were never heard.
bool LeavesSomethingBehind(const MidiPiece& piece) {
    return piece.systemExclusive ? !piece.first : NoteTracker::PutsSomethingRight(piece.bytes);
}

}  // namespace

SourceTable::SourceTable(std::size_t queueBytes, MessageTap& messageTap)
    : sources(kSourceCount), origins(kWriterSourceBase), tap(messageTap), merger(queueBytes) {
    for (int source = 0; source < kWriterSourceBase; ++source) {
        Of(source).origin = static_cast<std::int16_t>(source);
        Of(source).isOpen = source < kTakenSourceBase;
    }
    freeWriters.reserve(kWriterSources);
    leaving.reserve(kSourceCount);
    owing.reserve(kSourceCount);
    suspects.reserve(kWriterSourceBase);
    for (int source = kSilencerBase; source-- > kWriterSourceBase;) {
        freeWriters.push_back(source);
    }
}

void SourceTable::Write(int source, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    Source& writer = Of(source);
    if (writer.isOpen) {
        OriginOf(writer).bytes.Add(bytes.size());
        while (const std::optional<MidiPiece> piece = writer.parser.Next(bytes)) {
            TakePiece(source, time, *piece);
        }
    }
}

void SourceTable::WriteMessage(int source, std::uint64_t time, std::span<const std::uint8_t> message) {
    Source& writer = Of(source);
    if (writer.isOpen) {
        OriginOf(writer).bytes.Add(message.size());
        if (message[0] < kFirstRealtime) {
            if (const std::optional<MidiPiece> end = writer.parser.EndExclusive()) {
                TakePiece(source, time, *end);
            }
        }
        TakePiece(source, time, {message});
    }
}

void SourceTable::WriteExclusive(int source, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    Source& writer = Of(source);
    if (writer.isOpen) {
        OriginOf(writer).bytes.Add(bytes.size());
        while (const std::optional<MidiPiece> piece = writer.parser.NextOfExclusive(bytes)) {
            TakePiece(source, time, *piece);
        }
    }
}

void SourceTable::TakePiece(int source, std::uint64_t time, const MidiPiece& piece) {
    Source& writer = Of(source);
    Origin& origin = OriginOf(writer);
    origin.messages.Add(piece.first ? 1 : 0);
    carried = true;
    if (tap.IsOpen()) {
        ShowPiece(source, time, piece);
    }
    if (LeadsNowhere(origin.way)) {
        origin.filtered.Add(piece.first ? 1 : 0);
        return;
    }
    if (piece.first && origin.watch.Count(time)) {
        Suspect(writer.origin);
    }
    const std::uint64_t due = DueTime(writer, origin.way.immediate, time, piece);
    if (merger.Push(source, due, piece)) {
        writer.lastDue = due;
        if (piece.systemExclusive) {
            writer.exclusiveDue = due;
        }
        if (writer.owesRelease && !writer.parser.IsInExclusive()) {
            EndWay(source, due);
        }
        return;
    }
    origin.dropped.Add(1);
    if (piece.systemExclusive) {
        writer.parser.SkipSystemExclusive();
    }
    // What cannot be put right by the message that was lost is put right by ending the way, for which there
    // is always room.
    if (LeavesSomethingBehind(piece)) {
        EndWay(source, due);
    }
}

// What comes from other computers is seen where an input hears it.
void SourceTable::ShowPiece(int source, std::uint64_t time, const MidiPiece& piece) {
    const int origin = Of(source).origin;
    if (origin < kTakenSourceBase) {
        tap.Put({time, origin < kTestSourceBase ? TapSide::Output : TapSide::Test,
                 static_cast<std::uint8_t>(origin % kMaxPorts), static_cast<std::uint16_t>(source),
                 piece.bytes});
    }
}

std::uint64_t SourceTable::DueTime(const Source& source, bool immediate, std::uint64_t time,
                                   const MidiPiece& piece) const {
    // A message is held back once, where it begins.
    if (quantum != 0 && !immediate && piece.first) {
        time = (time + quantum - 1) / quantum * quantum;
    }
    return std::max(time, source.lastDue);
}

void SourceTable::EndWay(int source, std::uint64_t now) {
    Source& writer = Of(source);
    if (std::exchange(writer.owesRelease, false)) {
        std::erase(owing, source);
    }
    writer.lastDue = std::max(writer.lastDue, now);
    merger.EndWay(source, writer.lastDue, writer.isOpen ? OriginOf(writer).way.to : Destination{});
}

void SourceTable::SetWays(const WayTable& ways, std::uint64_t now) {
    std::uint64_t changed = 0;  // bit p: of the output of port p
    for (std::size_t port = 0; port < ways.size(); ++port) {
        // The same way under other conditions goes on.
        const Way before = std::exchange(origins[port].way, ways[port]);
        changed |= std::uint64_t{before.to == ways[port].to ? 0U : 1U} << port;
    }
    const auto redirect = [&](int source) {
        Source& writer = Of(source);
        if (writer.isOpen && (changed >> writer.origin & 1) != 0) {
            writer.parser.SkipSystemExclusive();
            EndWay(source, now);
        }
    };
    for (int port = 0; port < kMaxPorts; ++port) {
        redirect(port);
    }
    for (int source = kWriterSourceBase; source < kSilencerBase; ++source) {
        redirect(source);
    }
}

void SourceTable::SetWay(int source, const Way& way, std::uint64_t now) {
    Of(source).isOpen = true;
    OriginOf(Of(source)).way = way;
    EndStream(source, now);
}

void SourceTable::EndStream(int source, std::uint64_t now) {
    Of(source).parser.Reset();
    EndWay(source, now);
}

void SourceTable::OneWriterGone(int source, std::uint64_t now) {
    Source& writer = Of(source);
    if (!writer.parser.IsInExclusive() || LeadsNowhere(OriginOf(writer).way)) {
        EndWay(source, now);
    } else if (!std::exchange(writer.owesRelease, true)) {
        owing.push_back(source);
    }
}

void SourceTable::EndSilentExclusives(std::uint64_t end) {
    for (std::size_t i = owing.size(); i-- > 0;) {
        const int source = owing[i];
        Source& writer = Of(source);
        if (writer.exclusiveDue + kLongestSilence < end) {
            // The end of the way ends it where it is heard.
            static_cast<void>(writer.parser.EndExclusive());
            OriginOf(writer).dropped.Add(1);
            EndWay(source, writer.exclusiveDue + kLongestSilence);
        }
    }
}

void SourceTable::MessagesLost(int source, std::uint64_t now, std::uint64_t messages) {
    OriginOf(Of(source)).dropped.Add(messages);
    EndStream(source, now);
}

void SourceTable::EndAllStreams(std::uint64_t now) {
    for (int source = 0; source < kSilencerBase; ++source) {
        if (Of(source).isOpen) {
            EndStream(source, now);
        }
    }
}

void SourceTable::Silence(std::uint64_t inputs, std::uint64_t now) {
    EndAllStreams(now);
    for (int source = 0; source < kTakenSourceBase; ++source) {
        const Source& writer = Of(source);
        Origin& origin = OriginOf(writer);
        if (origin.way.to.kind == Destination::Kind::Remote && !PushSilence(source, writer.lastDue)) {
            origin.dropped.Add(1);
        }
    }
    for (std::uint64_t left = inputs; left != 0; left &= left - 1) {
        const int port = std::countr_zero(left);
        const int silencer = kSilencerBase + port;
        // One that waits for room says the same.
        if (!merger.IsWaiting(silencer)) {
            merger.EndWay(silencer, now, Destination::Input(port));
            PushSilence(silencer, now);  // its own room is enough
            merger.EndWay(silencer, now, Destination{});
        }
    }
}

// False when there is no room for all of it.
bool SourceTable::PushSilence(int source, std::uint64_t due) {
    for (std::size_t index = 0; index < kSilencingMessages; ++index) {
        const std::array<std::uint8_t, 3> message = SilencingMessage(index);
        if (!merger.Push(source, due, {message})) {
            return false;
        }
    }
    return true;
}

std::optional<int> SourceTable::TakeWriter(int port) {
    if (freeWriters.empty()) {
        return std::nullopt;
    }
    const int source = freeWriters.back();
    freeWriters.pop_back();
    Of(source) = {};
    Of(source).origin = static_cast<std::int16_t>(port);
    Of(source).isOpen = true;
    EndWay(source, 0);
    return source;
}

void SourceTable::GiveBack(int source, std::uint64_t now) {
    if (std::exchange(Of(source).isOpen, false)) {
        EndStream(source, now);
        leaving.push_back(source);
    }
}

void SourceTable::Suspect(std::int16_t origin) {
    if (std::find(suspects.begin(), suspects.end(), origin) == suspects.end()) {
        suspects.push_back(origin);
        suspicionsChanged = true;
    }
}

void SourceTable::Run(std::uint64_t end, EngineSink& inputSink, EngineSink& remoteSink, TurnLimit* limit) {
    suspicionsChanged |= std::erase_if(suspects, [&](std::int16_t origin) {
                             return !origins[static_cast<std::size_t>(origin)].watch.Look(end);
                         }) != 0;
    EndSilentExclusives(end);
    merger.Run(end, inputSink, remoteSink, limit);
    merger.TakeCut([this](int source) {
        Of(source).parser.SkipSystemExclusive();
        OriginOf(Of(source)).dropped.Add(1);
        if (Of(source).owesRelease) {
            EndWay(source, 0);
        }
    });
}

std::optional<std::uint64_t> SourceTable::NextDue() const {
    std::optional<std::uint64_t> due = merger.NextDue();
    for (const std::int16_t origin : suspects) {
        const std::uint64_t look = origins[static_cast<std::size_t>(origin)].watch.NextLook();
        due = std::min(due.value_or(look), look);
    }
    for (const int source : owing) {
        const std::uint64_t silence =
            sources[static_cast<std::size_t>(source)].exclusiveDue + kLongestSilence;
        due = std::min(due.value_or(silence), silence);
    }
    return due;
}

void SourceTable::Forget() {
    for (int source = 0; source < kSilencerBase; ++source) {
        Source& writer = Of(source);
        writer.parser.Reset();
        writer.owesRelease = false;
        OriginOf(writer).dropped.Add(merger.Forget(source));
    }
    for (int silencer = kSilencerBase; silencer < kSourceCount; ++silencer) {
        merger.Forget(silencer);  // nobody is there who would miss it
    }
    owing.clear();
    ForgetTimes();
}

void SourceTable::ForgetTimes() {
    for (int source = 0; source < kSourceCount; ++source) {
        // What is queued keeps its order.
        if (!merger.IsWaiting(source)) {
            Of(source).lastDue = 0;
        }
    }
    merger.ForgetTimes();
}

SourceCounters SourceTable::CountersOf(int source) const {
    const Origin& origin = origins[static_cast<std::size_t>(source)];
    return {origin.messages.Read(), origin.bytes.Read(), origin.filtered.Read(), origin.dropped.Read()};
}

}  // namespace vexil
