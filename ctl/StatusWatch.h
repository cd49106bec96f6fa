// "vexil3ctl status --watch": the status anew whenever it has changed, until Ctrl-C.
#pragma once

#include <functional>
#include <string>

#include "client/StatusReport.h"
#include "ctl/Console.h"
#include "ctl/CtlResult.h"
#include "platform/linux/Paths.h"

namespace vexil {

// Shows the status on the console: on a terminal in place of the one before, else behind an empty line. The
// service says when it has changed; nobody asks it meanwhile. The time that a session has spent in its state
// and its round trip do not count as a change; on a terminal that time goes on by itself. While no service is
// running that is said, and the watch goes on. Ends with Ctrl-C, done, or when nothing can be shown, failed.
// `textOf`: what is shown of a status.
CtlResult WatchStatus(const Paths& paths, Console& console,
                      const std::function<std::string(const StatusReport&)>& textOf);

}  // namespace vexil
