#include "service/network/rtp/JournalChannel.h"

#include <algorithm>

#include "service/network/rtp/JournalForm.h"

namespace vexil::rtp {

namespace {

constexpr std::uint8_t kMostHeld = 127;  // as far as the journal counts

}  // namespace

void JournalChannel::Sent(std::uint64_t packet, std::uint32_t timestamp, ByteView message) {
    const std::uint8_t first = message[1];
    const std::uint8_t second = message.size() > 2 ? message[2] : 0;
    switch (KindOf(message[0])) {
        case kNoteOff:
            SentNoteOff(packet, first, second);
            break;
        case kNoteOn:
            if (second != 0) {
                SentNoteOn(packet, timestamp, first, second);
            } else {
                SentNoteOff(packet, first, kPlainRelease);
            }
            break;
        case kPolyPressure:
            polyNotes.Touch(first, packet);
            polyPressure[first] = second;
            polyStale[first] = 0;
            break;
        case kControlChange:
            SentController(packet, first, second);
            break;
        case kProgramChange:
            programPacket = packet;
            program = first;
            programHasBank = hasBank;
            programBankHigh = bankHigh;
            programBankLow = bankLow;
            programAfterReset = hasBank && resetAfterBank;
            break;
        case kPressure:
            pressurePacket = packet;
            pressure = first;
            break;
        default:
            bendPacket = packet;
            bend = {first, second};
            break;
    }
}

void JournalChannel::SentNoteOn(std::uint64_t packet, std::uint32_t timestamp, std::uint8_t note,
                                std::uint8_t velocity) {
    notes.Touch(note, packet);
    velocities[note] = velocity;
    onTimes[note] = timestamp;
    held[note] = static_cast<std::uint8_t>(std::min<int>(held[note] + 1, kMostHeld));
}

void JournalChannel::SentNoteOff(std::uint64_t packet, std::uint8_t note, std::uint8_t velocity) {
    notes.Touch(note, packet);
    velocities[note] = 0;
    releases[note] = velocity;
    held[note] = static_cast<std::uint8_t>(std::max(held[note] - 1, 0));
    offPacket = packet;
}

void JournalChannel::SentController(std::uint64_t packet, std::uint8_t controller, std::uint8_t value) {
    counts[controller] = (counts[controller] + 1) & kCountBits;
    if (IsSelection(controller)) {
        SentSelection(packet, controller, value);
        return;
    }
    if (IsDataEntry(controller) && selection.TakesEntry()) {
        SentEntry(packet, controller, value);
        return;
    }
    controllers.Touch(controller, packet);
    values[controller] = value;
    if (IsSwitch(controller)) {
        const int toggle = (on[controller] != 0) != IsOn(value) ? 1 : 0;
        toggles[controller] = (toggles[controller] + toggle) & kCountBits;
        loggedToggles[controller] = toggles[controller];
        on[controller] = IsOn(value) ? 1 : 0;
    }
    if (controller == kBankHigh) {
        hasBank = true;
        bankHigh = value;
        bankLow = 0;  // one that came before this high byte is not logged with it
        resetAfterBank = false;
    } else if (controller == kBankLow) {
        bankLow = value;
    } else if (controller == kResetControllers) {
        ControllersReset();
    } else if (EndsNotes(controller)) {
        NotesEnded();
    }
}

void JournalChannel::SentSelection(std::uint64_t packet, std::uint8_t controller, std::uint8_t value) {
    selection.Select(controller, value);
    if (selection.Now() == ParameterSelection::State::Selected) {
        TouchParameter(packet, selection.Number());
    } else {
        selectionPacket = packet;
    }
}

void JournalChannel::SentEntry(std::uint64_t packet, std::uint8_t controller, std::uint8_t value) {
    Parameter& parameter = TouchParameter(packet, selection.Number());
    if (controller == kDataEntryHigh || controller == kDataEntryLow) {
        const bool isHigh = controller == kDataEntryHigh;
        (isHigh ? parameter.entryHigh : parameter.entryLow) = value;
        (isHigh ? parameter.highBeforeReset : parameter.lowBeforeReset) = false;
        parameter.hasHigh = parameter.hasHigh || isHigh;
        parameter.hasLow = !isHigh;  // a low byte in front of the high one says nothing
        parameter.hasButtons = false;
        parameter.buttons = 0;
        parameter.buttonsSinceReset = 0;
        return;
    }
    const int step = controller == kDataIncrement ? 1 : -1;
    const auto stepped = [step](std::int16_t count) {
        return static_cast<std::int16_t>(std::clamp<int>(count + step, -kMostButtons, kMostButtons));
    };
    parameter.hasButtons = true;
    parameter.buttonsBeforeReset = false;
    parameter.buttons = stepped(parameter.buttons);
    parameter.buttonsSinceReset = stepped(parameter.buttonsSinceReset);
}

JournalChannel::Parameter& JournalChannel::TouchParameter(std::uint64_t packet,
                                                          const ParameterNumber& number) {
    selectionPacket = 0;
    const auto found = std::find_if(parameterValues.begin(), parameterValues.end(),
                                    [&](const Parameter& known) { return known.number == number; });
    auto index = static_cast<std::size_t>(found - parameterValues.begin());
    if (found == parameterValues.end()) {
        index = 0;
        while (index < kMostParameters && parameters.Contains(index)) {
            ++index;
        }
        if (index == kMostParameters) {
            index = parameters.First();
            completeFrom = parameters.PacketOf(index) + 1;
        }
        parameterValues[index] = Parameter{};
        parameterValues[index].number = number;
    }
    parameters.Touch(index, packet);
    return parameterValues[index];
}

void JournalChannel::NotesEnded() {
    notes.Clear();
    velocities.fill(0);
    held.fill(0);
    pressurePacket = 0;
    polyStale.fill(1);
}

// As recommended practice 015 says.
void JournalChannel::ControllersReset() {
    bendPacket = 0;
    pressurePacket = 0;
    polyNotes.Clear();
    for (std::size_t controller = kFirstSwitch; controller <= kLastResetSwitch; ++controller) {
        toggles[controller] = (toggles[controller] + on[controller]) & kCountBits;
        on[controller] = 0;
    }
    for (std::size_t controller = 0; controller < kNumbers; ++controller) {
        if (IsReset(controller) && controllers.Contains(controller)) {
            controllers.Remove(controller);
        }
    }
    resetAfterBank = true;
    selection.Clear();
    selectionPacket = 0;
    for (Parameter& parameter : parameterValues) {
        parameter.highBeforeReset = true;
        parameter.lowBeforeReset = true;
        parameter.buttonsBeforeReset = true;
        parameter.buttonsSinceReset = 0;
    }
}

void JournalChannel::DropBefore(std::uint64_t packet) {
    for (std::uint64_t* single : {&programPacket, &selectionPacket, &bendPacket, &pressurePacket}) {
        if (*single < packet) {
            *single = 0;
        }
    }
    controllers.DropBefore(packet);
    parameters.DropBefore(packet);
    notes.DropBefore(packet);
    polyNotes.DropBefore(packet);
}

bool JournalChannel::IsEmpty() const {
    return programPacket == 0 && controllers.IsEmpty() && !HasParameters() && bendPacket == 0 &&
           notes.IsEmpty() && pressurePacket == 0 && polyNotes.IsEmpty();
}

}  // namespace vexil::rtp
