// Processes beside a test: programs of the system, and one that holds a note until it is killed.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace vexil {

class TestProcess {
  public:
    explicit TestProcess(const std::vector<std::string>& command);
    // Kills it when it still runs.
    ~TestProcess();
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    // Ends it without asking, and waits until it has ended.
    void Kill();
    // What it has printed since the last call. Never waits.
    std::string Printed();

  private:
    int process = -1;
    int output = -1;
};

// What a command prints until it ends.
std::string OutputOf(const std::string& command);

// The process that HoldNote is: /proc/self/exe, this, an address, "connected" or "direct".
inline constexpr const char* kHoldNoteArgument = "--hold-note";
// Presses a key and the pedal on an endpoint, connected to it or sent there without a connection, and waits
// to be killed. The exit status.
int HoldNote(const std::string& address, bool connected);

// A thread of this process by its name; -1 when there is none.
int ThreadNamed(const std::string& name);
// How often it has been put on a processor so far; -1 when there is none.
long SwitchesOfThread(const std::string& name);
// How long it has been on a processor so far.
std::chrono::milliseconds TimeOfThread(const std::string& name);

}  // namespace vexil
