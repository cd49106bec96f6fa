// The chapters of a channel journal, as JournalChannel writes them.
#include <algorithm>

#include "service/network/rtp/JournalChannel.h"
#include "service/network/rtp/JournalForm.h"

namespace vexil::rtp {

namespace {

std::uint8_t OlderBit(bool isOlder) {
    return isOlder ? kOlder : 0;
}

// Chapters of logs of two bytes: a byte with their number less one is written when they are.
class LogList {
  public:
    LogList(RtpByteWriter& bytes, std::uint64_t newestPacket)
        : writer(bytes), newest(newestPacket), place(bytes.Size()) {
        writer.PutByte(0);
    }
    void Add(std::uint64_t packet, std::size_t number, int second) {
        const bool isOlder = packet != newest;
        allOlder = allOlder && isOlder;
        ++count;
        writer.PutByte(OlderBit(isOlder) | static_cast<int>(number));
        writer.PutByte(second);
    }
    // Whether all of it is older.
    bool End(bool& fits) {
        fits = fits && count <= kMostLogs;
        if (!writer.IsCut() && fits) {
            writer.At(place) = static_cast<std::uint8_t>(OlderBit(allOlder) | (count - 1));
        }
        return allOlder;
    }

  private:
    RtpByteWriter& writer;
    std::uint64_t newest;
    std::size_t place;
    std::size_t count = 0;
    bool allOlder = true;
};

std::uint16_t ButtonBits(int buttons) {
    return static_cast<std::uint16_t>(buttons < 0 ? kButtonsBelowZero | -buttons : buttons);
}

}  // namespace

bool JournalChannel::Write(int channel, const JournalTime& time, RtpByteWriter& writer, bool& fits) const {
    const std::size_t place = writer.Size();
    writer.PutByte(0);
    writer.PutByte(0);
    writer.PutByte(0);
    int contents = 0;
    bool older = true;
    const auto add = [&](bool isThere, std::uint8_t bit, auto write) {
        if (isThere) {
            contents |= bit;
            older = write() && older;
        }
    };
    add(programPacket != 0, kHasProgram, [&] { return WriteProgram(time, writer); });
    add(!controllers.IsEmpty(), kHasControllers, [&] { return WriteControllers(time, writer, fits); });
    add(HasParameters(), kHasParameters, [&] { return WriteParameters(time, writer, fits); });
    add(bendPacket != 0, kHasBend, [&] { return WriteBend(time, writer); });
    add(!notes.IsEmpty(), kHasNotes, [&] { return WriteNotes(time, writer); });
    add(HasNoteExtras(), kHasNoteExtras, [&] { return WriteNoteExtras(time, writer, fits); });
    add(pressurePacket != 0, kHasPressure, [&] { return WritePressure(time, writer); });
    add(!polyNotes.IsEmpty(), kHasPolyPressure, [&] { return WritePolyPressure(time, writer, fits); });
    const std::size_t length = writer.Size() - place;
    fits = fits && length <= kLongestLength;
    if (!writer.IsCut() && fits) {
        writer.At(place) =
            static_cast<std::uint8_t>(OlderBit(older) | channel << 3 | static_cast<int>(length >> 8));
        writer.At(place + 1) = static_cast<std::uint8_t>(length);
        writer.At(place + 2) = static_cast<std::uint8_t>(contents);
    }
    return older;
}

bool JournalChannel::WriteProgram(const JournalTime& time, RtpByteWriter& writer) const {
    const bool older = programPacket != time.newest;
    writer.PutByte(OlderBit(older) | program);
    writer.PutByte(programHasBank ? kHasBank | programBankHigh : 0);
    writer.PutByte(programHasBank ? (programAfterReset ? kResetBeforeProgram : 0) | programBankLow : 0);
    return older;
}

bool JournalChannel::WriteControllers(const JournalTime& time, RtpByteWriter& writer, bool& fits) const {
    LogList logs(writer, time.newest);
    for (std::size_t number = controllers.First(); number != controllers.kEnd;
         number = controllers.Next(number)) {
        const std::uint64_t packet = controllers.PacketOf(number);
        if (IsCounted(number)) {
            logs.Add(packet, number, kAlternative | kCount | counts[number]);
        }
        if (!IsCounted(number) || number == kMono) {
            logs.Add(packet, number, values[number]);
        }
        if (IsSwitch(number)) {
            logs.Add(packet, number, kAlternative | loggedToggles[number]);
        }
    }
    return logs.End(fits);
}

bool JournalChannel::WriteParameters(const JournalTime& time, RtpByteWriter& writer, bool& fits) const {
    const std::size_t place = writer.Size();
    const bool isPending = selection.Now() == ParameterSelection::State::Pending;
    const bool isSelected = selection.Now() == ParameterSelection::State::Selected;
    bool older = selectionPacket != time.newest;
    writer.Put(std::uint16_t{0});
    if (isPending) {
        writer.PutByte((selection.Number().isUnregistered ? kUnregistered : 0) | selection.Number().high);
    }
    for (std::size_t index = parameters.First(); index != parameters.kEnd; index = parameters.Next(index)) {
        older = WriteParameter(index, time, writer) && older;
    }
    const std::size_t length = writer.Size() - place;
    fits = fits && length <= kLongestLength;
    if (!writer.IsCut() && fits) {
        writer.At(place) =
            static_cast<std::uint8_t>(OlderBit(older) | (isPending ? kHasPending : 0) |
                                      (isSelected ? kInTransaction : 0) | static_cast<int>(length >> 8));
        writer.At(place + 1) = static_cast<std::uint8_t>(length);
    }
    return older;
}

bool JournalChannel::WriteParameter(std::size_t index, const JournalTime& time, RtpByteWriter& writer) const {
    const Parameter& parameter = parameterValues[index];
    const bool older = parameters.PacketOf(index) != time.newest;
    const bool hasSinceReset = parameter.hasButtons && !parameter.buttonsBeforeReset &&
                               parameter.buttonsSinceReset != parameter.buttons;
    writer.PutByte(OlderBit(older) | parameter.number.low);
    writer.PutByte((parameter.number.isUnregistered ? kUnregistered : 0) | parameter.number.high);
    writer.PutByte((parameter.hasHigh ? kHasEntryHigh : 0) | (parameter.hasLow ? kHasEntryLow : 0) |
                   (parameter.hasButtons ? kHasButtons : 0) | (hasSinceReset ? kHasButtonsSinceReset : 0) |
                   kUsesValue);
    if (parameter.hasHigh) {
        writer.PutByte((parameter.highBeforeReset ? kBeforeReset : 0) | parameter.entryHigh);
    }
    if (parameter.hasLow) {
        writer.PutByte((parameter.lowBeforeReset ? kBeforeReset : 0) | parameter.entryLow);
    }
    if (parameter.hasButtons) {
        writer.Put(static_cast<std::uint16_t>(ButtonBits(parameter.buttons) |
                                              (parameter.buttonsBeforeReset ? kButtonsBeforeReset : 0)));
    }
    if (hasSinceReset) {
        writer.Put(ButtonBits(parameter.buttonsSinceReset));
    }
    return older;
}

bool JournalChannel::WriteBend(const JournalTime& time, RtpByteWriter& writer) const {
    const bool older = bendPacket != time.newest;
    writer.PutByte(OlderBit(older) | bend[0]);
    writer.PutByte(bend[1]);
    return older;
}

bool JournalChannel::WriteNotes(const JournalTime& time, RtpByteWriter& writer) const {
    const std::size_t place = writer.Size();
    writer.Put(std::uint16_t{0});
    std::array<std::uint8_t, kNumbers / 8> offs{};
    std::size_t low = offs.size();
    std::size_t high = 0;
    std::size_t logs = 0;
    bool older = offPacket != time.newest;
    const bool offsAreOlder = older;
    for (std::size_t note = notes.First(); note != notes.kEnd; note = notes.Next(note)) {
        if (velocities[note] == 0) {
            offs[note / 8] |= static_cast<std::uint8_t>(0x80 >> note % 8);
            low = std::min(low, note / 8);
            high = std::max(high, note / 8);
            continue;
        }
        const bool isOlder = notes.PacketOf(note) != time.newest;
        older = older && isOlder;
        ++logs;
        writer.PutByte(OlderBit(isOlder) | static_cast<int>(note));
        writer.PutByte((time.timestamp - onTimes[note] <= kLatestNote ? kPlayNow : 0) | velocities[note]);
    }
    const bool hasOffs = low < offs.size();
    // Bytes without an off are allowed. An analyser that is widely used (tshark 4.0) needs as many bytes as
    // there are logs.
    while (hasOffs && high - low + 1 < std::min(logs, offs.size())) {
        (high + 1 < offs.size() ? ++high : --low);
    }
    for (std::size_t byte = low; hasOffs && byte <= high; ++byte) {
        writer.PutByte(offs[byte]);
    }
    if (!writer.IsCut()) {
        writer.At(place) =
            static_cast<std::uint8_t>(OlderBit(offsAreOlder) | std::min<std::size_t>(logs, 127));
        writer.At(place + 1) = hasOffs       ? static_cast<std::uint8_t>(low << 4 | high)
                               : logs == 127 ? kNoOffsAnd127Logs
                                             : kNoOffs;
    }
    return older;
}

bool JournalChannel::HasNoteExtras() const {
    for (std::size_t note = notes.First(); note != notes.kEnd; note = notes.Next(note)) {
        if (HasCount(note) || HasRelease(note)) {
            return true;
        }
    }
    return false;
}

bool JournalChannel::WriteNoteExtras(const JournalTime& time, RtpByteWriter& writer, bool& fits) const {
    LogList logs(writer, time.newest);
    for (std::size_t note = notes.First(); note != notes.kEnd; note = notes.Next(note)) {
        if (HasCount(note)) {
            logs.Add(notes.PacketOf(note), note, held[note]);
        }
        if (HasRelease(note)) {
            logs.Add(notes.PacketOf(note), note, kIsRelease | releases[note]);
        }
    }
    return logs.End(fits);
}

bool JournalChannel::WritePressure(const JournalTime& time, RtpByteWriter& writer) const {
    const bool older = pressurePacket != time.newest;
    writer.PutByte(OlderBit(older) | pressure);
    return older;
}

bool JournalChannel::WritePolyPressure(const JournalTime& time, RtpByteWriter& writer, bool& fits) const {
    LogList logs(writer, time.newest);
    for (std::size_t note = polyNotes.First(); note != polyNotes.kEnd; note = polyNotes.Next(note)) {
        logs.Add(polyNotes.PacketOf(note), note,
                 (polyStale[note] != 0 ? kBeforeNotesEnded : 0) | polyPressure[note]);
    }
    return logs.End(fits);
}

}  // namespace vexil::rtp
