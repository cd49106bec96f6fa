// Prints the results of the three steps of a restart request: RestartCaller [EVENT-ID]. Refuses to run where
// the system bus has not been replaced by another, so that it never restarts a computer.
#include <cstdio>
#include <cstdlib>

#include "platform/linux/desktop/LogindRestarter.h"

int main(int count, char** arguments) {
    if (std::getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr) {
        return 2;
    }
    vexil::LogindRestarter restarter;
    const int address = restarter.MakeAddress();
    const int event = restarter.MakeEvent(
        count > 1 ? static_cast<std::uint32_t>(std::strtoul(arguments[1], nullptr, 10)) : vexil::kAERestart);
    const int sent = restarter.SendEvent();
    std::printf("%d %d %d\n", address, event, sent);
    return 0;
}
