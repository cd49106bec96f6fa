// Closes descriptors on a thread that does nothing else. Closing what somebody else has opened can take as
// long as its opener pleases: a connection that lingers until the other end has read everything.
#pragma once

#include <memory>

#include "shared/System/Descriptor.h"

namespace vexil {

// One thread uses an object. What is not closed by the object's end is closed afterwards, or by the end of
// the process, which waits for nobody.
class DescriptorCloser {
  public:
    DescriptorCloser();
    ~DescriptorCloser();
    DescriptorCloser(const DescriptorCloser&) = delete;
    DescriptorCloser& operator=(const DescriptorCloser&) = delete;

    // Takes a descriptor over; returns at once. The first one starts the thread; where there can be none, it
    // is closed here.
    void Close(Descriptor descriptor);
    // Whether something is still to be closed.
    bool IsBusy() const;

  private:
    struct Queue;
    static void Work(Queue& queue);

    std::shared_ptr<Queue> queue;  // shared with the thread, which may outlive this object
    bool hasThread = false;
};

}  // namespace vexil
