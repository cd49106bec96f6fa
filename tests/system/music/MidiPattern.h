// What a music program plays when it keeps a port busy: endless, and the same each time for the same seed, so
// that whoever hears it knows what must come next.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vexil {

using MidiBytes = std::vector<std::uint8_t>;

class MidiPattern {
  public:
    explicit MidiPattern(std::uint32_t seed) : random(seed) {}

    // The next message, whole. Every kind but the realtime ones occurs; now and then a system exclusive,
    // seldom one of kLongest bytes.
    MidiBytes Next();

    static constexpr std::size_t kLongest = 12000;

  private:
    std::uint8_t Data() { return static_cast<std::uint8_t>(random() & 0x7F); }
    MidiBytes SystemExclusive(std::size_t size);

    std::minstd_rand random;
};

// Compares what is heard with what must come. Realtime messages may come anywhere and are counted apart.
class PatternListener {
  public:
    explicit PatternListener(std::uint32_t seed) : pattern(seed) {}

    void Hear(const std::uint8_t* bytes, std::size_t size);

    std::uint64_t Messages() const { return messages; }
    std::uint64_t Realtime() const { return realtime; }
    // Where it first went wrong, for people; empty: nowhere. Nothing is compared after that.
    const std::string& Fault() const { return fault; }

  private:
    MidiPattern pattern;
    MidiBytes expected;  // the message that is coming in
    std::size_t position = 0;
    std::uint64_t messages = 0;  // heard whole
    std::uint64_t realtime = 0;
    std::string fault;
};

}  // namespace vexil
