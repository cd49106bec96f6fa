// Writes the packets of RtpCodec.h.
#include <algorithm>

#include "service/engine/MidiStatus.h"
#include "service/network/Require.h"
#include "service/network/rtp/RtpBytes.h"
#include "service/network/rtp/RtpCodec.h"
#include "service/network/rtp/RtpForm.h"

namespace vexil {

namespace {

std::size_t DeltaSize(std::uint32_t delta) {
    std::size_t bytes = 1;
    while (delta >= 0x80) {
        delta >>= 7;
        ++bytes;
    }
    return bytes;
}

}  // namespace

void ExclusiveOutput::Take(const MidiPiece& piece) {
    rest = piece.bytes;
    isFirst = isFirst || piece.first;
    if (piece.first && !rest.empty() && rest.front() == kStartOfExclusive) {
        rest = rest.subspan(1);
    }
    endsMessage = piece.last;
    if (piece.last && !rest.empty() && rest.back() == kEndOfExclusive) {
        rest = rest.first(rest.size() - 1);
    }
}

std::optional<ExclusiveSegment> ExclusiveOutput::Next() {
    if (rest.empty() && !endsMessage) {
        return std::nullopt;
    }
    const std::size_t length = std::min(rest.size(), kLongestSegmentData);
    const bool last = endsMessage && length == rest.size();
    const ExclusiveSegment segment{rest.first(length), isFirst, last};
    rest = rest.subspan(length);
    endsMessage = endsMessage && !last;
    isFirst = false;
    return segment;
}

RtpPacketWriter::RtpPacketWriter(std::span<std::uint8_t> out, const RtpHeader& header,
                                 std::size_t journalRoom)
    : buffer(out), last(header.timestamp) {
    Require(out.size() >= kSmallestRtpPacket, "a packet has room for its header");
    const std::size_t room = out.size() - std::min(journalRoom, out.size());
    limit = std::clamp(room, kListPlace, kListPlace + rtp::kLongestListSize);
    RtpByteWriter writer(out);
    writer.PutByte(rtp::kVersion << 6);
    writer.PutByte(rtp::kPayloadType);
    writer.Put(header.sequence);
    writer.Put(header.timestamp);
    writer.Put(header.ssrc);
}

// Writes the delta time of a command when there is room for both.
bool RtpPacketWriter::BeginCommand(std::uint32_t timestamp, std::size_t commandSize) {
    const bool isLater = static_cast<std::int32_t>(timestamp - last) > 0;
    const std::uint32_t delta = isLater ? timestamp - last : 0;
    const bool isWritten = HasCommands() || delta > 0;
    const std::size_t deltaSize = isWritten ? DeltaSize(delta) : 0;
    if (delta > rtp::kLongestDelta || limit - size < deltaSize + commandSize) {
        return false;
    }
    if (!HasCommands()) {
        beginsTimed = isWritten;
    }
    for (std::size_t byte = deltaSize; byte > 0; --byte) {
        PutByte(static_cast<int>(delta >> (7 * (byte - 1)) & 0x7F) | (byte > 1 ? 0x80 : 0));
    }
    last += delta;
    return true;
}

void RtpPacketWriter::PutBytes(ByteView bytes) {
    std::copy(bytes.begin(), bytes.end(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
    size += bytes.size();
}

bool RtpPacketWriter::AddMessage(std::uint32_t timestamp, ByteView message) {
    if (!BeginCommand(timestamp, message.size())) {
        return false;
    }
    PutBytes(message);
    return true;
}

bool RtpPacketWriter::AddSegment(std::uint32_t timestamp, const ExclusiveSegment& segment) {
    if (!BeginCommand(timestamp, segment.data.size() + 2)) {
        return false;
    }
    PutByte(segment.first ? kStartOfExclusive : kEndOfExclusive);
    PutBytes(segment.data);
    PutByte(segment.last ? kEndOfExclusive : kStartOfExclusive);
    return true;
}

std::size_t RtpPacketWriter::Finish(ByteView journal) {
    const std::size_t listSize = size - kListPlace;
    const bool isLong = listSize > rtp::kShortListSize;
    if (isLong) {
        buffer[rtp::kHeaderSize + 1] = static_cast<std::uint8_t>(listSize);
    } else {
        std::copy_n(buffer.begin() + kListPlace, listSize, buffer.begin() + kListPlace - 1);
        --size;
    }
    buffer[rtp::kHeaderSize] = static_cast<std::uint8_t>(
        (isLong ? rtp::kLongLength | listSize >> 8 : listSize) | (journal.empty() ? 0U : rtp::kHasJournal) |
        (beginsTimed ? rtp::kBeginsTimed : 0U));
    Require(journal.size() <= buffer.size() - size, "the journal has its room");
    PutBytes(journal);
    return size;
}

}  // namespace vexil
