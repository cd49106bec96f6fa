// What channel messages mean to the recovery journal (RFC 6295, appendix A.1).
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "service/engine/MidiParser.h"
#include "service/network/LinkBytes.h"

namespace vexil::rtp {

inline constexpr std::size_t kChannels = 16;
inline constexpr std::size_t kNumbers = 128;  // of notes, controllers, programs

inline constexpr std::uint8_t kNoteOff = 0x80;
inline constexpr std::uint8_t kNoteOn = 0x90;
inline constexpr std::uint8_t kPolyPressure = 0xA0;
inline constexpr std::uint8_t kControlChange = 0xB0;
inline constexpr std::uint8_t kProgramChange = 0xC0;
inline constexpr std::uint8_t kPressure = 0xD0;
inline constexpr std::uint8_t kPitchBend = 0xE0;
inline constexpr std::uint8_t kFirstSystemStatus = 0xF0;
inline constexpr std::uint8_t kSongSelect = 0xF3;
inline constexpr std::uint8_t kTuneRequest = 0xF6;
inline constexpr std::uint8_t kSystemReset = 0xFF;

inline constexpr std::uint8_t kBankHigh = 0;
inline constexpr std::uint8_t kModulation = 1;
inline constexpr std::uint8_t kDataEntryHigh = 6;
inline constexpr std::uint8_t kExpression = 11;
inline constexpr std::uint8_t kBankLow = 32;
inline constexpr std::uint8_t kDataEntryLow = 38;
inline constexpr std::uint8_t kFirstSwitch = 64;  // pedals and the like: on from 64 on
inline constexpr std::uint8_t kLastResetSwitch = 67;
inline constexpr std::uint8_t kLastSwitch = 69;
inline constexpr std::uint8_t kDataIncrement = 96;
inline constexpr std::uint8_t kDataDecrement = 97;
inline constexpr std::uint8_t kUnregisteredLow = 98;
inline constexpr std::uint8_t kUnregisteredHigh = 99;
inline constexpr std::uint8_t kRegisteredLow = 100;
inline constexpr std::uint8_t kRegisteredHigh = 101;
inline constexpr std::uint8_t kAllSoundOff = 120;
inline constexpr std::uint8_t kResetControllers = 121;
inline constexpr std::uint8_t kLocalControl = 122;
inline constexpr std::uint8_t kAllNotesOff = 123;
inline constexpr std::uint8_t kMono = 126;

inline constexpr std::uint8_t kPlainRelease = 64;  // velocity of a note-off that was sent without one
inline constexpr std::uint8_t kBendCentre = 64;    // its high byte; the low one is 0

constexpr std::uint8_t KindOf(std::uint8_t status) {
    return status & 0xF0;
}
constexpr bool IsSwitch(std::size_t controller) {
    return controller >= kFirstSwitch && controller <= kLastSwitch;
}
// Those that Reset All Controllers puts back (recommended practice 015), besides the selected parameter.
constexpr bool IsReset(std::size_t controller) {
    return controller == kModulation || controller == kExpression ||
           (controller >= kFirstSwitch && controller <= kLastResetSwitch);
}
constexpr bool IsOn(std::uint8_t value) {
    return value >= 64;
}
// All Sound Off, All Notes Off, and the changes of mode, which end all notes, too.
constexpr bool EndsNotes(std::size_t controller) {
    return controller == kAllSoundOff || controller >= kAllNotesOff;
}
// Those whose value says nothing: they count.
constexpr bool IsCounted(std::size_t controller) {
    return EndsNotes(controller) || controller == kResetControllers;
}
// The ones that enter the value of a parameter while one is selected.
constexpr bool IsDataEntry(std::size_t controller) {
    return controller == kDataEntryHigh || controller == kDataEntryLow || controller == kDataIncrement ||
           controller == kDataDecrement;
}
constexpr bool IsSelection(std::size_t controller) {
    return controller >= kUnregisteredLow && controller <= kRegisteredHigh;
}

// Finds the system exclusive messages that put an instrument back to how it was switched on, among pieces.
class ResetMessage {
  public:
    // Whether this piece ends such a message.
    bool IsEndedBy(const MidiPiece& piece) {
        if (piece.first) {
            size = 0;
        }
        for (const std::uint8_t byte : piece.bytes) {
            if (size < bytes.size()) {
                bytes[size] = byte;
            }
            size = std::min(size + 1, bytes.size() + 1);
        }
        return piece.last && IsReset();
    }

  private:
    // General MIDI on, off and 2 on; downloadable sounds on and off. Any device.
    bool IsReset() const {
        if (size != bytes.size() || bytes[0] != 0xF0 || bytes[1] != 0x7E || bytes[5] != 0xF7) {
            return false;
        }
        return (bytes[3] == 0x09 && bytes[4] <= 0x03) ||
               (bytes[3] == 0x0A && (bytes[4] == 0x01 || bytes[4] == 0x02));
    }

    std::array<std::uint8_t, 6> bytes{};
    std::size_t size = 0;
};

}  // namespace vexil::rtp
