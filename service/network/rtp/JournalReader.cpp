#include "service/network/rtp/JournalReader.h"

#include "service/network/rtp/JournalForm.h"

namespace vexil::rtp {

namespace {

// A length of 10 bits, in the low bits of two bytes.
std::size_t LengthIn(std::uint16_t bits) {
    return bits & kLongestLength;
}

// A byte with the number of logs less one, then the logs.
ByteView TakeLogs(RtpByteReader& reader) {
    const std::size_t count = (reader.TakeByte() & kDataBits) + std::size_t{1};
    return reader.TakeBytes(count * kLogSize);
}

// False when it is malformed.
bool TakeNotes(RtpByteReader& reader, ChannelJournal& journal) {
    std::size_t logs = reader.TakeByte() & kDataBits;
    const std::uint8_t range = reader.TakeByte();
    const std::size_t low = range >> 4;
    const std::size_t high = range & 0x0F;
    if (low > high && range != kNoOffs && range != kNoOffsAnd127Logs) {
        return false;
    }
    if (logs == 127 && range == kNoOffs) {
        logs = 128;
    }
    journal.notes = reader.TakeBytes(logs * kLogSize);
    journal.firstOff = low * 8;
    if (low <= high) {
        journal.offs = reader.TakeBytes(high - low + 1);
    }
    return true;
}

bool TakeParameters(RtpByteReader& reader, ChannelJournal& journal) {
    const auto header = reader.Take<std::uint16_t>();
    const std::size_t length = LengthIn(header);
    if (length < kParametersHeaderSize) {
        return false;
    }
    journal.hasParameters = true;
    journal.parameterFlags = static_cast<std::uint8_t>(header >> 8);
    journal.parameters = reader.TakeBytes(length - kParametersHeaderSize);
    ParameterLogReader logs(journal);
    while (logs.Next()) {
    }
    return !logs.IsMalformed();
}

// One channel journal: null when it is malformed.
std::optional<ChannelJournal> TakeChannel(RtpByteReader& reader) {
    const auto header = reader.Take<std::uint16_t>();
    const std::size_t length = LengthIn(header);
    if (length < kChannelHeaderSize) {
        return std::nullopt;
    }
    RtpByteReader chapters(reader.TakeBytes(length - 2));
    const std::uint8_t contents = chapters.TakeByte();
    ChannelJournal journal;
    journal.channel = header >> 11 & 0x0F;
    bool sound = true;
    if ((contents & kHasProgram) != 0) {
        journal.program = chapters.TakeBytes(kProgramSize);
    }
    if ((contents & kHasControllers) != 0) {
        journal.controllers = TakeLogs(chapters);
    }
    if ((contents & kHasParameters) != 0) {
        sound = TakeParameters(chapters, journal);
    }
    if ((contents & kHasBend) != 0) {
        journal.bend = chapters.TakeBytes(2);
    }
    if ((contents & kHasNotes) != 0) {
        sound = TakeNotes(chapters, journal) && sound;
    }
    if ((contents & kHasNoteExtras) != 0) {
        journal.noteExtras = TakeLogs(chapters);
    }
    if ((contents & kHasPressure) != 0) {
        journal.pressure = chapters.TakeBytes(1);
    }
    if ((contents & kHasPolyPressure) != 0) {
        journal.polyPressure = TakeLogs(chapters);
    }
    return sound && !chapters.IsShort() ? std::optional(journal) : std::nullopt;
}

int ButtonsIn(std::uint16_t bits) {
    const int count = bits & kMostButtons;
    return (bits & kButtonsBelowZero) != 0 ? -count : count;
}

}  // namespace

std::optional<JournalReader> JournalReader::Open(ByteView journal) {
    JournalReader opened(journal);
    const std::uint8_t flags = opened.rest.TakeByte();
    opened.checkpoint = opened.rest.Take<std::uint16_t>();
    if ((flags & kHasSystem) != 0 && !opened.TakeSystem()) {
        return std::nullopt;
    }
    if ((flags & kHasChannels) != 0) {
        opened.channelsLeft = (flags & 0x0F) + std::size_t{1};
    }
    JournalReader checked = opened;
    for (std::size_t channel = 0; channel < opened.channelsLeft; ++channel) {
        if (!TakeChannel(checked.rest)) {
            return std::nullopt;
        }
    }
    return checked.rest.IsShort() ? std::nullopt : std::optional(opened);
}

// The system journal. Of its chapters only D is looked at, which is the first; the length passes over the
// others.
bool JournalReader::TakeSystem() {
    const auto header = rest.Take<std::uint16_t>();
    const std::size_t length = LengthIn(header);
    if (length < kSystemHeaderSize) {
        return false;
    }
    RtpByteReader chapters(rest.TakeBytes(length - kSystemHeaderSize));
    if ((header >> 8 & kHasSimple) != 0) {
        const std::uint8_t contents = chapters.TakeByte();
        const auto take = [&](std::uint8_t bit, std::optional<SystemLog>& log) {
            if ((contents & bit) != 0) {
                const std::uint8_t byte = chapters.TakeByte();
                log = SystemLog{(byte & kOlder) != 0, static_cast<std::uint8_t>(byte & kDataBits)};
            }
        };
        take(kHasReset, resets);
        take(kHasTuneRequest, tuneRequests);
        take(kHasSong, song);
    }
    return !chapters.IsShort();
}

std::optional<ChannelJournal> JournalReader::NextChannel() {
    if (channelsLeft == 0) {
        return std::nullopt;
    }
    --channelsLeft;
    return TakeChannel(rest);
}

ParameterLogReader::ParameterLogReader(const ChannelJournal& journal)
    : rest(journal.parameters), flags(journal.parameterFlags) {
    if (journal.hasParameters && (flags & kHasPending) != 0) {
        const std::uint8_t byte = rest.TakeByte();
        pending =
            ParameterNumber{(byte & kUnregistered) != 0, static_cast<std::uint8_t>(byte & kDataBits), 0};
    }
}

bool ParameterLogReader::IsInTransaction() const {
    return (flags & kInTransaction) != 0;
}

std::optional<ParameterLog> ParameterLogReader::Next() {
    if (rest.Rest().empty() || rest.IsShort()) {
        return std::nullopt;
    }
    ParameterLog log;
    log.number.low = rest.TakeByte() & kDataBits;
    const bool isShortForm =
        (flags & kAllBelow128) != 0 && (flags & (kAllRegistered | kAllUnregistered)) != 0;
    if (isShortForm) {
        log.number.isUnregistered = (flags & kAllRegistered) == 0;
    } else {
        const std::uint8_t high = rest.TakeByte();
        log.number.isUnregistered = (high & kUnregistered) != 0;
        log.number.high = high & kDataBits;
    }
    const std::uint8_t contents = rest.TakeByte();
    if ((contents & kHasEntryHigh) != 0) {
        log.entryHigh = rest.TakeByte() & kDataBits;
    }
    if ((contents & kHasEntryLow) != 0) {
        log.entryLow = rest.TakeByte() & kDataBits;
    }
    if ((contents & kHasButtons) != 0) {
        log.buttons = ButtonsIn(rest.Take<std::uint16_t>());
    }
    if ((contents & kHasButtonsSinceReset) != 0) {
        rest.Take<std::uint16_t>();  // those before it, which are in the field in front as well, count the
                                     // same
    }
    if ((contents & kHasTransactionCount) != 0) {
        rest.TakeByte();
    }
    return rest.IsShort() ? std::nullopt : std::optional(log);
}

}  // namespace vexil::rtp
