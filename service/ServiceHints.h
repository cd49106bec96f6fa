// What DNS-SD adds to the driver's own finding of other computers: publishes this one where it may speak,
// hands on where others are said to be, and tells in the log when the system's part of it comes and goes.
//
// Control thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "service/network/InterfaceChoice.h"
#include "service/network/Interfaces.h"
#include "service/network/ServiceDiscovery.h"

namespace vexil {

class ServiceHints {
  public:
    // Null: other computers are found without DNS-SD. `isQuiet`: nothing of it is told in the log.
    explicit ServiceHints(std::unique_ptr<ServiceDiscovery> discovery, bool isQuiet = false)
        : seam(std::move(discovery)), quiet(isQuiet) {}

    // What this computer offers, and where it speaks: only on networks, never on loopback alone. `spoken`:
    // the interfaces of the choice that are up; those of `offer` count for nothing.
    void Set(const InterfaceChoice& choice, const std::vector<NetworkInterface>& spoken, ServiceWish offer);
    void LookAgain();

    // -1: there is nothing to serve.
    int EventDescriptor() const { return seam ? seam->EventDescriptor() : -1; }
    // True when Hints may have changed.
    bool Serve();
    std::vector<NetworkAddress> Hints() const;
    std::vector<FoundService> Found() const;
    // As ServiceDiscovery has it.
    std::string Problem() const { return seam ? seam->Problem() : ""; }

  private:
    const std::unique_ptr<ServiceDiscovery> seam;
    const bool quiet;
    std::string told;  // by the log, last
};

}  // namespace vexil
