// A mutex whose holder inherits the priority of who waits for it: for what a realtime thread shares with
// another.
#pragma once

#include <pthread.h>

namespace vexil {

class PriorityMutex {
  public:
    PriorityMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        pthread_mutex_init(&mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~PriorityMutex() { pthread_mutex_destroy(&mutex); }
    PriorityMutex(const PriorityMutex&) = delete;
    PriorityMutex& operator=(const PriorityMutex&) = delete;

    // Named as std::mutex has them, for its guards.
    void lock() { pthread_mutex_lock(&mutex); }      // NOLINT(readability-identifier-naming)
    void unlock() { pthread_mutex_unlock(&mutex); }  // NOLINT(readability-identifier-naming)

  private:
    pthread_mutex_t mutex;
};

}  // namespace vexil
