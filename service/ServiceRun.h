// The life of the service once its parts are there: it waits for what clients, the MIDI system, the service
// manager and signals want of it, until it is told to end.
#pragma once

#include "service/backends/MidiBackend.h"
#include "service/control/ControlListener.h"
#include "service/control/DriverService.h"
#include "service/control/RemoteNetwork.h"
#include "service/control/StoreWatch.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// SIGTERM, SIGINT and SIGHUP, read from a descriptor.
class ServiceSignals {
  public:
    // Blocks them in this thread and those it makes: to be made before any other thread.
    ServiceSignals();

    int EventDescriptor() const { return descriptor.Number(); }
    // The next signal that has come; 0: no signal has come.
    int Take() const;

  private:
    Descriptor descriptor;
};

// Starts the service and serves until SIGTERM or SIGINT has come and what sounded is released. False, with a
// line in the log, when the system lacks something that the service needs.
bool RunService(const ServiceSignals& signals, const ControlListener& listener, MidiBackend& backend,
                RemoteNetwork& network, DriverService& service, StoreWatch& storeWatch);

}  // namespace vexil
