// Wakes the control thread when something has happened in the engine that it is to look at.
#pragma once

#include <sys/eventfd.h>

#include "service/engine/Engine.h"
#include "shared/System/Descriptor.h"

namespace vexil {

class EngineEvent : public EngineWaker {
  public:
    // Any thread.
    void Wake() override { static_cast<void>(::eventfd_write(event.Number(), 1)); }

    // Readable when Wake was called since the last Take.
    int EventDescriptor() const { return event.Number(); }
    void Take() {
        eventfd_t count = 0;
        static_cast<void>(::eventfd_read(event.Number(), &count));  // nothing to read is fine
    }

  private:
    const Descriptor event{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

}  // namespace vexil
