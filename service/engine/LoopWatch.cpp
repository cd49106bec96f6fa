#include "service/engine/LoopWatch.h"

namespace vexil {

// Returns whether the second that is over brings the suspicion.
bool LoopWatch::NextSecond(std::uint64_t time) {
    const bool wasSuspected = Rate() != 0;
    const bool isNext = time - start < 2 * kSecond;
    seconds = isNext && count > kUsualRate ? seconds + 1 : 0;
    const bool isSuspected = seconds >= kUsualSeconds;
    rate.store(isSuspected ? count : 0, std::memory_order_relaxed);
    start = isNext ? start + kSecond : time;
    count = 0;
    return isSuspected && !wasSuspected;
}

}  // namespace vexil
