// A connection with the system's D-Bus (DBUS_SYSTEM_BUS_ADDRESS, or the usual place) that never waits: calls
// are sent, and their answers handled when they have come.
//
// One thread.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "shared/System/Descriptor.h"

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

namespace vexil {

struct ReleaseBusMessage {
    void operator()(sd_bus_message* message) const;
};
using BusMessage = std::unique_ptr<sd_bus_message, ReleaseBusMessage>;

class SystemBus {
  public:
    using Handler = std::function<void(sd_bus_message* message)>;

    // `signalHandler` gets every signal that comes.
    explicit SystemBus(Handler signalHandler);
    ~SystemBus();
    SystemBus(const SystemBus&) = delete;
    SystemBus& operator=(const SystemBus&) = delete;

    // Begins to connect; false where there is no bus. What is called meanwhile is sent when it is connected.
    bool Open();
    // What was called and not answered is forgotten.
    void Close();
    bool IsOpen() const { return bus != nullptr; }

    // Readable when Serve is to be called; the same one for as long as this object lives.
    int EventDescriptor() const { return events.Number(); }
    // Handles some of what has come. False when the connection has ended; it is closed then.
    bool Serve();

    // A call to be filled and made; null when memory runs out or the bus is closed.
    BusMessage MakeCall(const char* service, const char* path, const char* interface, const char* member);
    // Makes it. `answered` gets the answer or an error, however late; it may make calls, forget them, and
    // close the connection. A call that cannot be made is not answered.
    void Call(BusMessage call, Handler answered);
    // What was called is not handled any more.
    void ForgetCalls();
    // For how long the oldest call has been waiting for its answer; null when no call has.
    std::optional<std::chrono::milliseconds> Waiting() const;

  private:
    using Clock = std::chrono::steady_clock;
    struct Calling {
        SystemBus* owner = nullptr;
        sd_bus_slot* slot = nullptr;
        Handler answered;
        Clock::time_point since;
        std::list<Calling>::iterator place;
    };
    struct CloseBus {
        void operator()(sd_bus* open) const;
    };
    friend struct BusCallbacks;

    void Arm();

    const Handler handler;
    Descriptor events;
    Descriptor timer;
    std::unique_ptr<sd_bus, CloseBus> bus;
    std::list<Calling> calls;
};

}  // namespace vexil
