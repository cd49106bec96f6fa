// Asks the driver for the computers that it has found and fills the two lists of host names with them. What
// the driver returned is kept as the host list cache. Event-loop thread only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/DriverConnection.h"

namespace vexil {

// The two lists of host names, in the order in which they are filled.
enum class HostList { Source, Target };

class HostBrowser {
  public:
    // What browsing needs of the panel.
    class Mediator {
      public:
        virtual ~Mediator() = default;
        virtual void SleepMicroseconds(unsigned microseconds) = 0;
        // The items of a list now, and removing one of them. What the person has typed beside a list stays.
        virtual int HostCount(HostList list) const = 0;
        virtual void RemoveHost(HostList list, int index) = 0;
        // Appends a name to both lists, source first. A name that has no form in the window is skipped in
        // both.
        virtual void AppendHost(const char* name) = 0;
        // Keeps the host list as the driver sent it. The bytes are the caller's.
        virtual void StoreCache(const void* bytes, std::uint32_t length) = 0;
    };

    // Both must outlive this object.
    HostBrowser(DriverConnection& driverConnection, Mediator& panelMediator)
        : connection(driverConnection), mediator(panelMediator) {}

    // Has the driver browse, gives it 10 ms, and replaces the items of both lists by what it found. Every
    // failure is one log line and leaves lists and cache as they were. Does nothing without a connected
    // driver.
    void RefreshHosts();

  private:
    DriverConnection& connection;
    Mediator& mediator;
};

}  // namespace vexil
