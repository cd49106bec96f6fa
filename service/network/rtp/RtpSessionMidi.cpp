// What a session plays and hears.
#include <algorithm>

#include "service/network/rtp/RtpSession.h"

namespace vexil {

namespace {

constexpr std::uint8_t kFirstRealtimeByte = 0xF8;
constexpr std::array<std::uint8_t, 1> kExclusiveEnd = {0xF7};
constexpr std::uint64_t kSecond = RtpSession::kSecond;
// As long as the peer has not said that the last commands have come, packets without any repeat the
// journal after these times, then every second.
constexpr std::array<std::uint64_t, 6> kGuardAfter = {25'000, 50'000, 100'000, 200'000, 400'000, 800'000};
// Peers that never say what has come are guarded so often.
constexpr std::uint32_t kMostGuards = 10;

bool IsRealtime(const MidiPiece& piece) {
    return !piece.systemExclusive && piece.bytes.front() >= kFirstRealtimeByte;
}

std::uint32_t TimestampAt(std::uint64_t time) {
    return static_cast<std::uint32_t>(RtpTicks(time));
}

}  // namespace

RtpTaken RtpSession::Send(std::uint64_t due, int source, const MidiPiece& piece) {
    if (!up || piece.bytes.empty()) {
        return RtpTaken::NotUp;
    }
    if (IsRealtime(piece) && exclusiveQueued != 0) {
        // It may stand inside the exclusive that waits for its turn.
        if (realtimeCount == realtime.size()) {
            return RtpTaken::NoRoom;
        }
        realtime[realtimeCount++] = piece.bytes.front();
        return RtpTaken::Taken;
    }
    const bool isAnothers = exclusiveSource >= 0 && exclusiveSource != source && !IsRealtime(piece);
    if (isAnothers || !queue.Fits(piece.bytes.size())) {
        return RtpTaken::NoRoom;
    }
    if (piece.systemExclusive) {
        if (!piece.first && exclusiveSource != source) {
            return RtpTaken::Taken;  // of a message whose beginning went before the connection
        }
        exclusiveSource = piece.last ? -1 : source;
        ++exclusiveQueued;
    }
    lastDue = std::max(lastDue, due);
    queue.Put({lastDue, piece.systemExclusive, piece.first, piece.last}, piece.bytes);
    return RtpTaken::Taken;
}

void RtpSession::EndSource(int source) {
    // Where there is no room the connection is so far behind that its end is near: the peer then ends what it
    // hears.
    if (exclusiveSource == source && up && queue.Fits(kExclusiveEnd.size())) {
        queue.Put({lastDue, true, false, true}, kExclusiveEnd);
        ++exclusiveQueued;
        exclusiveSource = -1;
    }
}

bool RtpSession::TakeFront() {
    Head head;
    if (!front && queue.Take(head, frontBytes)) {
        front = head;
    }
    return front.has_value();
}

std::uint64_t RtpSession::FrontTime() const {
    return front->exclusive ? std::max(front->due, exclusiveAt) : front->due;
}

// Adds what is in front of the queue, or as much of it as fits. False when nothing more is to come into this
// packet.
bool RtpSession::AddFront(std::uint64_t now, RtpPacketWriter& writer) {
    if (!TakeFront() || now < FrontTime()) {
        return false;
    }
    if (front->exclusive) {
        return AddExclusive(now, writer);
    }
    if (!AddMessage(now, frontBytes, writer)) {
        return false;
    }
    front.reset();
    return true;
}

bool RtpSession::AddExclusive(std::uint64_t now, RtpPacketWriter& writer) {
    if (!isFrontCut) {
        exclusiveOut.Take({frontBytes, true, front->first, front->last});
        segment = exclusiveOut.Next();
        isFrontCut = true;
    }
    if (segment) {
        if (!writer.AddSegment(TimestampAt(now), *segment)) {
            return false;
        }
        MidiPiece piece{segment->data, true, segment->first, segment->last};
        journalOut.Sent(TimestampAt(now), piece);
        const std::uint64_t bytes = segment->data.size() + 2;
        exclusiveAt = std::max(now, exclusiveAt) + bytes * kSecond / exclusiveRate;
        segment = exclusiveOut.Next();
    }
    if (!segment) {
        isFrontCut = false;
        front.reset();
        --exclusiveQueued;
    }
    return true;
}

bool RtpSession::IsPacketDue(std::uint64_t now) const {
    return realtimeCount != 0 || (front && now >= FrontTime()) || (guarding && now >= guardAt);
}

bool RtpSession::AddMessage(std::uint64_t now, ByteView message, RtpPacketWriter& writer) {
    if (!writer.AddMessage(TimestampAt(now), message)) {
        return false;
    }
    MidiPiece piece;
    piece.bytes = message;
    journalOut.Sent(TimestampAt(now), piece);
    sent.Heard(message);
    return true;
}

std::size_t RtpSession::WritePacket(std::uint64_t now, std::span<std::uint8_t> out) {
    const std::uint32_t timestamp = TimestampAt(now);
    std::array<std::uint8_t, kLongestJournal> journal;
    const std::size_t journalSize = journalOut.Write(timestamp, journal);
    RtpPacketWriter writer(out, {journalOut.NextSequence(), timestamp, ssrc}, journalSize);
    std::size_t added = 0;
    while (added < realtimeCount && AddMessage(now, std::span(realtime).subspan(added, 1), writer)) {
        ++added;
    }
    std::move(realtime.begin() + static_cast<std::ptrdiff_t>(added),
              realtime.begin() + static_cast<std::ptrdiff_t>(realtimeCount), realtime.begin());
    realtimeCount -= added;
    while (AddFront(now, writer)) {
    }
    guards = writer.HasCommands() ? 0 : guards + 1;
    const std::size_t size = writer.Finish(std::span(journal).first(journalSize));
    journalOut.EndPacket();
    guarding = journalOut.NeedsGuard() && guards < kMostGuards;
    guardAt = now + (guards < kGuardAfter.size() ? kGuardAfter[guards] : kSecond);
    NoteSounding();
    return size;
}

std::optional<RtpSession::Transmit> RtpSession::PollTransmit(std::uint64_t now, std::span<std::uint8_t> out) {
    if (pendingCount != 0) {
        Pending next = pending[0];
        std::move(pending.begin() + 1, pending.begin() + static_cast<std::ptrdiff_t>(pendingCount),
                  pending.begin());
        --pendingCount;
        const bool invites =
            next.command.kind == SessionCommandKind::Invitation && next.port == RtpPort::Control;
        return Transmit{WriteSessionCommand(next.command, out), next.port, invites};
    }
    if (up && (TakeFront() || guarding || realtimeCount != 0) && IsPacketDue(now)) {
        return Transmit{WritePacket(now, out), RtpPort::Data, false};
    }
    return std::nullopt;
}

void RtpSession::NoteSounding() {
    clock.SetSounding(!heard.IsAtRest() || !sent.IsAtRest());
}

void RtpSession::Hear(const MidiPiece& piece) {
    journalIn.Heard(piece);
    if (!piece.systemExclusive) {
        heard.Heard(piece.bytes);
    }
    mediator.Hear(piece);
}

void RtpSession::EndExclusive() {
    if (const std::optional<MidiPiece> end = exclusiveIn.End()) {
        ++counters.cutExclusive;
        Hear(*end);
    }
}

// What puts right what lost packets have left wrong. It is heard in front of the packet that ends the loss.
void RtpSession::Repair(ByteView message) {
    EndExclusive();
    heard.Heard(message);
    MidiPiece piece;
    piece.bytes = message;
    mediator.Hear(piece);
}

void RtpSession::HearPacket(std::uint64_t now, const RtpPacket& packet) {
    if (!up || packet.header.ssrc != peerSsrc) {
        return;
    }
    clock.Heard(now);
    const JournalReceiver::Arrival arrival = journalIn.Arrived(packet, *this);
    counters.missing = journalIn.Lost();
    if (arrival == JournalReceiver::Arrival::Old) {
        ++counters.late;
        return;
    }
    const bool hasGap = arrival != JournalReceiver::Arrival::Next;
    if (hasGap) {
        EndExclusive();
    }
    RtpCommandReader reader(packet, exclusiveIn);
    while (const std::optional<RtpCommand> command = reader.Next()) {
        Hear(command->piece);
    }
    counters.malformed += reader.IsMalformed() ? 1U : 0U;
    NoteFeedback(now, packet.list.empty() || hasGap);
    NoteSounding();
}

}  // namespace vexil
