// A system bus of the test's own, with a stand-in for logind on it. While one lives, the system bus of this
// process is that bus, so no request can reach the computer's.
#pragma once

#include <sys/types.h>

#include <string>

struct sd_bus;

namespace vexil {

class PrivateSystemBus {
  public:
    PrivateSystemBus();
    ~PrivateSystemBus();
    PrivateSystemBus(const PrivateSystemBus&) = delete;
    PrivateSystemBus& operator=(const PrivateSystemBus&) = delete;

    // Whether this machine has what the bus needs.
    static bool IsPossible();

    // The bus goes, as if its daemon had been killed.
    void End();

    // How many reboots the stand-in has been asked for by everything that was sent before this call.
    int Reboots();

  private:
    void StartDaemon();
    void StartLogind();

    std::string folder;
    pid_t daemon = -1;
    sd_bus* logind = nullptr;
    int reboots = 0;
};

}  // namespace vexil
