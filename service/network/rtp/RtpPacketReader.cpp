// Reads the packets of RtpCodec.h and their commands.
#include <algorithm>

#include "service/engine/MidiStatus.h"
#include "service/network/rtp/RtpBytes.h"
#include "service/network/rtp/RtpCodec.h"
#include "service/network/rtp/RtpForm.h"

namespace vexil {

namespace {

// How a system exclusive message, or a segment of it, ends in the list.
constexpr std::uint8_t kSegmentGoesOn = 0xF0;
constexpr std::uint8_t kCancelled = 0xF4;
constexpr std::uint8_t kEndWasDropped = 0xF5;  // the source had left out the F7

bool IsStatus(std::uint8_t byte) {
    return byte >= 0x80;
}

bool IsUndefinedRealtime(std::uint8_t byte) {
    return byte == 0xF9 || byte == 0xFD;
}

std::size_t DataBytesOfSystem(std::uint8_t status) {
    switch (status) {
        case 0xF1:
        case 0xF3:
            return 1;
        case 0xF2:
            return 2;
        default:
            return 0;
    }
}

// Without the padding that the last byte counts; null when it counts more than there is.
std::optional<ByteView> WithoutPadding(ByteView bytes) {
    if (bytes.empty() || bytes.back() == 0 || bytes.back() > bytes.size()) {
        return std::nullopt;
    }
    return bytes.first(bytes.size() - bytes.back());
}

// Passes over what may stand between the header and the content.
void SkipExtras(RtpByteReader& reader, std::uint8_t firstByte) {
    reader.TakeBytes(std::size_t{4} * (firstByte & rtp::kSourceCount));
    if ((firstByte & rtp::kHasExtension) != 0) {
        reader.TakeBytes(2);
        reader.TakeBytes(std::size_t{4} * reader.Take<std::uint16_t>());
    }
}

}  // namespace

std::optional<RtpPacket> ReadRtpPacket(ByteView datagram) {
    RtpByteReader reader(datagram);
    const std::uint8_t firstByte = reader.TakeByte();
    const std::uint8_t type = reader.TakeByte() & rtp::kPayloadTypeBits;
    RtpPacket packet;
    packet.header.sequence = reader.Take<std::uint16_t>();
    packet.header.timestamp = reader.Take<std::uint32_t>();
    packet.header.ssrc = reader.Take<std::uint32_t>();
    if (firstByte >> 6 != rtp::kVersion || type != rtp::kPayloadType) {
        return std::nullopt;
    }
    SkipExtras(reader, firstByte);
    if ((firstByte & rtp::kHasPadding) != 0) {
        const std::optional<ByteView> content = WithoutPadding(reader.Rest());
        if (reader.IsShort() || !content) {
            return std::nullopt;
        }
        reader = RtpByteReader(*content);
    }
    const std::uint8_t section = reader.TakeByte();
    std::size_t length = section & rtp::kLengthBits;
    if ((section & rtp::kLongLength) != 0) {
        length = length << 8 | reader.TakeByte();
    }
    packet.list = reader.TakeBytes(length);
    packet.listBeginsTimed = (section & rtp::kBeginsTimed) != 0;
    packet.hasJournal = (section & rtp::kHasJournal) != 0;
    if (packet.hasJournal) {
        packet.journal = reader.Rest();
    }
    return reader.IsShort() ? std::nullopt : std::optional(packet);
}

std::optional<MidiPiece> ExclusiveInput::End() {
    const bool was = isUnderWay;
    isUnderWay = false;
    return was ? std::optional(MidiPiece{kEndBytes, true, false, true}) : std::nullopt;
}

RtpCommandReader::RtpCommandReader(const RtpPacket& packet, ExclusiveInput& input)
    : rest(packet.list),
      exclusive(input),
      timestamp(packet.header.timestamp),
      isTimed(packet.listBeginsTimed) {}

std::optional<RtpCommand> RtpCommandReader::Next() {
    while (!rest.empty()) {
        std::optional<MidiPiece> piece;
        if (isInSegment) {
            piece = TakeExclusive();
        } else if (isTimed && !TakeDelta()) {
            piece = Fail();
        } else if (!rest.empty()) {  // a delta time may stand alone at the end: time without commands
            isTimed = true;
            piece = TakeCommand();
        }
        if (piece) {
            return RtpCommand{timestamp, *piece};
        }
    }
    return std::nullopt;
}

bool RtpCommandReader::TakeDelta() {
    std::uint32_t delta = 0;
    for (std::size_t place = 0; place < rtp::kMostDeltaBytes && place < rest.size(); ++place) {
        delta = delta << 7 | (rest[place] & 0x7FU);
        if (!IsStatus(rest[place])) {
            timestamp += delta;
            rest = rest.subspan(place + 1);
            return true;
        }
    }
    return false;
}

std::optional<MidiPiece> RtpCommandReader::TakeCommand() {
    const std::uint8_t byte = rest.front();
    if (byte >= kFirstRealtime) {
        rest = rest.subspan(1);
        return IsUndefinedRealtime(byte) ? std::nullopt : Message(byte, 0);
    }
    if (exclusive.IsUnderWay() && byte != kEndOfExclusive) {
        isTimed = false;  // the command itself is next
        return exclusive.End();
    }
    if (byte < kStartOfExclusive) {
        return TakeChannelMessage(byte);
    }
    runningStatus = 0;
    if (byte == kStartOfExclusive || byte == kEndOfExclusive) {
        isInSegment = true;
        isFirst = byte == kStartOfExclusive;
        if (!isFirst) {
            rest = rest.subspan(1);
        }
        return std::nullopt;
    }
    rest = rest.subspan(1);
    return TakeSystemMessage(byte);
}

std::optional<MidiPiece> RtpCommandReader::TakeChannelMessage(std::uint8_t byte) {
    if (IsStatus(byte)) {
        runningStatus = byte;
        rest = rest.subspan(1);
    } else if (runningStatus == 0) {
        return Fail();
    }
    const int kind = runningStatus >> 4;
    return Message(runningStatus, kind == 0xC || kind == 0xD ? 1 : 2);
}

std::optional<MidiPiece> RtpCommandReader::TakeSystemMessage(std::uint8_t status) {
    if (status != kCancelled && status != kEndWasDropped) {
        return Message(status, DataBytesOfSystem(status));
    }
    // An undefined message of any length; an F7 ends it.
    const auto end = std::find_if(rest.begin(), rest.end(), IsStatus);
    if (end == rest.end() || *end != kEndOfExclusive) {
        return Fail();
    }
    rest = rest.subspan(static_cast<std::size_t>(end - rest.begin()) + 1);
    return std::nullopt;
}

// Bytes of a system exclusive message are next. The F0 in front of the first ones is still there.
std::optional<MidiPiece> RtpCommandReader::TakeExclusive() {
    const std::uint8_t front = rest.front();
    if (front >= kFirstRealtime) {
        rest = rest.subspan(1);
        return IsUndefinedRealtime(front) ? std::nullopt : Message(front, 0);
    }
    const std::size_t limit = std::min(rest.size(), kLongestPiece);
    std::size_t length = isFirst ? 1 : 0;
    while (length < limit && !IsStatus(rest[length])) {
        ++length;
    }
    // At the limit of a piece the message just goes on, also where its end is next.
    const std::uint8_t tail = length < limit ? rest[length] : kFirstRealtime;
    const bool isEnd = tail == kEndOfExclusive;
    const bool isDropped = tail == kCancelled || tail == kEndWasDropped;
    bool isTail = isEnd || isDropped || tail == kSegmentGoesOn;
    if (!isTail && tail < kFirstRealtime) {
        return Fail();
    }
    const bool isHeard = isFirst ? tail != kCancelled : exclusive.IsUnderWay();
    if (isHeard && tail == kEndWasDropped && length > 0) {
        isTail = false;  // it comes by itself, and its end then comes out so
    }
    const MidiPiece piece{rest.first(length + (isEnd ? 1 : 0)), true, isFirst, isEnd};
    rest = rest.subspan(length + (isTail ? 1 : 0));
    isInSegment = !isTail;
    isFirst = false;
    if (isTail && isDropped) {
        return exclusive.End();
    }
    exclusive.isUnderWay = isHeard && !isEnd;
    return isHeard && !piece.bytes.empty() ? std::optional(piece) : std::nullopt;
}

std::optional<MidiPiece> RtpCommandReader::Message(std::uint8_t status, std::size_t dataBytes) {
    if (rest.size() < dataBytes ||
        std::any_of(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(dataBytes), IsStatus)) {
        return Fail();
    }
    message[0] = status;
    std::copy_n(rest.begin(), dataBytes, message.begin() + 1);
    rest = rest.subspan(dataBytes);
    return MidiPiece{ByteView(message).first(dataBytes + 1)};
}

// What follows cannot be read. A system exclusive that is under way ends here.
std::optional<MidiPiece> RtpCommandReader::Fail() {
    malformed = true;
    rest = {};
    return exclusive.End();
}

}  // namespace vexil
