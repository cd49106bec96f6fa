// Makes the signals that ask a program to end (SIGTERM, SIGINT, SIGHUP) an event of the event loop.
#pragma once

#include <functional>
#include <memory>

class QSocketNotifier;

namespace vexil {

// One object per process. Signals that come before its event loop runs are acted on when it runs.
class TerminationSignals {
  public:
    // `requested` is called from the event loop. Without a pipe or handler for them the signals keep their
    // usual effect.
    explicit TerminationSignals(std::function<void()> requested);
    ~TerminationSignals();
    TerminationSignals(const TerminationSignals&) = delete;
    TerminationSignals& operator=(const TerminationSignals&) = delete;

  private:
    std::unique_ptr<QSocketNotifier> notifier;
};

}  // namespace vexil
