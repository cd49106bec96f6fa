// Counts how often the driver of an engine was woken.
#pragma once

#include <atomic>

#include "service/engine/Engine.h"

namespace vexil {

struct CountingWaker : EngineWaker {
    void Wake() override { ++wakes; }
    std::atomic<int> wakes{0};  // so far
};

}  // namespace vexil
