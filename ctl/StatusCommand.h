// The commands that show how things stand.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// "status": once, or with "--watch" anew whenever it changes, or with "--wait" when every route gets through.
CtlResult RunStatus(const CommandLine& line, const CtlSurroundings& surroundings);
// "hosts": the computers that the service knows.
CtlResult RunHosts(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
