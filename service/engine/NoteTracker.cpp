#include "service/engine/NoteTracker.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace vexil {

namespace {

constexpr std::uint8_t kNoteOff = 0x80;
constexpr std::uint8_t kNoteOn = 0x90;
constexpr std::uint8_t kControlChange = 0xB0;
constexpr std::uint8_t kChannelPressure = 0xD0;
constexpr std::uint8_t kPitchBendChange = 0xE0;
constexpr std::uint8_t kPlainVelocity = 64;  // of a note-off without a velocity of its own
constexpr std::uint8_t kBendCentre = 64;     // its high byte; the low one is 0

// What a channel has besides its notes, in the order in which it is put back: the status, and the number of a
// control change.
struct Control {
    std::uint8_t kind;
    std::uint8_t number;
};
constexpr std::array<Control, 7> kControls = {{
    {kControlChange, 64},  // sustain pedal
    {kControlChange, 66},  // sostenuto pedal
    {kControlChange, 67},  // soft pedal
    {kControlChange, 69},  // second hold pedal
    {kControlChange, 1},   // modulation wheel
    {kChannelPressure, 0},
    {kPitchBendChange, 0},
}};

constexpr std::uint64_t Bit(int bit) {
    return std::uint64_t{1} << bit;
}

std::uint8_t KindOf(std::uint8_t status) {
    return status & 0xF0;
}

std::uint8_t Status(std::uint8_t kind, int channel) {
    return static_cast<std::uint8_t>(kind | channel);
}

// The place in kControls of what a message of a channel changes; none for another message.
std::optional<std::size_t> ControlOf(std::span<const std::uint8_t> message) {
    const std::uint8_t kind = KindOf(message[0]);
    const auto found = std::find_if(kControls.begin(), kControls.end(), [&](const Control& control) {
        return control.kind == kind && (kind != kControlChange || control.number == message[1]);
    });
    return found == kControls.end() ? std::nullopt
                                    : std::optional(static_cast<std::size_t>(found - kControls.begin()));
}

bool IsAway(std::span<const std::uint8_t> message) {
    switch (KindOf(message[0])) {
        case kChannelPressure:
            return message[1] != 0;
        case kPitchBendChange:
            return message[1] != 0 || message[2] != kBendCentre;
        default:
            return message[2] != 0;
    }
}

// All Sound Off, Reset All Controllers, and those that end all notes.
bool EndsAllNotes(std::uint8_t control) {
    return control == 120 || control == 121 || control >= 123;
}

}  // namespace

void NoteTracker::Set(std::uint64_t& mask, int bit, bool isAway) {
    const bool was = (mask & Bit(bit)) != 0;
    if (was != isAway) {
        mask ^= Bit(bit);
        away += isAway ? 1 : -1;
    }
}

void NoteTracker::Heard(std::span<const std::uint8_t> message) {
    const std::uint8_t kind = KindOf(message[0]);
    const int channel = message[0] & 0x0F;
    if (kind == kNoteOff || kind == kNoteOn) {
        Set(notes[WordOf(channel, message[1])], message[1] % 64, kind == kNoteOn && message[2] != 0);
    } else if (const std::optional<std::size_t> control = ControlOf(message)) {
        Set(controls[*control], channel, IsAway(message));
    }
}

std::optional<NoteTracker::Release> NoteTracker::NextRelease() const {
    if (away == 0) {
        return std::nullopt;
    }
    for (std::size_t word = 0; word < notes.size(); ++word) {
        if (notes[word] != 0) {
            const int note = static_cast<int>(word % 2) * 64 + std::countr_zero(notes[word]);
            return Release{{Status(kNoteOff, static_cast<int>(word / 2)), static_cast<std::uint8_t>(note),
                            kPlainVelocity},
                           3};
        }
    }
    const auto found =
        std::find_if(controls.begin(), controls.end(), [](std::uint64_t channels) { return channels != 0; });
    const Control& control = kControls[static_cast<std::size_t>(found - controls.begin())];
    const std::uint8_t status = Status(control.kind, std::countr_zero(*found));
    switch (control.kind) {
        case kChannelPressure:
            return Release{{status, 0, 0}, 2};
        case kPitchBendChange:
            return Release{{status, 0, kBendCentre}, 3};
        default:
            return Release{{status, control.number, 0}, 3};
    }
}

bool NoteTracker::Holds(const Release& release) const {
    const int channel = release.bytes[0] & 0x0F;
    if (KindOf(release.bytes[0]) == kNoteOff) {
        return (notes[WordOf(channel, release.bytes[1])] & Bit(release.bytes[1] % 64)) != 0;
    }
    const std::optional<std::size_t> control = ControlOf(release.Message());
    return control && (controls[*control] & Bit(channel)) != 0;
}

void NoteTracker::Add(const NoteTracker& other) {
    away = 0;
    const auto unite = [this](std::span<std::uint64_t> masks, std::span<const std::uint64_t> others) {
        for (std::size_t i = 0; i < masks.size(); ++i) {
            masks[i] |= others[i];
            away += std::popcount(masks[i]);
        }
    };
    unite(notes, other.notes);
    unite(controls, other.controls);
}

bool NoteTracker::PutsSomethingRight(std::span<const std::uint8_t> message) {
    switch (KindOf(message[0])) {
        case kNoteOff:
            return true;
        case kNoteOn:
            return message[2] == 0;
        case kControlChange:
            return EndsAllNotes(message[1]) || ControlOf(message);
        default:
            return ControlOf(message).has_value();
    }
}

}  // namespace vexil
