// Test notes through the port that the window shows. A port's test output is open or closed in the driver; playing
// sends the current chord of a fixed progression. All failures are log lines; state changes only on success.
// Event-loop thread only.
#pragma once

#include <cstdint>

#include "config/DriverConfiguration.h"
#include "driver/DriverConnection.h"

namespace vexil {

inline constexpr int kChordCount = 24;

class TestOutput {
  public:
    // What the test output needs of the panel.
    class Mediator {
      public:
        virtual ~Mediator() = default;
        // What the window shows, applied or not.
        virtual const DriverConfiguration& EditedConfiguration() const = 0;
        // The chosen MIDI channel, 1 to 16.
        virtual int TestChannel() const = 0;
        // Now, in host time units.
        virtual std::uint64_t HostTime() const = 0;
    };

    // Both must outlive this object.
    TestOutput(DriverConnection& driverConnection, Mediator& panelMediator)
        : connection(driverConnection), mediator(panelMediator) {}

    // All four work on the connection's current port.
    void Open();
    void Close();
    // Closes and reopens, so that the driver gets the port's new flags, target port and computer.
    void Retarget();
    // Sends the current chord as note-ons or note-offs. A note-off moves on to the next chord.
    void Play(bool noteOn);

  private:
    // Sends the deactivation of a port; clears its bit on success.
    void Deactivate(int port);

    DriverConnection& connection;
    Mediator& mediator;
};

}  // namespace vexil
