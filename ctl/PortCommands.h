// The commands that look at and change the stored settings of one port.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// "get PORT [KEY]": all settings, or the value of one.
CtlResult RunGet(const CommandLine& line, const CtlSurroundings& surroundings);
// "set PORT KEY=VALUE...": stores them, and has the service take them up.
CtlResult RunSet(const CommandLine& line, const CtlSurroundings& surroundings);
// "enable PORT [SIDE...]": in, out or pipe; without a side in and out.
CtlResult RunEnable(const CommandLine& line, const CtlSurroundings& surroundings);
// "disable PORT [SIDE...]"; without a side all of them.
CtlResult RunDisable(const CommandLine& line, const CtlSurroundings& surroundings);
// "connect PORT COMPUTER:PORT": the output sends there, and is enabled.
CtlResult RunConnect(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
