// Asking the system to restart the computer.
#pragma once

#include <cstdint>

#include "panel/Restarter.h"

namespace vexil {

// Sends the request of the four-character event id to the system and does not wait for an answer. Failures
// are log lines.
void RequestSystemRestart(Restarter& restarter, std::uint32_t eventId);

}  // namespace vexil
