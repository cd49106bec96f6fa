// Tells when the device of the ALSA sequencer comes, goes or changes its permissions. One thread.
#pragma once

#include "shared/System/Descriptor.h"

namespace vexil {

inline constexpr const char* kAlsaDevice = "/dev/snd/seq";

class AlsaDeviceWatch {
  public:
    AlsaDeviceWatch();

    // Readable when something has changed; -1 when the kernel does not tell.
    int EventDescriptor() const { return events.Number(); }
    // Reads the notifications. True when the device may have changed.
    bool Take();
    bool IsThere() const;

  private:
    void Watch();

    Descriptor events;
    int folder = -1;  // the watch on the devices of sound
    int parent = -1;  // the watch on the folder that it will be in; -1 while it is there
};

}  // namespace vexil
