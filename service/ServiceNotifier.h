// Tells the service manager how things stand, where one has asked for it (NOTIFY_SOCKET), and that the
// service is alive (WATCHDOG_USEC). Without a service manager every operation does nothing.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace vexil {

class ServiceNotifier {
  public:
    ServiceNotifier();

    // `status` is one sentence for the user.
    void Ready(const std::string& status);
    // Between Reloading and Ready the configuration is read.
    void Reloading() const;
    void Stopping() const;
    // Sent when it differs from what was sent last.
    void Status(const std::string& status);

    // How often Alive is to be called; none when nobody waits for it.
    std::optional<std::chrono::microseconds> AliveInterval() const { return aliveInterval; }
    void Alive() const;

  private:
    std::optional<std::chrono::microseconds> aliveInterval;
    std::string lastStatus;
};

}  // namespace vexil
