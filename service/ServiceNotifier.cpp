#include "service/ServiceNotifier.h"

#include <systemd/sd-daemon.h>

#include <cstdint>
#include <ctime>

namespace vexil {

namespace {

// A manager that cannot be told is none of the service's business: it goes on without.
void Tell(const std::string& state) {
    static_cast<void>(sd_notify(0, state.c_str()));
}

std::string MonotonicMicroseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace

ServiceNotifier::ServiceNotifier() {
    std::uint64_t limit = 0;
    if (sd_watchdog_enabled(1, &limit) > 0) {
        aliveInterval = std::chrono::microseconds(limit / 2);
    }
}

void ServiceNotifier::Ready(const std::string& status) {
    Tell("READY=1\nSTATUS=" + status);
    lastStatus = status;
}

void ServiceNotifier::Reloading() const {
    Tell("RELOADING=1\nMONOTONIC_USEC=" + MonotonicMicroseconds());
}

void ServiceNotifier::Stopping() const {
    Tell("STOPPING=1");
}

void ServiceNotifier::Status(const std::string& status) {
    if (status != lastStatus) {
        Tell("STATUS=" + status);
        lastStatus = status;
    }
}

void ServiceNotifier::Alive() const {
    Tell("WATCHDOG=1");
}

}  // namespace vexil
