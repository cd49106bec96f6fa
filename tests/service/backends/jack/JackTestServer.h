// A MIDI server of the test's own that it may kill: jackd on its dummy driver, or PipeWire when the program
// runs on PipeWire's libjack. Nothing of another server of this computer is touched.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/service/backends/jack/DirectPair.h"

namespace vexil {

class JackTestServer {
  public:
    // The one of this process.
    static JackTestServer& Instance();
    ~JackTestServer();

    // Why there can be none on this machine; empty when there can.
    static std::string WhyNot();

    // Whether the server waits for clients that are late. It then loses nothing on a busy machine, but a
    // client that is killed holds it up. From the next start on; the server must not run. PipeWire never
    // waits.
    void SetSynchronous(bool waits) { synchronous = waits; }
    // Starts it if it does not run; returns when it carries MIDI, false when it does not in two times 20 s.
    bool Start();
    // Kills it without warning.
    void Kill();
    // It stands still until Resume, and does not answer.
    void Pause();
    void Resume() { Send(SIGCONT); }
    // Ends it as a user does. One that hangs is killed after 10 s.
    void End();

  private:
    JackTestServer();
    void SpawnServer();
    void Spawn(const std::vector<std::string>& command);
    void Send(int number);
    void Signal(int number);

    bool synchronous = true;
    std::vector<pid_t> processes;
    std::unique_ptr<DirectPair> pair;  // on PipeWire while it runs, to tell its faults from the service's
};

// Whether this process uses PipeWire's libjack: the environment variable VEXIL_TEST_PIPEWIRE says so.
bool IsPipeWire();

}  // namespace vexil
