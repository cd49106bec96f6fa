// "vexil3ctl network ...": MIDI between this computer and others.
#pragma once

#include "ctl/Command.h"

namespace vexil {

// The text of "vexil3ctl network --help".
extern const char* const kNetworkHelp;

// Without words the list of computers, else one of the commands that the help tells of.
CtlResult RunNetwork(const CommandLine& line, const CtlSurroundings& surroundings);

}  // namespace vexil
