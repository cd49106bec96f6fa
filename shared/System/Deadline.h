// A moment up to which something is waited for, as poll() wants it.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace vexil {

using Deadline = std::chrono::steady_clock::time_point;

// Whole milliseconds from `now` to the deadline, from 0 to INT_MAX. Rounded up: a wait of that length never
// ends before the deadline, and a deadline that has passed is no wait.
inline int MillisecondsUntil(Deadline deadline, Deadline now = std::chrono::steady_clock::now()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace vexil
