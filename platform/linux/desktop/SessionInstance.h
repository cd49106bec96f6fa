// One panel for each desktop session. The panel that comes first holds a name on the session bus; one that is
// started later asks it to come to the front and ends.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "shared/System/Deadline.h"

struct sd_bus;
struct sd_bus_message;
struct sd_bus_slot;

namespace vexil {

// What a desktop gives to the program that it launches, by which a window may come to the front though
// another program has the keyboard. Each is empty when the launch has no such token.
struct LaunchTokens {
    std::string startupId;   // X11: DESKTOP_STARTUP_ID
    std::string activation;  // Wayland: XDG_ACTIVATION_TOKEN
};

// Those of this process.
LaunchTokens CurrentLaunchTokens();

// One thread. The name is held for the object's life.
class SessionInstance {
  public:
    enum class Start {
        Alone,   // no other panel answers in this session, or there is no session bus: go on
        Second,  // the other panel has come to the front: end
    };

    SessionInstance();
    ~SessionInstance();
    SessionInstance(const SessionInstance&) = delete;
    SessionInstance& operator=(const SessionInstance&) = delete;

    // Takes the name, or asks the panel that has it to come to the front, with `tokens`. A bus or a panel
    // that does not answer within `patience` counts as absent: a panel that hangs loses the name to this one.
    Start Enter(const LaunchTokens& tokens, std::chrono::milliseconds patience);

    // Whether something listens where the session bus is said to be, and has not answered. What else uses the
    // bus may wait for it without end.
    bool BusIsSilent() const { return busIsSilent; }

    // Readable when there is something for Dispatch; -1 when nobody can ask.
    int Descriptor() const;
    // Calls `comeToFront` for every start since. It returns false while there is no window to show: whoever
    // asked then asks again. False when the bus has gone: there will be no more.
    bool Dispatch(const std::function<bool(const LaunchTokens&)>& comeToFront);

  private:
    struct CloseBus {
        void operator()(sd_bus* bus) const;
    };
    struct FreeSlot {
        void operator()(sd_bus_slot* slot) const;
    };
    bool Connect(Deadline deadline);
    bool TakeName(bool fromAnother);
    bool Ask(const LaunchTokens& tokens, Deadline deadline);
    struct Object;  // what others can call

    std::unique_ptr<sd_bus, CloseBus> bus;
    std::unique_ptr<sd_bus_slot, FreeSlot> object;                    // goes before the bus
    const std::function<bool(const LaunchTokens&)>* asked = nullptr;  // inside Dispatch
    bool busIsSilent = false;
};

}  // namespace vexil
