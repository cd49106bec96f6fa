// The commands that look after the stored configuration.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// "load FILE": stores the settings of a file, and has the service take them up.
CtlResult RunLoad(const CommandLine& line, const CtlSurroundings& surroundings);
// "defaults": the same with the default settings.
CtlResult RunDefaults(const CommandLine& line, const CtlSurroundings& surroundings);
// "check FILE": what in a file means nothing. Changes nothing.
CtlResult RunCheck(const CommandLine& line, const CtlSurroundings& surroundings);
// "save FILE": writes the stored settings into a file.
CtlResult RunSave(const CommandLine& line, const CtlSurroundings& surroundings);
// "reload": has the service read the stored settings again.
CtlResult RunReload(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
