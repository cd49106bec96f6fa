// The frames of an audio system as nanoseconds that never go back and never overflow. One thread at a time.
#pragma once

#include <cstdint>

namespace vexil {

class FrameClock {
  public:
    // Frames a second, not 0; the first cycle begins at `firstTime` nanoseconds.
    FrameClock(std::uint32_t frameRate, std::uint64_t firstTime) : rate(frameRate), origin(firstTime) {}

    // A cycle of `frames` frames begins. `frameTime` counts frames, runs over, leaves out what was missed,
    // and may go back when its system starts anew; a cycle never begins before the one in front of it has
    // ended.
    void Begin(std::uint32_t frameTime, std::uint32_t frames);

    // Nanoseconds at which the cycle begins and ends.
    std::uint64_t Start() const { return ToTime(position); }
    std::uint64_t End() const { return ToTime(position + length); }
    // Nanoseconds of a frame of the cycle, counted from its start.
    std::uint64_t TimeOf(std::uint32_t frame) const { return ToTime(position + frame); }
    // The first frame of the cycle that is not before a time; its first or last when the time is outside it.
    // TimeOf's inverse.
    std::uint32_t FrameOf(std::uint64_t time) const;

  private:
    std::uint64_t ToTime(std::uint64_t frame) const;

    std::uint32_t rate;
    std::uint64_t origin;
    bool hasBegun = false;
    std::uint32_t lastFrameTime = 0;
    std::uint64_t position = 0;  // frames
    std::uint32_t length = 0;
};

}  // namespace vexil
