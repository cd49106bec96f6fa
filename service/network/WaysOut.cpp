#include "service/network/WaysOut.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::size_t kQueuedRecords = 4096;
constexpr std::size_t kQueuedPieceBytes = std::size_t{64} << 10;
// Every record fits into a small datagram, so that no record is stuck where only those pass.
constexpr std::size_t kLongestPart = kSmallLinkPiece;
// What a part takes up at most, on the wire and in a store.
constexpr std::size_t kPlaceOfPart = 512;

LinkRecord RecordOfWay(RecordType type, std::size_t way) {
    LinkRecord record;
    record.type = type;
    record.source = static_cast<std::uint8_t>(way / kLinkInputs);
    record.input = static_cast<std::uint8_t>(way % kLinkInputs);
    return record;
}

}  // namespace

WaysOut::WaysOut() : queue(kQueuedRecords, kQueuedPieceBytes) {}

void WaysOut::Begin(std::uint64_t now) {
    Stop();
    up = true;
    ways.Clear();
    for (std::size_t way = wanted.NextFrom(0); way < kLinkWays; way = wanted.NextFrom(way + 1)) {
        ways[way].onWire = true;
        ways[way].lastDue = now;
        Number(ways[way], RecordOfWay(RecordType::OpenWay, way), now);
    }
}

void WaysOut::Stop() {
    up = false;
    queue.Clear();
    window.Reset();
    cutWays.Clear();
    queuedParts = 0;
}

void WaysOut::Open(std::uint64_t now, std::uint8_t source, std::uint8_t input) {
    const std::size_t index = WayIndex(source, input);
    if (wanted.Has(index)) {
        return;
    }
    wanted.Add(index);
    if (up) {
        Way& way = ways[index];
        way.problem = WayProblem::None;
        way.skipsExclusive = true;
        way.lastDue = std::max(way.lastDue, now);
        if (!Enqueue(way.lastDue, RecordOfWay(RecordType::OpenWay, index))) {
            Cut(way, index);
        }
    }
}

void WaysOut::End(std::uint64_t now, std::uint8_t source, std::uint8_t input) {
    const std::size_t index = WayIndex(source, input);
    if (!wanted.Has(index)) {
        return;
    }
    wanted.Remove(index);
    if (up) {
        Way& way = ways[index];
        way.lastDue = std::max(way.lastDue, now);
        if (!Enqueue(way.lastDue, RecordOfWay(RecordType::EndOfWay, index))) {
            Cut(way, index);
        }
    }
}

bool WaysOut::Enqueue(std::uint64_t due, const LinkRecord& record) {
    if (!queue.HasRoom(record)) {
        return false;
    }
    Way& way = Of(record.source, record.input);
    queue.Push(due, record);
    ++way.queued;
    if (record.type == RecordType::Piece) {
        way.queuedBytes += static_cast<std::uint32_t>(record.bytes.size());
        ++queuedParts;
    }
    return true;
}

std::size_t WaysOut::PieceRoom(std::uint8_t source, std::uint8_t input) const {
    const Way& way = ways[WayIndex(source, input)];
    const std::int32_t credit = Distance(way.pieceLimit, way.pieceBytes + way.queuedBytes);
    if (!up || credit <= 0) {
        return 0;
    }
    // Whatever is in the queue finds its place in the window.
    const std::size_t partsInWindow = window.PieceRoom() / kPlaceOfPart;
    const std::size_t free = partsInWindow > queuedParts ? partsInWindow - queuedParts : 0;
    const std::size_t parts = std::min(queue.PieceRoom() / kPlaceOfPart, free);
    return std::min(parts * kLongestPart, static_cast<std::size_t>(credit));
}

WayResult WaysOut::Send(std::uint64_t due, std::uint8_t source, std::uint8_t input, const MidiPiece& piece) {
    const std::size_t index = WayIndex(source, input);
    Way& way = ways[index];
    if (!wanted.Has(index) || way.problem != WayProblem::None) {
        return WayResult::NotOpen;
    }
    if (!up || piece.bytes.empty()) {
        return WayResult::NotUp;
    }
    way.lastDue = std::max(way.lastDue, due);
    LinkRecord record = RecordOfWay(piece.systemExclusive ? RecordType::Piece : RecordType::Message, index);
    record.bytes = piece.bytes;
    record.first = piece.first;
    record.last = piece.last;
    if (piece.systemExclusive) {
        return SendPiece(way.lastDue, way, record);
    }
    if (way.cut || !Enqueue(way.lastDue, record)) {
        ++lost;
        Cut(way, index);
        return WayResult::Lost;
    }
    return WayResult::Taken;
}

