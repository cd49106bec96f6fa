#include "service/ServiceHints.h"

#include <optional>
#include <utility>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr const char* kIsThere = "Avahi is there; it finds other computers, too.";

}  // namespace

void ServiceHints::Set(const InterfaceChoice& choice, const std::vector<NetworkInterface>& spoken,
                       ServiceWish offer) {
    if (!seam) {
        return;
    }
    std::optional<ServiceWish> wish;
    offer.interfaces.clear();
    if (choice.Which() == InterfaceChoice::Kind::All) {
        wish = std::move(offer);
    } else if (choice.Which() == InterfaceChoice::Kind::Listed) {
        std::vector<std::uint32_t> indices;
        for (const NetworkInterface& interface : spoken) {
            if (!interface.loopback) {
                indices.push_back(interface.index);
            }
        }
        if (!indices.empty()) {
            wish = std::move(offer);
            wish->interfaces = std::move(indices);
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
    if (!quiet && !line.empty() && line != told) {
        LogPrintf("%s\n", line.c_str());
        told = line;
    }
    return true;
}

std::vector<NetworkAddress> ServiceHints::Hints() const {
    return seam ? seam->Hints() : std::vector<NetworkAddress>();
}

std::vector<FoundService> ServiceHints::Found() const {
    return seam ? seam->Found() : std::vector<FoundService>();
}

}  // namespace vexil
