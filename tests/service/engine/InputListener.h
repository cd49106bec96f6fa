// Hears one input as a music program does, checks that every message is whole, and remembers what is left
// sounding. Allocates nothing once it is made.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <span>

namespace vexil {

class InputListener {
  public:
    void Hear(std::span<const std::uint8_t> bytes) {
        const bool isRealtime = bytes[0] >= 0xF8;
        if (isRealtime) {
            broken |= bytes.size() != 1;
        } else if (inExclusive || bytes[0] == 0xF0) {
            HearExclusive(bytes);
        } else {
            broken |= bytes[0] < 0x80 || bytes.size() > 3;
            HearMessage(bytes);
        }
    }

    // Something came inside a system exclusive that does not belong there, or a message was not whole.
    bool IsBroken() const { return broken; }
    bool IsAtRest() const {
        return !inExclusive && notes.none() && sustain.none() && modulation.none() && bend.none();
    }

  private:
    // The data bytes of a system exclusive all carry the number of the source that wrote it.
    void HearExclusive(std::span<const std::uint8_t> bytes) {
        for (const std::uint8_t byte : bytes) {
            if (byte == 0xF0) {
                broken |= inExclusive;
                inExclusive = true;
                writer = 0xFF;
            } else if (byte == 0xF7) {
                broken |= !inExclusive;
                inExclusive = false;
            } else {
                broken |= byte >= 0x80 || !inExclusive || (writer != 0xFF && writer != byte);
                writer = byte;
            }
        }
    }
    void HearMessage(std::span<const std::uint8_t> bytes) {
        if (bytes.size() != 3) {
            return;
        }
        const std::size_t channel = bytes[0] & 0x0FU;
        switch (bytes[0] & 0xF0) {
            case 0x80:
            case 0x90:
                notes[channel * 128 + bytes[1]] = (bytes[0] & 0xF0) == 0x90 && bytes[2] != 0;
                break;
            case 0xB0:
                (bytes[1] == 64 ? sustain : modulation)[channel] = bytes[2] != 0;
                break;
            case 0xE0:
                bend[channel] = bytes[1] != 0 || bytes[2] != 64;
                break;
            default:
                break;
        }
    }

    bool broken = false;
    bool inExclusive = false;
    std::uint8_t writer = 0xFF;
    std::bitset<16 * 128> notes;
    std::bitset<16> sustain, modulation, bend;
};

}  // namespace vexil
