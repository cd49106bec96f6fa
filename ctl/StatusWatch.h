// "vexil3ctl status --watch": the status anew whenever it has changed, until Ctrl-C.
#pragma once

#include <chrono>

#include "client/ServiceClient.h"
#include "ctl/Console.h"
#include "ctl/CtlResult.h"

namespace vexil {

// From one look at the status to the next.
inline constexpr std::chrono::milliseconds kWatchInterval{500};

// Shows the status on the console: on a terminal in place of the one before, else behind an empty line. For
// how long a session has been in its state, and its round trip, are no change there. While there is no status
// that is said, and the watch goes on. Ends with Ctrl-C, done, or when nothing can be shown, failed.
CtlResult WatchStatus(const ServiceClient& client, Console& console);

}  // namespace vexil
