// "vexil3ctl panic": ends every note everywhere.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// Has the service end all notes, and tells where it did.
CtlResult RunPanic(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
