// "vexil3ctl monitor [PORT...]": the messages that go through the service, as they go.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// Shows what the outputs, test outputs and inputs of these ports, or of all, are given and hear, until
// Ctrl-C. A service that ends meanwhile is waited for.
CtlResult RunMonitor(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