WayResult WaysOut::SendPiece(std::uint64_t due, Way& way, LinkRecord record) {
    way.skipsExclusive = way.skipsExclusive && !record.first;
    if (way.skipsExclusive || way.cut) {
        way.skipsExclusive = true;
        ++lost;
        return WayResult::Lost;
    }
    const ByteView whole = record.bytes;
    if (PieceRoom(record.source, record.input) < whole.size()) {
        way.skipsExclusive = record.first;  // it comes again, from its beginning
        return WayResult::NoRoom;
    }
    const bool first = record.first;
    const bool last = record.last;
    for (std::size_t at = 0; at < whole.size(); at += kLongestPart) {
        record.bytes = whole.subspan(at, std::min(kLongestPart, whole.size() - at));
        record.first = first && at == 0;
        record.last = last && at + record.bytes.size() == whole.size();
        if (!Enqueue(due, record)) {
            ++lost;
            Cut(way, WayIndex(record.source, record.input));
            return WayResult::Lost;
        }
    }
    return WayResult::Taken;
}

void WaysOut::TakeState(std::uint8_t source, std::uint8_t input, const WayStateContent& state) {
    Way& way = Of(source, input);
    way.problem = state.problem;
    way.pieceLimit = Distance(state.pieceLimit, way.pieceLimit) > 0 ? state.pieceLimit : way.pieceLimit;
}

void WaysOut::Cut(Way& way, std::size_t index) {
    cutCount += way.cut ? 0U : 1U;
    way.cut = true;
    cutWays.Add(index);
}

void WaysOut::MoveDue(std::uint64_t now) {
    while (!queue.IsEmpty() && queue.FrontDue() <= now) {
        MoveOne(now, queue.Front(scratch), queue.FrontDue());
        queue.Pop();
    }
    if (!cutWays.IsEmpty() && window.IsRelaxed()) {
        Reopen(now);
    }
}

void WaysOut::MoveOne(std::uint64_t now, const LinkRecord& record, std::uint64_t due) {
    const std::size_t index = WayIndex(record.source, record.input);
    Way& way = ways[index];
    const bool isMusic = record.type == RecordType::Message || record.type == RecordType::Piece;
    --way.queued;
    if (record.type == RecordType::Piece) {
        way.queuedBytes -= static_cast<std::uint32_t>(record.bytes.size());
        --queuedParts;
    }
    if (!way.cut && !window.HasRoom(record)) {
        Cut(way, index);
    }
    if (way.cut) {
        lost += isMusic ? 1U : 0U;
        return;
    }
    if (isMusic && !way.onWire) {
        return;  // its way was ended while it waited
    }
    if (!isMusic) {
        way.onWire = record.type == RecordType::OpenWay;
    }
    if (record.type == RecordType::Piece) {
        way.pieceBytes += static_cast<std::uint32_t>(record.bytes.size());
    }
    Number(way, record, std::min(due, now));
}

void WaysOut::Number(Way& way, LinkRecord record, std::uint64_t due) {
    record.number = way.number++;
    window.Push(record, static_cast<std::uint32_t>(due));
}

// Ends the ways that lost a message, and opens them again where they are wanted.
void WaysOut::Reopen(std::uint64_t now) {
    for (std::size_t index = cutWays.NextFrom(0); index < kLinkWays; index = cutWays.NextFrom(index + 1)) {
        Way& way = ways[index];
        const LinkRecord end = RecordOfWay(RecordType::EndOfWay, index);
        if (way.queued != 0) {
            continue;
        }
        if (!window.HasRoom(end)) {
            return;
        }
        if (way.onWire) {
            Number(way, end, now);
        }
        way.onWire = wanted.Has(index);
        if (way.onWire) {
            Number(way, RecordOfWay(RecordType::OpenWay, index), now);
        }
        way.cut = false;
        way.skipsExclusive = true;
        cutWays.Remove(index);
    }
}

bool WaysOut::PushNow(std::uint64_t now, const LinkRecord& record) {
    if (!up || !window.HasRoom(record)) {
        return false;
    }
    window.Push(record, static_cast<std::uint32_t>(now));
    return true;
}

std::optional<std::uint64_t> WaysOut::NextDue() const {
    return queue.IsEmpty() ? std::nullopt : std::optional(queue.FrontDue());
}

}  // namespace vexil
