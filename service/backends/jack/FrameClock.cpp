#include "service/backends/jack/FrameClock.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;

}  // namespace

void FrameClock::Begin(std::uint32_t frameTime, std::uint32_t frames) {
    if (hasBegun) {
        const auto passed = static_cast<std::int32_t>(frameTime - lastFrameTime);
        position += static_cast<std::uint64_t>(std::max<std::int64_t>(passed, length));
    }
    hasBegun = true;
    lastFrameTime = frameTime;
    length = frames;
}

std::uint32_t FrameClock::FrameOf(std::uint64_t time) const {
    time -= std::min(time, origin);
    const std::uint64_t frame = time / kSecond * rate + (time % kSecond * rate + kSecond - 1) / kSecond;
    const std::uint64_t last = length == 0 ? 0 : length - 1;
    return static_cast<std::uint32_t>(std::clamp(frame, position, position + last) - position);
}

std::uint64_t FrameClock::ToTime(std::uint64_t frame) const {
    return origin + frame / rate * kSecond + frame % rate * kSecond / rate;
}

}  // namespace vexil
