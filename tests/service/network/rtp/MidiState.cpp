#include "tests/service/network/rtp/MidiState.h"

#include <algorithm>

namespace vexil::test {

void MidiState::Play(ByteView message) {
    const std::uint8_t status = message[0];
    const std::uint8_t first = message.size() > 1 ? message[1] : 0;
    const std::uint8_t second = message.size() > 2 ? message[2] : 0;
    if (status >= 0xF0) {
        for (Channel& channel : channels) {
            if (status == 0xFF) {
                const auto strikes = channel.strikes;
                channel = Channel{};
                channel.strikes = strikes;
            }
        }
        song = status == 0xFF ? -1 : status == 0xF3 ? first : song;
        return;
    }
    Channel& channel = channels[Index(status & 15)];
    switch (status >> 4) {
        case 0x8:
            Release(channel, first);
            break;
        case 0x9:
            if (second == 0) {
                Release(channel, first);
            } else {
                channel.keys[first] = second;
                channel.held.reset(first);
                ++channel.strikes[first];
            }
            break;
        case 0xA:
            channel.polyPressure[first] = second;
            break;
        case 0xB:
            Control(channel, first, second);
            break;
        case 0xC:
            channel.program = {first, channel.controllers[0], channel.controllers[32]};
            break;
        case 0xD:
            channel.pressure = first;
            break;
        default:
            channel.bend = {first, second};
            break;
    }
}

bool MidiState::IsStruckMoreOften(const MidiState& heard) const {
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        const auto& here = channels[channel].strikes;
        const auto& there = heard.channels[channel].strikes;
        for (std::size_t note = 0; here != there && note < kNumbers; ++note) {
            if (there[note] > here[note]) {
                return true;
            }
        }
    }
    return false;
}

void MidiState::Release(Channel& channel, std::uint8_t note) {
    if (channel.keys[note] != 0 && channel.controllers[64] >= 64) {
        channel.held.set(note);
    }
    channel.keys[note] = 0;
}

void MidiState::Control(Channel& channel, std::uint8_t number, std::uint8_t value) {
    if (number >= 98 && number <= 101) {
        Select(channel, number, value);
        return;
    }
    if (Enter(channel, number, value)) {
        return;
    }
    if (number < 120 || number == 122 || number == 126) {  // of the others the value says nothing
        channel.controllers[number] = value;
    }
    if (number == 64 && value < 64) {
        channel.held.reset();
    } else if (number == 121) {
        Reset(channel);
    } else if (number == 120 || number >= 123) {
        EndNotes(channel, number == 120);
    }
}

void MidiState::EndNotes(Channel& channel, bool isSilence) {
    for (std::size_t note = 0; note < kNumbers; ++note) {
        Release(channel, static_cast<std::uint8_t>(note));
    }
    if (isSilence) {
        channel.held.reset();
    }
    channel.pressure = 0;  // it was that of the notes
}

// As recommended practice 015 has it.
void MidiState::Reset(Channel& channel) {
    channel.bend = {0, 64};
    channel.pressure = 0;
    channel.polyPressure.fill(0);
    channel.controllers[1] = 0;
    channel.controllers[11] = 127;
    std::fill(channel.controllers.begin() + 64, channel.controllers.begin() + 68, std::uint8_t{0});
    channel.held.reset();
    channel.selection = {};
    channel.highs[0] = channel.highs[1] = 0;
}

void MidiState::Select(Channel& channel, std::uint8_t number, std::uint8_t value) {
    Selection& selection = channel.selection;
    selection.isUnregistered = number < 100;
    std::uint8_t& high = channel.highs[selection.isUnregistered ? 1 : 0];
    if (number % 2 != 0) {
        high = value;
        selection.what = Selecting::High;
        selection.number[1] = 0;
    } else {
        selection.what = Selecting::Both;
        selection.number[1] = value;
    }
    selection.number[0] = high;
    if (selection.what == Selecting::Both && high == 127 && value == 127) {
        selection = {};
    }
}

bool MidiState::Enter(Channel& channel, std::uint8_t number, std::uint8_t value) {
    Selection& selection = channel.selection;
    if ((number != 6 && number != 38 && number != 96 && number != 97) ||
        selection.what == Selecting::Nothing) {
        return false;
    }
    selection.what = Selecting::Both;
    // Sorted by number, so that two that were entered in another order compare equal.
    Parameter wanted;
    wanted.isUsed = true;
    wanted.isUnregistered = selection.isUnregistered;
    std::copy_n(selection.number, 2, wanted.number);
    const auto key = [](const Parameter& parameter) {
        return parameter.isUsed
                   ? (parameter.isUnregistered ? 1 << 16 : 0) | parameter.number[0] << 8 | parameter.number[1]
                   : 1 << 20;
    };
    auto place = std::find_if(channel.parameters.begin(), channel.parameters.end(),
                              [&](const Parameter& known) { return key(known) >= key(wanted); });
    if (place == channel.parameters.end()) {
        return true;  // more than are followed
    }
    if (key(*place) != key(wanted)) {
        std::move_backward(place, channel.parameters.end() - 1, channel.parameters.end());
        *place = wanted;
    }
    if (number == 96 || number == 97) {
        place->steps += number == 96 ? 1 : -1;
        if (place->steps == 0 && !place->hasEntries[0] && !place->hasEntries[1]) {
            std::move(place + 1, channel.parameters.end(), place);  // as if nothing had been entered
            channel.parameters.back() = {};
        }
        return true;
    }
    const std::size_t entry = number == 6 ? 0 : 1;
    place->entries[entry] = value;
    place->hasEntries[entry] = true;
    if (entry == 0) {
        place->entries[1] = 0;
        place->hasEntries[1] = false;
    }
    place->steps = 0;
    return true;
}

std::string MidiState::DifferenceOf(const MidiState& heard) const {
    for (std::size_t channel = 0; channel < kChannels; ++channel) {
        const std::string difference = DifferenceOf(channels[channel], heard.channels[channel]);
        if (!difference.empty()) {
            return difference + " of channel " + std::to_string(channel);
        }
    }
    return song == heard.song ? "" : "song";
}

std::string MidiState::DifferenceOf(const Channel& here, const Channel& heard) {
    if (here.keys != heard.keys) {
        return "keys";
    }
    if ((heard.held & ~here.held).any()) {
        return "held notes";
    }
    if (here.controllers != heard.controllers) {
        const auto found =
            std::mismatch(here.controllers.begin(), here.controllers.end(), heard.controllers.begin());
        return "controller " + std::to_string(found.first - here.controllers.begin());
    }
    if (here.program != heard.program) {
        return "program";
    }
    if (here.bend != heard.bend) {
        return "bend";
    }
    if (here.pressure != heard.pressure) {
        return "pressure";
    }
    if (here.polyPressure != heard.polyPressure) {
        return "poly pressure";
    }
    if (here.selection != heard.selection) {
        return "selected parameter";
    }
    return here.parameters == heard.parameters ? "" : "parameters";
}

}  // namespace vexil::test
