// What sounds, or is bent, at the far end of a stream of MIDI: what a synthesizer would still play if nothing
// more came.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vexil {

class Sounding {
  public:
    // Any piece of the stream.
    void Hear(const std::uint8_t* bytes, std::size_t size);

    // What is not as it was at the beginning, for people: "note 60 on channel 1, pedal on channel 2"; empty
    // when nothing sounds and every channel is as it was.
    std::string Rest() const;

  private:
    struct Channel {
        std::bitset<128> notes;
        std::uint8_t pedal = 0;
        std::uint8_t modulation = 0;
        std::uint16_t bend = 0x2000;
    };
    void Take(std::uint8_t status, std::uint8_t first, std::uint8_t second);

    std::array<Channel, 16> channels;
    std::uint8_t status = 0;  // of the message that is coming in; 0: none, or one without notes
    std::uint8_t first = 0;
    bool hasFirst = false;
};

}  // namespace vexil
