// What an instrument with three channels makes of a stream of MIDI, plainly: the keys that are down, what the
// pedal holds, controllers, programs with their banks, bend, pressure and parameters. It knows nothing of
// journals.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <string>

#include "service/network/LinkBytes.h"

namespace vexil::test {

class MidiState {
  public:
    static constexpr std::size_t kChannels = 3;

    // A whole message; system messages count for the song and for resets alone.
    void Play(ByteView message);

    // The first thing in which an instrument that heard this one differs from what it should be, as text;
    // empty when they are equal. What the pedal alone holds may be silent there, but not sound there and be
    // silent here.
    std::string DifferenceOf(const MidiState& heard) const;

    bool IsDown(int channel, int note) const { return channels[Index(channel)].keys[Index(note)] != 0; }
    // Whether a key was struck more often there than here.
    bool IsStruckMoreOften(const MidiState& heard) const;

  private:
    static constexpr std::size_t kNumbers = 128;
    template <class Value>
    using Numbers = std::array<Value, kNumbers>;

    struct Parameter {
        bool isUsed = false;
        bool isUnregistered = false;
        std::uint8_t number[2] = {0, 0};
        std::uint8_t entries[2] = {0, 0};
        bool hasEntries[2] = {false, false};
        int steps = 0;
        bool operator==(const Parameter&) const = default;
    };
    enum class Selecting : std::uint8_t { Nothing, High, Both };
    struct Selection {
        Selecting what = Selecting::Nothing;
        bool isUnregistered = false;
        std::uint8_t number[2] = {0, 0};
        bool operator==(const Selection&) const = default;
    };
    struct Channel {
        Numbers<std::uint8_t> keys{};  // with their velocities; 0: not down
        std::bitset<kNumbers> held;    // by the pedal alone
        Numbers<std::uint8_t> controllers{};
        std::array<int, 3> program = {-1, 0, 0};  // and its bank
        std::array<std::uint8_t, 2> bend = {0, 64};
        std::uint8_t pressure = 0;
        Numbers<std::uint8_t> polyPressure{};
        Selection selection;
        std::uint8_t highs[2] = {0, 0};
        std::array<Parameter, 8> parameters;
        Numbers<std::uint8_t> strikes{};
    };

    static std::size_t Index(int number) { return static_cast<std::size_t>(number); }
    static void Release(Channel& channel, std::uint8_t note);
    static void Control(Channel& channel, std::uint8_t number, std::uint8_t value);
    static void EndNotes(Channel& channel, bool isSilence);
    static void Reset(Channel& channel);
    static bool Enter(Channel& channel, std::uint8_t number, std::uint8_t value);
    static void Select(Channel& channel, std::uint8_t number, std::uint8_t value);
    static std::string DifferenceOf(const Channel& here, const Channel& heard);

    std::array<Channel, kChannels> channels;
    int song = -1;
};

}  // namespace vexil::test
