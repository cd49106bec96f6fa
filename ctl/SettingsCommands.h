// The commands that look after the stored configuration.
#pragma once

#include <functional>
#include <string>

#include "config/DriverConfiguration.h"
#include "ctl/Command.h"

namespace vexil {

// Changes the stored settings by `edit` and has the service take them up; `what` they are, for the person.
// Where `edit` returns false nothing is stored, and the result says nothing.
CtlResult ChangeSettings(const std::function<bool(DriverConfiguration&)>& edit, const std::string& what,
                         const CtlSurroundings& surroundings);

// "load FILE": stores the settings of a file, or of standard input for "-", and has the service take them up.
CtlResult RunLoad(const CommandLine& line, const CtlSurroundings& surroundings);
// "defaults": the same with the default settings.
CtlResult RunDefaults(const CommandLine& line, const CtlSurroundings& surroundings);
// "check FILE": what in a file means nothing. Changes nothing.
CtlResult RunCheck(const CommandLine& line, const CtlSurroundings& surroundings);
// "save FILE": writes the stored settings into a file, or to standard output for "-".
CtlResult RunSave(const CommandLine& line, const CtlSurroundings& surroundings);
// "reload": has the service read the stored settings again.
CtlResult RunReload(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
