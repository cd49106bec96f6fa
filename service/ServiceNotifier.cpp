#include "service/ServiceNotifier.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace vexil {

namespace {

std::string MonotonicMicroseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace

ServiceNotifier::ServiceNotifier() {
    const char* path = std::getenv("NOTIFY_SOCKET");
    if (path != nullptr && (path[0] == '/' || path[0] == '@') &&
        std::strlen(path) < sizeof(sockaddr_un::sun_path)) {
        address = path;
        if (address[0] == '@') {
            address[0] = '\0';  // a name of the system that is in no folder
        }
        socket = Descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    }
    std::uint64_t limit = 0;
    if (sd_watchdog_enabled(1, &limit) > 0) {
        aliveInterval = std::chrono::microseconds(limit / 2);
    }
}

void ServiceNotifier::Ready(const std::string& status) {
    lastStatus = Tell("READY=1\nSTATUS=" + status) ? status : "";
}

void ServiceNotifier::Reloading() const {
    static_cast<void>(Tell("RELOADING=1\nMONOTONIC_USEC=" + MonotonicMicroseconds()));
}

void ServiceNotifier::Stopping() const {
    static_cast<void>(Tell("STOPPING=1"));
}

void ServiceNotifier::Status(const std::string& status) {
    if (status != lastStatus && Tell("STATUS=" + status)) {
        lastStatus = status;
    }
}

void ServiceNotifier::Alive() const {
    static_cast<void>(Tell("WATCHDOG=1"));
}

bool ServiceNotifier::Tell(const std::string& state) const {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    std::copy(address.begin(), address.end(), place.sun_path);
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    return !address.empty() && sendto(socket.Number(), state.data(), state.size(), MSG_NOSIGNAL,
                                      reinterpret_cast<const sockaddr*>(&place), size) >= 0;
}

}  // namespace vexil
