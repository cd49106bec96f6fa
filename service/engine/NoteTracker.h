// What one source has left sounding on the input that hears it: held notes, and channels whose pedals,
// modulation, pressure or pitch bend are not at rest. One thread at a time; nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vexil {

class NoteTracker {
  public:
    // A message that puts something back to rest.
    struct Release {
        std::array<std::uint8_t, 3> bytes{};
        std::size_t length = 0;

        std::span<const std::uint8_t> Message() const { return std::span(bytes).first(length); }
    };

    // A whole message that the input has heard. All Notes Off and its like release nothing here: not everyone
    // obeys them, and a release too many does no harm.
    void Heard(std::span<const std::uint8_t> message);

    bool IsAtRest() const { return away == 0; }
    // The next message that puts something back to rest: note-offs, then pedals, modulation, channel
    // pressure, pitch bend; none when everything is at rest. It counts as heard once Heard is told of it.
    std::optional<Release> NextRelease() const;
    // Whether what a release puts back is away from rest here.
    bool Holds(const Release& release) const;
    // What is away from rest there is so here, too.
    void Add(const NoteTracker& other);
    // Everything is at rest.
    void Clear() { *this = NoteTracker(); }

    // Whether something would sound on, or sound wrong, if this whole message were never heard: a note-off,
    // what changes one of the controls above, and the messages that end all notes of a channel.
    static bool PutsSomethingRight(std::span<const std::uint8_t> message);

  private:
    static constexpr std::size_t kChannels = 16;
    static constexpr std::size_t kControlCount = 7;

    static std::size_t WordOf(int channel, int note) {
        return static_cast<std::size_t>(channel) * 2 + (note < 64 ? 0 : 1);
    }
    void Set(std::uint64_t& mask, int bit, bool isAway);

    std::array<std::uint64_t, 2 * kChannels> notes{};     // bit n % 64 of word 2 * channel + n / 64
    std::array<std::uint64_t, kControlCount> controls{};  // bit c: of channel c
    int away = 0;                                         // bits that are set
};

}  // namespace vexil
