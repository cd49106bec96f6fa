// vexil3ctl: the service, its network and the stored configuration from the command line. The whole program
// but for its streams, so that a test runs all of it. Ctl.cpp lists the commands, Command.h says what one is.
#pragma once

#include <string>
#include <vector>

#include "ctl/CollectedLog.h"
#include "ctl/Console.h"
#include "ctl/CtlResult.h"
#include "platform/linux/Paths.h"

namespace vexil {

// `arguments` without the program's name. What goes on for a while is shown on the console; the rest is in
// the result, and made printable.
CtlResult RunCtl(const std::vector<std::string>& arguments, const Paths& paths, CollectedLog& log,
                 Console& console);

}  // namespace vexil
