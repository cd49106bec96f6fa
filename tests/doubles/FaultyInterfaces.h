// Interfaces around others that fail on demand, in the way a system that cannot tell of changes fails:
// nothing is told, and the list stays as it is.
#pragma once

#include <vector>

#include "service/network/Interfaces.h"

namespace vexil {

class FaultyInterfaces : public Interfaces {
  public:
    // `wrappedInterfaces` must outlive this object.
    explicit FaultyInterfaces(Interfaces& wrappedInterfaces) : wrapped(wrappedInterfaces) {}

    void Fail(bool on) { failing = on; }

    int EventDescriptor() const override { return failing ? -1 : wrapped.EventDescriptor(); }
    bool Take() override { return !failing && wrapped.Take(); }
    const std::vector<NetworkInterface>& List() const override { return wrapped.List(); }

  private:
    Interfaces& wrapped;
    bool failing = false;
};

}  // namespace vexil
