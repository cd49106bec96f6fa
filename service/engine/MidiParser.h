// Splits a stream of MIDI 1.0 bytes into messages. The stream may be cut into writes anywhere.
//
// What comes out: channel messages with their status byte, whether or not the stream had left it out; system
// common messages; realtime messages at the place where they stood, those inside another message in front of
// it or between two pieces of it; system exclusive in pieces as it comes, however long it is. What does not
// come out: data bytes that belong to no message, messages that another status byte cuts short, undefined
// status bytes (F4, F5, F9, FD) and an end of exclusive (F7) where nothing is to be ended. A system exclusive
// that another status byte cuts is ended with F7, so that whoever heard its beginning hears an end.
//
// One thread at a time. Nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vexil {

// The longest piece of a system exclusive message.
inline constexpr std::size_t kLongestPiece = 992;

// One whole message, or one piece of a system exclusive message.
struct MidiPiece {
    std::span<const std::uint8_t> bytes;
    bool systemExclusive = false;
    bool first = true;  // begins its message
    bool last = true;   // ends its message
};

class MidiParser {
  public:
    // Takes bytes from the front of `bytes` until a piece is complete; null when all bytes are taken and no
    // piece is complete. The piece's bytes last until the next call and as long as what `bytes` pointed to.
    std::optional<MidiPiece> Next(std::span<const std::uint8_t>& bytes);
    // The same for bytes of system exclusive: whatever else stands there is left out.
    std::optional<MidiPiece> NextOfExclusive(std::span<const std::uint8_t>& bytes);
    // In front of a whole message that does not come through the stream: the end of a system exclusive that
    // is under way, if any.
    std::optional<MidiPiece> EndExclusive();

    // Whether a system exclusive is under way that is handed out.
    bool IsInExclusive() const { return exclusive == Exclusive::Passing; }
    // Begins a new stream. A system exclusive that is under way gets no end.
    void Reset();
    // What is still to come of the system exclusive message that is under way, if any, is not handed out.
    void SkipSystemExclusive();
    // Data bytes that follow without a status byte belong to no message.
    void EndRunningStatus();

  private:
    enum class Exclusive : std::uint8_t { None, Passing, Skipping };

    std::optional<MidiPiece> TakeRealtime(std::uint8_t byte);
    MidiPiece TakeExclusive(std::span<const std::uint8_t>& bytes, bool first);
    std::optional<MidiPiece> TakeStatus(std::uint8_t status);
    std::optional<MidiPiece> TakeData(std::uint8_t data);

    std::array<std::uint8_t, 3> message{};
    std::size_t have = 0;  // bytes of `message` that are there; 0: no message has begun
    std::size_t need = 0;  // bytes that make it whole
    std::uint8_t runningStatus = 0;
    std::uint8_t realtime = 0;
    Exclusive exclusive = Exclusive::None;
};

}  // namespace vexil
