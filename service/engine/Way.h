// What the engine knows of a route.
#pragma once

#include <array>

#include "config/DriverConfiguration.h"
#include "service/routes/Destination.h"

namespace vexil {

struct Way {
    Destination to;          // nowhere: what the source plays is counted and left out
    bool immediate = false;  // not held back by send quantization

    bool operator==(const Way&) const = default;
};

// The ways of the outputs, by port.
using WayTable = std::array<Way, kMaxPorts>;

}  // namespace vexil
