// What a link waits for while no call of its owner's is under way, as one descriptor for an event loop: its
// socket, and a moment.
#pragma once

#include <chrono>

#include "shared/System/Descriptor.h"

namespace vexil {

// Where the kernel gives no descriptors for it, nothing is ever reported.
class LinkWatch {
  public:
    LinkWatch();

    // Readable as soon as what was last asked for has come.
    int Number() const { return waiting.Number(); }

    // Each replaces what was asked for before. `socket` is to be given anew after it was replaced by another
    // under the same number.
    void ForReply(int socket);  // or the end of the connection
    void ForEnd(int socket);    // of the connection alone
    void ForTime(int socket, std::chrono::milliseconds time);
    void ForNothing(int socket);

  private:
    void Watch(int socket, unsigned events);
    void SetTimer(std::chrono::milliseconds time) const;

    Descriptor waiting;  // epoll
    Descriptor timer;
};

}  // namespace vexil
