#include "service/engine/NoteTracker.h"

#include <bit>
#include <cstddef>

namespace vexil {

namespace {

constexpr std::uint8_t kNoteOff = 0x80;
constexpr std::uint8_t kNoteOn = 0x90;
constexpr std::uint8_t kControlChange = 0xB0;
constexpr std::uint8_t kPitchBendChange = 0xE0;
constexpr std::uint8_t kModulationWheel = 1;
constexpr std::uint8_t kSustainPedal = 64;
constexpr std::uint8_t kPlainVelocity = 64;  // of a note-off that has none of its own
constexpr std::uint8_t kBendCentre = 64;     // its high byte; the low one is 0

constexpr std::uint64_t Bit(int bit) {
    return std::uint64_t{1} << bit;
}

std::uint8_t Status(std::uint8_t kind, int channel) {
    return static_cast<std::uint8_t>(kind | channel);
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
    if (message.size() != 3) {
        return;
    }
    const int channel = message[0] & 0x0F;
    const std::uint8_t first = message[1];
    const std::uint8_t second = message[2];
    switch (message[0] & 0xF0) {
        case kNoteOff:
        case kNoteOn:
            Set(notes[WordOf(channel, first)], first % 64, (message[0] & 0xF0) == kNoteOn && second != 0);
            break;
        case kControlChange:
            if (first == kSustainPedal) {
                Set(controls[kSustain], channel, second != 0);
            } else if (first == kModulationWheel) {
                Set(controls[kModulation], channel, second != 0);
            }
            break;
        case kPitchBendChange:
            Set(controls[kPitchBend], channel, first != 0 || second != kBendCentre);
            break;
        default:
            break;
    }
}

std::optional<std::array<std::uint8_t, 3>> NoteTracker::NextRelease() const {
    using Message = std::array<std::uint8_t, 3>;
    if (away == 0) {
        return std::nullopt;
    }
    for (std::size_t word = 0; word < notes.size(); ++word) {
        if (notes[word] != 0) {
            const int note = static_cast<int>(word % 2) * 64 + std::countr_zero(notes[word]);
            return Message{Status(kNoteOff, static_cast<int>(word / 2)), static_cast<std::uint8_t>(note),
                           kPlainVelocity};
        }
    }
    if (controls[kSustain] != 0) {
        return Message{Status(kControlChange, std::countr_zero(controls[kSustain])), kSustainPedal, 0};
    }
    if (controls[kModulation] != 0) {
        return Message{Status(kControlChange, std::countr_zero(controls[kModulation])), kModulationWheel, 0};
    }
    return Message{Status(kPitchBendChange, std::countr_zero(controls[kPitchBend])), 0, kBendCentre};
}

bool NoteTracker::Holds(const std::array<std::uint8_t, 3>& release) const {
    const int channel = release[0] & 0x0F;
    switch (release[0] & 0xF0) {
        case kNoteOff:
            return (notes[WordOf(channel, release[1])] & Bit(release[1] % 64)) != 0;
        case kControlChange:
            return (controls[release[1] == kSustainPedal ? kSustain : kModulation] & Bit(channel)) != 0;
        default:
            return (controls[kPitchBend] & Bit(channel)) != 0;
    }
}

}  // namespace vexil
