// Keeps the thread on which JACK's library tells a client what has changed inside a callback of the service,
// while the control thread takes a port back. The library takes the port out of its list of the client's
// ports without a lock, and goes through that list on the other thread whenever latencies are computed anew,
// which any program of the server can cause at any moment: it then reads what has been freed, and the service
// ends by SIGSEGV. A thread that is in a callback does not go through the list.
//
// The server may wait for the very thread that is held, and the control thread for the server. So the thread
// is let go as soon as the control thread sleeps inside the library's call: what touches the list comes
// first in it and does not sleep.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace vexil {

class NotificationGate {
  public:
    // For JACK's thread, in each callback: stays here while it is wanted.
    void Pass();

    // For the control thread. `cause` makes JACK call a callback; when the other thread is in one, `call`
    // is made, which gives the result. It is made in any case: where no callback has come after 150 ms, JACK
    // is too busy to be waited for.
    int Hold(const std::function<void()>& cause, const std::function<int()>& call);
    // Calls that were made while the other thread was not held.
    int Missed() const { return missed; }

  private:
    enum class State { Open, Asked, Calling };

    bool WaitUntilHeld();
    void Set(State next);

    std::mutex mutex;
    std::condition_variable changed;
    State state = State::Open;
    bool isHeld = false;
    pid_t caller = 0;  // the control thread, by the kernel's number
    int missed = 0;    // the control thread's
};

}  // namespace vexil
