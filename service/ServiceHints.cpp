#include "service/ServiceHints.h"

#include <optional>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kIsThere = "Avahi is there; it finds other computers, too.";

}  // namespace

void ServiceHints::Set(const InterfaceChoice& choice, const std::vector<NetworkInterface>& spoken,
                       const std::string& name, std::uint16_t port) {
    if (!seam) {
        return;
    }
    std::optional<ServiceWish> wish;
    if (choice.Which() == InterfaceChoice::Kind::All) {
        wish = {name, port, {}};
    } else if (choice.Which() == InterfaceChoice::Kind::Listed) {
        std::vector<std::uint32_t> indices;
        for (const NetworkInterface& interface : spoken) {
            if (!interface.loopback) {
                indices.push_back(interface.index);
            }
        }
        if (!indices.empty()) {
            wish = {name, port, indices};
        }
    }
    seam->Set(wish);
}

void ServiceHints::LookAgain() {
    if (seam) {
        seam->LookAgain();
    }
}

bool ServiceHints::Serve() {
    if (!seam || !seam->Serve()) {
        return false;
    }
    const std::string problem = seam->Problem();
    const bool isOn = seam->CurrentState() == ServiceDiscovery::State::On;
    const std::string line = !problem.empty() ? problem : isOn ? kIsThere : "";
    if (!line.empty() && line != told) {
        LogPrintf("%s\n", line.c_str());
        told = line;
    }
    return true;
}

std::vector<NetworkAddress> ServiceHints::Hints() const {
    return seam ? seam->Hints() : std::vector<NetworkAddress>();
}

}  // namespace vexil
