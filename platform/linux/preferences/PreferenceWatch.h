// Seam: tells when a stored domain may have been changed by anybody.
#pragma once

namespace vexil {

class PreferenceWatch {
  public:
    virtual ~PreferenceWatch() = default;

    // Readable when Take has something to take. -1 where the system cannot watch: then nothing is ever told.
    virtual int EventDescriptor() const = 0;

    // Takes what has happened since the last call. True when the domain may have changed; it may also be
    // unchanged. To be called when the descriptor is readable; does not wait.
    virtual bool Take() = 0;
};

}  // namespace vexil
