#include "service/engine/MidiParser.h"

#include <algorithm>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

bool IsStatus(std::uint8_t byte) {
    return byte >= 0x80;
}

bool IsUndefinedRealtime(std::uint8_t byte) {
    return byte == 0xF9 || byte == 0xFD;
}

// Bytes of a message that is not system exclusive and not realtime; 0 where the status is undefined or ends
// an exclusive.
std::size_t LengthOf(std::uint8_t status) {
    switch (status) {
        case 0xF1:
        case 0xF3:
            return 2;
        case 0xF2:
            return 3;
        case 0xF6:
            return 1;
        case 0xF4:
        case 0xF5:
        case kEndOfExclusive:
            return 0;
        default:
            break;
    }
    const int kind = status >> 4;
    return kind == 0xC || kind == 0xD ? 2 : 3;
}

}  // namespace

std::optional<MidiPiece> MidiParser::Next(std::span<const std::uint8_t>& bytes) {
    while (!bytes.empty()) {
        const std::uint8_t byte = bytes.front();
        if (byte >= kFirstRealtime) {
            bytes = bytes.subspan(1);
            if (const std::optional<MidiPiece> piece = TakeRealtime(byte)) {
                return piece;
            }
            continue;
        }
        if (exclusive == Exclusive::Passing) {
            // Another status byte stays for the next call.
            return !IsStatus(byte) || byte == kEndOfExclusive ? TakeExclusive(bytes, false) : EndExclusive();
        }
        if (byte == kStartOfExclusive) {
            Reset();
            return TakeExclusive(bytes, true);
        }
        bytes = bytes.subspan(1);
        if (exclusive == Exclusive::Skipping && !IsStatus(byte)) {
            continue;
        }
        if (const std::optional<MidiPiece> piece = IsStatus(byte) ? TakeStatus(byte) : TakeData(byte)) {
            return piece;
        }
    }
    return std::nullopt;
}

std::optional<MidiPiece> MidiParser::NextOfExclusive(std::span<const std::uint8_t>& bytes) {
    while (!bytes.empty()) {
        const std::uint8_t byte = bytes.front();
        if (exclusive == Exclusive::Passing && byte < kFirstRealtime) {
            return !IsStatus(byte) || byte == kEndOfExclusive ? TakeExclusive(bytes, false) : EndExclusive();
        }
        if (byte == kStartOfExclusive) {
            Reset();
            return TakeExclusive(bytes, true);
        }
        bytes = bytes.subspan(1);
        if (byte >= kFirstRealtime) {
            if (exclusive == Exclusive::Passing) {
                if (const std::optional<MidiPiece> piece = TakeRealtime(byte)) {
                    return piece;
                }
            }
        } else if (IsStatus(byte)) {
            exclusive = Exclusive::None;
        }
    }
    return std::nullopt;
}

std::optional<MidiPiece> MidiParser::EndExclusive() {
    const bool isUnderWay = exclusive == Exclusive::Passing;
    exclusive = Exclusive::None;
    return isUnderWay ? std::optional<MidiPiece>(MidiPiece{kEndBytes, true, false, true}) : std::nullopt;
}

std::optional<MidiPiece> MidiParser::TakeRealtime(std::uint8_t byte) {
    if (IsUndefinedRealtime(byte)) {
        return std::nullopt;
    }
    realtime = byte;
    return MidiPiece{{&realtime, 1}};
}

// Takes what stands in front of the next status byte, an F7 included; `first`: the F0 in front as well.
MidiPiece MidiParser::TakeExclusive(std::span<const std::uint8_t>& bytes, bool first) {
    const std::size_t limit = std::min(bytes.size(), kLongestPiece);
    std::size_t length = first ? 1 : 0;
    while (length < limit && !IsStatus(bytes[length])) {
        ++length;
    }
    const bool last = length < limit && bytes[length] == kEndOfExclusive;
    if (last) {
        ++length;
    }
    const MidiPiece piece{bytes.first(length), true, first, last};
    bytes = bytes.subspan(length);
    exclusive = last ? Exclusive::None : Exclusive::Passing;
    return piece;
}

std::optional<MidiPiece> MidiParser::TakeStatus(std::uint8_t status) {
    exclusive = Exclusive::None;
    runningStatus = status < kStartOfExclusive ? status : 0;
    message[0] = status;
    have = 1;
    need = LengthOf(status);
    if (need > 1) {
        return std::nullopt;
    }
    have = 0;
    return need == 1 ? std::optional<MidiPiece>(MidiPiece{std::span(message).first(1)}) : std::nullopt;
}

std::optional<MidiPiece> MidiParser::TakeData(std::uint8_t data) {
    if (have == 0) {
        if (runningStatus == 0) {
            return std::nullopt;
        }
        message[0] = runningStatus;
        have = 1;
        need = LengthOf(runningStatus);
    }
    message[have++] = data;
    if (have < need) {
        return std::nullopt;
    }
    have = 0;
    return MidiPiece{std::span(message).first(need)};
}

void MidiParser::Reset() {
    have = 0;
    runningStatus = 0;
    exclusive = Exclusive::None;
}

void MidiParser::SkipSystemExclusive() {
    if (exclusive == Exclusive::Passing) {
        exclusive = Exclusive::Skipping;
    }
}

void MidiParser::EndRunningStatus() {
    runningStatus = 0;
}

}  // namespace vexil
