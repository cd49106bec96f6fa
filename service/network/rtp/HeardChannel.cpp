#include "service/network/rtp/HeardChannel.h"

#include <algorithm>

#include "service/network/rtp/JournalForm.h"

namespace vexil::rtp {

namespace {

constexpr std::uint8_t kFullExpression = 127;

}  // namespace

void HeardChannel::Heard(ByteView message) {
    const std::uint8_t first = message[1];
    const std::uint8_t second = message.size() > 2 ? message[2] : 0;
    switch (KindOf(message[0])) {
        case kNoteOff:
            velocities[first] = 0;
            break;
        case kNoteOn:
            velocities[first] = second;
            break;
        case kPolyPressure:
            polyPressure[first] = second;
            break;
        case kControlChange:
            HeardController(first, second);
            break;
        case kProgramChange:
            program = first;
            programBankHigh = values[kBankHigh];
            programBankLow = values[kBankLow];
            break;
        case kPressure:
            pressure = first;
            break;
        default:
            bend = {first, second};
            break;
    }
}

void HeardChannel::HeardController(std::uint8_t controller, std::uint8_t value) {
    counts[controller] = (counts[controller] + 1) & kCountBits;
    if (IsSelection(controller)) {
        selection.Select(controller, value);
        return;
    }
    if (IsDataEntry(controller) && selection.TakesEntry()) {
        HeardEntry(controller, value);
        return;
    }
    const bool wasOn = values[controller] != kUnknown && IsOn(values[controller]);
    toggles[controller] = (toggles[controller] + (wasOn != IsOn(value) ? 1 : 0)) & kCountBits;
    values[controller] = value;
    if (controller == kResetControllers) {
        ControllersReset();
    } else if (EndsNotes(controller)) {
        velocities.fill(0);
        pressure = kUnknown;
    }
}

void HeardChannel::HeardEntry(std::uint8_t controller, std::uint8_t value) {
    Parameter& parameter = UseParameter(selection.Number());
    switch (controller) {
        case kDataEntryHigh:
            parameter.entryHigh = value;
            parameter.entryLow = kUnknown;
            parameter.buttons = 0;
            break;
        case kDataEntryLow:
            parameter.entryLow = value;
            parameter.buttons = 0;
            break;
        case kDataIncrement:
            ++parameter.buttons;
            break;
        default:
            --parameter.buttons;
            break;
    }
}

// As recommended practice 015 says.
void HeardChannel::ControllersReset() {
    bend = {0, kBendCentre};
    pressure = 0;
    polyPressure.fill(0);
    values[kModulation] = 0;
    values[kExpression] = kFullExpression;
    for (std::size_t controller = kFirstSwitch; controller <= kLastResetSwitch; ++controller) {
        const bool wasOn = values[controller] != kUnknown && IsOn(values[controller]);
        toggles[controller] = (toggles[controller] + (wasOn ? 1 : 0)) & kCountBits;
        values[controller] = 0;
    }
    selection.Clear();
}

// The one with this number, else the one that was used longest ago, emptied.
HeardChannel::Parameter& HeardChannel::UseParameter(const ParameterNumber& number) {
    auto found = std::find_if(parameters.begin(), parameters.end(), [&](const Parameter& known) {
        return known.turn != 0 && known.number == number;
    });
    if (found == parameters.end()) {
        found = std::min_element(parameters.begin(), parameters.end(),
                                 [](const Parameter& a, const Parameter& b) { return a.turn < b.turn; });
        *found = Parameter{};
        found->number = number;
    }
    found->turn = ++turns;
    return *found;
}

}  // namespace vexil::rtp
