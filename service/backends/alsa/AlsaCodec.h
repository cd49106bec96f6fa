// MIDI bytes to events of the ALSA sequencer and back. One thread at a time; nothing is allocated once made.
#pragma once

#include <alsa/asoundlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace vexil {

// The longest piece of a system exclusive in one event: the kernel's own drivers send no longer ones, and
// programs count on it.
inline constexpr std::size_t kAlsaPieceBytes = 256;

// What an event holds of MIDI.
struct AlsaBytes {
    // Of a system exclusive, as the program sent it, whatever it is; else whole messages with their status
    // bytes. Empty: nothing.
    std::span<const std::uint8_t> bytes;
    bool systemExclusive = false;
};

class AlsaCodec {
  public:
    AlsaCodec();

    // Any event that another program can send. Lasts until the next call, and as long as the event.
    AlsaBytes Decode(const snd_seq_event_t& event);
    // One whole message that is not system exclusive, or a piece of system exclusive of at most
    // kAlsaPieceBytes. False when it is no MIDI. The event points to the bytes of a piece.
    bool Encode(std::span<const std::uint8_t> bytes, snd_seq_event_t& event);

  private:
    struct Free {
        void operator()(snd_midi_event_t* coder) const { snd_midi_event_free(coder); }
    };
    using Coder = std::unique_ptr<snd_midi_event_t, Free>;
    static Coder MakeCoder();

    Coder decoder;
    Coder encoder;
    std::array<std::uint8_t, 32> decoded{};  // the longest: a parameter number and its value, 12 bytes
};

}  // namespace vexil
