#include "tests/system/music/Sounding.h"

namespace vexil {

namespace {

constexpr std::uint8_t kModulation = 1;
constexpr std::uint8_t kPedal = 64;

}  // namespace

void Sounding::Hear(const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t byte = bytes[i];
        if (byte >= 0xF8) {
            continue;
        }
        if (byte >= 0x80) {
            const int command = byte & 0xF0;
            const bool matters = command == 0x80 || command == 0x90 || command == 0xB0 || command == 0xE0;
            status = matters ? byte : 0;
            hasFirst = false;
        } else if (status != 0 && !hasFirst) {
            first = byte;
            hasFirst = true;
        } else if (status != 0) {
            Take(status, first, byte);
            hasFirst = false;
        }
    }
}

void Sounding::Take(std::uint8_t taken, std::uint8_t one, std::uint8_t two) {
    Channel& channel = channels[taken & 0x0F];
    switch (taken & 0xF0) {
        case 0x80:
            channel.notes.reset(one);
            break;
        case 0x90:
            channel.notes.set(one, two != 0);
            break;
        case 0xB0:
            if (one == kPedal) {
                channel.pedal = two;
            } else if (one == kModulation) {
                channel.modulation = two;
            }
            break;
        default:
            channel.bend = static_cast<std::uint16_t>(one | two << 7);
    }
}

std::string Sounding::Rest() const {
    std::string rest;
    const auto add = [&rest](const std::string& what, std::size_t channel) {
        rest += (rest.empty() ? "" : ", ") + what + " on channel " + std::to_string(channel + 1);
    };
    for (std::size_t number = 0; number < channels.size(); ++number) {
        const Channel& channel = channels[number];
        for (std::size_t note = 0; note < channel.notes.size(); ++note) {
            if (channel.notes[note]) {
                add("note " + std::to_string(note), number);
            }
        }
        if (channel.pedal >= 64) {
            add("pedal", number);
        }
        if (channel.modulation != 0) {
            add("modulation", number);
        }
        if (channel.bend != 0x2000) {
            add("bend", number);
        }
    }
    return rest;
}

}  // namespace vexil
