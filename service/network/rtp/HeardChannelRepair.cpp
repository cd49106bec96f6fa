// How a channel journal puts right what was heard on a channel.
#include <algorithm>
#include <cstdlib>

#include "service/network/rtp/HeardChannel.h"
#include "service/network/rtp/JournalForm.h"

namespace vexil::rtp {

namespace {

constexpr std::uint8_t kPedals[] = {64, 66, 67, 69};  // sustain, sostenuto, soft, second hold
constexpr std::uint8_t kFullyOn = 127;
constexpr int kMostSteps = 127;  // of data increment or decrement that are played one after another

// A log of two bytes: a bit and a number, a bit and a value.
struct Log {
    bool older;
    std::uint8_t number;
    bool flag;
    std::uint8_t value;
    std::uint8_t second;  // the second byte whole
};

template <class Take>
void ForEachLog(ByteView logs, Take take) {
    for (; logs.size() >= kLogSize; logs = logs.subspan(kLogSize)) {
        take(Log{(logs[0] & kOlder) != 0, static_cast<std::uint8_t>(logs[0] & kDataBits),
                 (logs[1] & 0x80) != 0, static_cast<std::uint8_t>(logs[1] & kDataBits), logs[1]});
    }
}

bool HasOff(const ChannelJournal& journal, std::size_t note) {
    const std::size_t bit = note - journal.firstOff;
    return note >= journal.firstOff && bit / 8 < journal.offs.size() &&
           (journal.offs[bit / 8] & 0x80 >> bit % 8) != 0;
}

bool HasLog(ByteView logs, std::size_t number) {
    bool found = false;
    ForEachLog(logs, [&](const Log& log) { found = found || log.number == number; });
    return found;
}

// The velocity with which a note was ended.
int ReleaseOf(const ChannelJournal& journal, std::size_t note) {
    int velocity = kPlainRelease;
    ForEachLog(journal.noteExtras, [&](const Log& log) {
        if (log.flag && log.number == note) {
            velocity = log.value;
        }
    });
    return velocity;
}

}  // namespace

void HeardChannel::Play(const Player& player, std::uint8_t kind, std::size_t first, int second) {
    const bool isShort = kind == kProgramChange || kind == kPressure;
    const std::array<std::uint8_t, 3> bytes = {static_cast<std::uint8_t>(kind | player.channel),
                                               static_cast<std::uint8_t>(first),
                                               static_cast<std::uint8_t>(second)};
    const ByteView message = ByteView(bytes).first(isShort ? 2 : 3);
    player.listener.Repair(message);
    Heard(message);
}

void HeardChannel::RepairReleases(const ChannelJournal& journal, bool isSingle, RepairListener& listener) {
    const Player player{journal.channel, listener};
    // Whether a pedal was down as all notes ended is not said: they end before it may be.
    const bool haveAllEnded = IsCountLost(journal, isSingle, EndsNotes);
    for (std::size_t note = 0; note < kNumbers; ++note) {
        if (velocities[note] != 0 && (haveAllEnded || HasOff(journal, note))) {
            Play(player, kNoteOff, note, ReleaseOf(journal, note));
        }
    }
    ForEachLog(journal.notes, [&](const Log& log) {
        if (velocities[log.number] != 0 && velocities[log.number] != log.value) {
            Play(player, kNoteOff, log.number, kPlainRelease);
        }
    });
}

// Whether a command of which the journal has a count was not heard.
bool HeardChannel::IsCountLost(const ChannelJournal& journal, bool isSingle,
                               bool (*isMeant)(std::size_t)) const {
    bool isLost = false;
    ForEachLog(journal.controllers, [&](const Log& log) {
        const bool isCount = log.flag && (log.second & kCount) != 0;
        isLost = isLost || (isCount && isMeant(log.number) && !(isSingle && log.older) &&
                            counts[log.number] != (log.second & kCountBits));
    });
    return isLost;
}

void HeardChannel::RepairRest(const ChannelJournal& journal, bool isSingle, RepairListener& listener) {
    const Player player{journal.channel, listener};
    // A program that was chosen before any bank comes in front of the banks in the controllers.
    const bool hasBank = !journal.program.empty() && (journal.program[1] & kHasBank) != 0;
    if (!hasBank) {
        RepairProgram(journal, player);
    }
    RepairControllers(journal, isSingle, player);
    if (hasBank) {
        RepairProgram(journal, player);
    }
    RepairParameters(journal, player);
    if (!journal.bend.empty()) {
        const std::array<std::uint8_t, 2> logged = {static_cast<std::uint8_t>(journal.bend[0] & kDataBits),
                                                    static_cast<std::uint8_t>(journal.bend[1] & kDataBits)};
        if (bend != logged) {
            Play(player, kPitchBend, logged[0], logged[1]);
        }
    }
    RepairNotes(journal, player);
    if (!journal.pressure.empty() && pressure != (journal.pressure[0] & kDataBits)) {
        Play(player, kPressure, journal.pressure[0] & kDataBits, 0);
    }
    ForEachLog(journal.polyPressure, [&](const Log& log) {
        if (polyPressure[log.number] != log.value) {
            Play(player, kPolyPressure, log.number, log.value);
        }
    });
}

// The logs for one controller stand one behind the other.
void HeardChannel::RepairControllers(const ChannelJournal& journal, bool isSingle, const Player& player) {
    // What stands in front of a reset that was heard is no longer so.
    const auto isResetLog = [](std::size_t number) { return number == kResetControllers; };
    bool isBeforeReset =
        HasLog(journal.controllers, kResetControllers) && !IsCountLost(journal, isSingle, isResetLog);
    ControllerLogs logs;
    bool hasLogs = false;
    ForEachLog(journal.controllers, [&](const Log& log) {
        isBeforeReset = isBeforeReset && log.number != kResetControllers;
        if (isBeforeReset && IsReset(log.number)) {
            return;
        }
        if (hasLogs && log.number != logs.number) {
            RepairController(logs, isSingle, player);
            hasLogs = false;
        }
        if (!hasLogs) {
            logs = ControllerLogs{};
            logs.number = log.number;
            logs.older = true;
            hasLogs = true;
        }
        logs.older = logs.older && log.older;
        if (!log.flag) {
            logs.value = log.value;
        } else if ((log.second & kCount) != 0) {
            logs.count = log.second & kCountBits;
        } else {
            logs.toggles = log.second & kCountBits;
        }
    });
    if (hasLogs) {
        RepairController(logs, isSingle, player);
    }
}

void HeardChannel::RepairController(const ControllerLogs& logs, bool isSingle, const Player& player) {
    const std::size_t number = logs.number;
    const bool wasHeard = isSingle && logs.older;
    const bool isCountLost = logs.count != kUnknown && logs.count != counts[number] && !wasHeard;
    const bool isToggleLost = logs.toggles != kUnknown && logs.toggles != toggles[number] && !wasHeard;
    const bool isOn = values[number] != kUnknown && IsOn(values[number]);
    int value = logs.value;
    if (logs.value == kUnknown && logs.toggles != kUnknown) {
        value = logs.toggles % 2 != 0 ? kFullyOn : 0;
        value = IsOn(static_cast<std::uint8_t>(value)) == isOn && values[number] != kUnknown ? values[number]
                                                                                             : value;
    } else if (logs.value == kUnknown) {
        value = IsCounted(number) || values[number] == kUnknown ? 0 : values[number];
    }
    const bool hasState = logs.count == kUnknown || (logs.value != kUnknown && !IsCounted(number));
    const bool isOtherValue = hasState && value != values[number];
    if (isToggleLost && isOn && IsOn(static_cast<std::uint8_t>(value))) {
        PlayController(player, number, 0);  // it was off in between
        PlayController(player, number, value);
    } else if (isCountLost || isOtherValue) {
        if (IsDataEntry(number) && selection.Now() != ParameterSelection::State::None) {
            Deselect(player);
        }
        PlayController(player, number, value);
    }
    counts[number] = logs.count != kUnknown ? logs.count : counts[number];
    toggles[number] = logs.toggles != kUnknown ? logs.toggles : toggles[number];
}

void HeardChannel::RepairProgram(const ChannelJournal& journal, const Player& player) {
    if (journal.program.empty()) {
        return;
    }
    const std::uint8_t number = journal.program[0] & kDataBits;
    const bool hasBank = (journal.program[1] & kHasBank) != 0;
    const std::uint8_t high = journal.program[1] & kDataBits;
    const std::uint8_t low = journal.program[2] & kDataBits;
    // A low byte of 0 may mean that none came behind the high one, and then another may count.
    const auto isBank = [&](std::uint8_t knownHigh, std::uint8_t knownLow) {
        return !hasBank || (knownHigh == high && (knownLow == low || low == 0));
    };
    if (program == number && isBank(programBankHigh, programBankLow)) {
        return;
    }
    const std::uint8_t nextHigh = values[kBankHigh];
    const std::uint8_t nextLow = values[kBankLow];
    if (!isBank(nextHigh, nextLow)) {
        PlayController(player, kBankHigh, high);
        PlayController(player, kBankLow, low);
    }
    Play(player, kProgramChange, number, 0);
    // The bank that was chosen since, for the next program.
    if (nextHigh != kUnknown && nextHigh != values[kBankHigh]) {
        PlayController(player, kBankHigh, nextHigh);
    }
    if (nextLow != kUnknown && nextLow != values[kBankLow]) {
        PlayController(player, kBankLow, nextLow);
    }
}

void HeardChannel::RepairParameters(const ChannelJournal& journal, const Player& player) {
    if (!journal.hasParameters) {
        return;
    }
    ParameterLogReader logs(journal);
    std::optional<ParameterNumber> last;
    while (const std::optional<ParameterLog> log = logs.Next()) {
        RepairParameter(*log, player);
        last = log->number;
    }
    if (logs.Pending()) {
        ParameterSelection wanted;
        const std::uint8_t controller = logs.Pending()->isUnregistered ? kUnregisteredHigh : kRegisteredHigh;
        wanted.Select(controller, logs.Pending()->high);
        if (!(selection == wanted)) {
            PlayController(player, controller, logs.Pending()->high);
        }
    } else if (logs.IsInTransaction() && last) {
        Select(player, *last);
    } else if (selection.Now() != ParameterSelection::State::None) {
        Deselect(player);
    }
}

void HeardChannel::RepairParameter(const ParameterLog& log, const Player& player) {
    const Parameter known = UseParameter(log.number);
    const bool isLowGone = log.entryHigh && !log.entryLow && known.entryLow != kUnknown;
    const bool areButtonsGone = !log.buttons && known.buttons != 0;
    const bool isHighOther = log.entryHigh && (*log.entryHigh != known.entryHigh || isLowGone);
    const bool isLowOther = log.entryLow && (*log.entryLow != known.entryLow || isHighOther);
    const bool isEntered = isHighOther || isLowOther;
    const bool isEnteredAgain = !isEntered && areButtonsGone && (log.entryHigh || log.entryLow);
    const int steps = log.buttons.value_or(0) - (isEntered || isEnteredAgain ? 0 : known.buttons);
    const bool areStepsMissing = log.buttons && steps != 0;
    if (!isEntered && !isEnteredAgain && !areStepsMissing) {
        return;
    }
    Select(player, log.number);
    if (isHighOther || (isEnteredAgain && !log.entryLow)) {
        PlayController(player, kDataEntryHigh, *log.entryHigh);
    }
    if (isLowOther || (isEnteredAgain && log.entryLow)) {
        PlayController(player, kDataEntryLow, *log.entryLow);
    }
    for (int step = 0; step < std::min(std::abs(steps), kMostSteps) && areStepsMissing; ++step) {
        PlayController(player, steps > 0 ? kDataIncrement : kDataDecrement, 0);
    }
    UseParameter(log.number).buttons = log.buttons.value_or(0);
}

void HeardChannel::Select(const Player& player, const ParameterNumber& number) {
    if (selection.Now() != ParameterSelection::State::Selected || !(selection.Number() == number)) {
        PlayController(player, number.isUnregistered ? kUnregisteredHigh : kRegisteredHigh, number.high);
        PlayController(player, number.isUnregistered ? kUnregisteredLow : kRegisteredLow, number.low);
    }
}

void HeardChannel::Deselect(const Player& player) {
    Select(player, {selection.Number().isUnregistered, 0x7F, 0x7F});
}

void HeardChannel::RepairNotes(const ChannelJournal& journal, const Player& player) {
    ForEachLog(journal.notes, [&](const Log& log) {
        if (velocities[log.number] == 0 && log.flag && log.value != 0) {
            Play(player, kNoteOn, log.number, log.value);
        }
    });
}

void HeardChannel::Release(int channel, const ChannelJournal* journal, RepairListener& listener) {
    const Player player{channel, listener};
    for (std::size_t note = 0; note < kNumbers; ++note) {
        if (velocities[note] != 0 && !(journal != nullptr && HasLog(journal->notes, note))) {
            Play(player, kNoteOff, note, kPlainRelease);
        }
    }
    for (const std::uint8_t pedal : kPedals) {
        const bool isOn = values[pedal] != kUnknown && IsOn(values[pedal]);
        if (isOn && !(journal != nullptr && HasLog(journal->controllers, pedal))) {
            PlayController(player, pedal, 0);
        }
    }
}

}  // namespace vexil::rtp
