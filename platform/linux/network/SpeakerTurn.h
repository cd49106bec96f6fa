// Which driver of this computer speaks to the network: the one that holds a name of the system, an abstract
// socket address. Names of that kind belong to a network namespace, as UDP ports do, and go with the process
// that holds them.
//
// One thread.
#pragma once

#include <string>

#include "shared/System/Descriptor.h"

namespace vexil {

class SpeakerTurn {
  public:
    // `name`: another one than the driver's for tests.
    explicit SpeakerTurn(std::string name = "vexil3/network") : address(std::move(name)) {}

    // Takes the turn. False when another process has it: Holder says whose, and EventDescriptor becomes
    // readable when it has ended. True also when the system has no such names: then everybody speaks.
    bool Take();
    // Gives it up, or waits no longer.
    void Leave();

    // While another one has it: "user mia" or "user 1001".
    const std::string& Holder() const { return holder; }
    // While another one has it; else -1. It changes with Take and Leave.
    int EventDescriptor() const { return waiting.Number(); }

  private:
    std::string address;
    std::string holder;
    Descriptor held;     // the name is ours
    Descriptor waiting;  // connected to whoever has it
};

}  // namespace vexil
