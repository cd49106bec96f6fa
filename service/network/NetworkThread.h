// The thread of MIDI between computers: waits for datagrams, for what the engine delivers and for times, and
// has its work done under a lock. Who holds the lock may use what the work is made of: the control thread
// does for short moments.
//
// Realtime below the MIDI thread, where the system allows it.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>

#include "service/engine/Engine.h"
#include "service/network/NetworkDriver.h"
#include "service/network/PriorityMutex.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// What there is to do. Called with the lock held.
class NetworkWork {
  public:
    virtual ~NetworkWork() = default;
    // Readable when Read is to be called.
    virtual int EventDescriptor() const = 0;
    // Takes datagrams that have arrived, a few at a time. Whether there may be more.
    virtual bool Read() = 0;
    // Does what is due. The engine takes what comes of it afterwards.
    virtual void Act() = 0;
    // Sends what the engine has delivered.
    virtual void Deliver() = 0;
    // Microseconds of CLOCK_BOOTTIME at which Act is to be called; null: not before something happens. It is
    // not called earlier, but perhaps later: not before all that had arrived was read.
    virtual std::optional<std::uint64_t> NextTime() const = 0;
    // Whether the control thread is to hear that something has changed; once for each change.
    virtual bool TakeChanged() = 0;
};

// Microseconds of CLOCK_BOOTTIME.
std::uint64_t BootMicroseconds();
// How far the steady clock is ahead of it, nanoseconds.
std::int64_t SteadyLeadNanoseconds();

class NetworkThread : public EngineWaker {
  public:
    // Starts it; all must outlive this object. `driver` hears of it until the end.
    NetworkThread(NetworkWork& networkWork, NetworkDriver& engineDriver);
    ~NetworkThread() override;

    // Any thread: there is something to do. Costs a system call only where the thread sleeps.
    void Wake() override;
    PriorityMutex& Lock() { return mutex; }
    // Readable when something has changed, for the control thread; TakeEvent makes it unreadable.
    int EventDescriptor() const { return news.Number(); }
    void TakeEvent() const;
    // Why it has no realtime priority; empty when it has.
    const std::string& RealtimeProblem() const { return realtimeProblem; }

  private:
    void Main();
    void Round(bool reads);
    std::optional<std::uint64_t> Turn();
    bool Sleep();
    void Arm(std::optional<std::uint64_t> time);

    NetworkWork& work;
    NetworkDriver& driver;
    PriorityMutex mutex;
    Descriptor wakeEvent;
    Descriptor timer;
    Descriptor news;
    // Whoever wakes the thread says so first and looks then whether it sleeps; the thread the other way
    // round.
    std::atomic<bool> woken{false};
    std::atomic<bool> sleeps{false};
    std::atomic<bool> ending{false};
    std::uint64_t armedAt = 0;  // 0: the timer is not armed
    std::string realtimeProblem;
    std::thread thread;
};

}  // namespace vexil
