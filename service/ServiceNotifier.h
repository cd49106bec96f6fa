// Tells the service manager how things stand, where one has asked for it (NOTIFY_SOCKET), and that the
// service is alive (WATCHDOG_USEC). Without a service manager every operation does nothing.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "shared/System/Descriptor.h"

namespace vexil {

class ServiceNotifier {
  public:
    ServiceNotifier();

    // `status` is one sentence for the user.
    void Ready(const std::string& status);
    // Between Reloading and Ready the configuration is read.
    void Reloading() const;
    void Stopping() const;
    // Told when it differs from what was told last.
    void Status(const std::string& status);

    // How often Alive is to be called; null when nobody waits for it.
    std::optional<std::chrono::microseconds> AliveInterval() const { return aliveInterval; }
    void Alive() const;

  private:
    // False when nobody has heard it.
    bool Tell(const std::string& state) const;

    Descriptor socket;
    std::string address;  // of the manager's socket, as the system takes it; empty: no manager waits
    std::optional<std::chrono::microseconds> aliveInterval;
    std::string lastStatus;
};

}  // namespace vexil
