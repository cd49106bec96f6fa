// Waiting for a descriptor while the window lives.
#pragma once

#include <chrono>

namespace vexil {

// Runs the event loop until `descriptor` is ready for one of `events` (POLLIN, POLLOUT), or for `atMost`. A
// person can go on meanwhile, so whoever waits must bear to be called again from there.
void WaitInEventLoop(int descriptor, short events, std::chrono::milliseconds atMost);

}  // namespace vexil
