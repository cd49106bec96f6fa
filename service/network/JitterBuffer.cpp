#include "service/network/JitterBuffer.h"

#include <algorithm>

namespace vexil {

std::uint64_t JitterBuffer::PlayAt(std::uint64_t now, std::uint64_t due) {
    if (!begun) {
        begun = true;
        spanBegin = now;
    }
    if (now - spanBegin >= kSpans * kSpan) {
        spans = {};
        spanBegin = now;
    }
    while (now - spanBegin >= kSpan) {
        NextSpan();
    }
    const std::uint64_t late = now > due ? now - due : 0;
    ++spans[present][std::min<std::uint64_t>((late + kStep - 1) / kStep, kSteps - 1)];
    return std::max(now, due + delay);
}

void JitterBuffer::NextSpan() {
    std::uint64_t all = 0;
    Counts sum{};
    for (const Counts& span : spans) {
        for (std::size_t step = 0; step < kSteps; ++step) {
            sum[step] += span[step];
            all += span[step];
        }
    }
    if (all != 0) {
        std::uint64_t later = all;
        std::size_t step = 0;
        for (; step + 1 < kSteps; ++step) {
            later -= sum[step];
            if (later * 100 <= all) {
                break;
            }
        }
        delay = std::clamp(step * kStep, kShortest, kLongest);
    }
    present = (present + 1) % kSpans;
    spans[present] = {};
    spanBegin += kSpan;
}

}  // namespace vexil
