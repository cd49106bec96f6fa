// A moment up to which, or a time for which, something is waited for, as poll() wants it.
#pragma once

#include <algorithm>
#include <chrono>
#include <climits>

namespace vexil {

using Deadline = std::chrono::steady_clock::time_point;

// Whole milliseconds of a wait, from 0 to INT_MAX. Rounded up: it never ends before its time, and a negative
// time is no wait.
inline int MillisecondsOf(std::chrono::nanoseconds wait) {
    const auto whole = std::chrono::ceil<std::chrono::milliseconds>(wait).count();
    return static_cast<int>(std::clamp<decltype(whole)>(whole, 0, INT_MAX));
}

// Whole milliseconds from `now` to the deadline, as MillisecondsOf.
inline int MillisecondsUntil(Deadline deadline, Deadline now = std::chrono::steady_clock::now()) {
    return MillisecondsOf(deadline - now);
}

}  // namespace vexil
