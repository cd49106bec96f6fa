#include "service/network/rtp/JournalSender.h"

#include <algorithm>

#include "service/network/Require.h"
#include "service/network/rtp/JournalForm.h"
#include "service/network/rtp/RtpCodec.h"

namespace vexil {

namespace {

// So that no packet has the number 0.
constexpr std::uint64_t kFirstRound = 0x10000;

}  // namespace

JournalSender::JournalSender(std::uint16_t firstSequence)
    : next(kFirstRound + firstSequence), checkpoint(next), confirmed(next - 1) {}

std::size_t JournalSender::Write(std::uint32_t timestamp, std::span<std::uint8_t> out) {
    Require(out.size() >= kSmallestJournal, "a journal has room for its header");
    std::size_t size = TryWrite(timestamp, out);
    while (size == 0) {
        MoveCheckpoint(checkpoint + (next - checkpoint + 7) / 8);
        size = TryWrite(timestamp, out);
    }
    return size;
}

void JournalSender::Sent(std::uint32_t timestamp, const MidiPiece& piece) {
    lastCommand = next;
    if (piece.systemExclusive) {
        if (resetMessage.IsEndedBy(piece)) {
            ResetAll();
        }
    } else if (piece.bytes[0] >= rtp::kFirstSystemStatus) {
        SentSystem(next, piece.bytes);
    } else {
        rtp::JournalChannel& channel = channels[piece.bytes[0] & 0x0F];
        channel.Sent(next, timestamp, piece.bytes);
        if (channel.CompleteFrom() > checkpoint) {
            MoveCheckpoint(channel.CompleteFrom());
        }
    }
}

void JournalSender::SentSystem(std::uint64_t packet, ByteView message) {
    const auto count = [packet](Counted& counted) {
        counted = {packet, static_cast<std::uint8_t>((counted.value + 1) & rtp::kDataBits)};
    };
    switch (message[0]) {
        case rtp::kSystemReset:
            ResetAll();
            count(resets);
            break;
        case rtp::kTuneRequest:
            count(tuneRequests);
            break;
        case rtp::kSongSelect:
            song = {packet, message[1]};
            break;
        default:
            break;
    }
}

void JournalSender::ResetAll() {
    for (rtp::JournalChannel& channel : channels) {
        channel.Reset();
    }
    tuneRequests.packet = 0;
    song.packet = 0;
}

void JournalSender::MoveCheckpoint(std::uint64_t packet) {
    checkpoint = packet;
    for (rtp::JournalChannel& channel : channels) {
        channel.DropBefore(packet);
    }
    for (Counted* counted : {&resets, &tuneRequests, &song}) {
        if (counted->packet < packet) {
            counted->packet = 0;
        }
    }
}

bool JournalSender::Confirm(std::uint32_t feedback) {
    const std::uint64_t newest = next - 1;
    const auto sequence = FeedbackSequence(feedback, static_cast<std::uint16_t>(newest));
    const std::uint64_t packet = newest - static_cast<std::uint16_t>(newest - sequence);
    if (packet <= confirmed) {
        return false;
    }
    confirmed = packet;
    if (packet >= checkpoint) {
        MoveCheckpoint(packet + 1);
    }
    return true;
}

std::size_t JournalSender::TryWrite(std::uint32_t timestamp, std::span<std::uint8_t> out) const {
    RtpByteWriter writer(out.first(std::min(out.size(), kLongestJournal)));
    writer.PutByte(0);
    writer.Put(static_cast<std::uint16_t>(checkpoint));
    const rtp::JournalTime time{next - 1, timestamp};
    bool older = true;
    bool fits = true;
    if (HasSystem()) {
        older = WriteSystem(time.newest, writer);
    }
    int count = 0;
    for (std::size_t number = 0; number < channels.size(); ++number) {
        if (!channels[number].IsEmpty()) {
            older = channels[number].Write(static_cast<int>(number), time, writer, fits) && older;
            ++count;
        }
    }
    if (writer.IsCut() || !fits) {
        return 0;
    }
    writer.At(0) = static_cast<std::uint8_t>((older ? rtp::kOlder : 0) | (HasSystem() ? rtp::kHasSystem : 0) |
                                             (count > 0 ? rtp::kHasChannels | (count - 1) : 0));
    return writer.Size();
}

// The system journal, with chapter D alone. Whether nothing in it is new.
bool JournalSender::WriteSystem(std::uint64_t newest, RtpByteWriter& writer) const {
    const std::size_t place = writer.Size();
    writer.Put(std::uint16_t{0});
    writer.PutByte(0);
    bool older = true;
    const auto log = [&](const Counted& counted) {
        if (counted.packet != 0) {
            const bool isOlder = counted.packet != newest;
            writer.PutByte((isOlder ? rtp::kOlder : 0) | counted.value);
            older = older && isOlder;
        }
    };
    log(resets);
    log(tuneRequests);
    log(song);
    if (!writer.IsCut()) {
        const int olderBit = older ? rtp::kOlder : 0;
        writer.At(place) = static_cast<std::uint8_t>(olderBit | rtp::kHasSimple);
        writer.At(place + 1) = static_cast<std::uint8_t>(writer.Size() - place);
        writer.At(place + 2) = static_cast<std::uint8_t>(
            olderBit | (resets.packet != 0 ? rtp::kHasReset : 0) |
            (tuneRequests.packet != 0 ? rtp::kHasTuneRequest : 0) | (song.packet != 0 ? rtp::kHasSong : 0));
    }
    return older;
}

}  // namespace vexil
