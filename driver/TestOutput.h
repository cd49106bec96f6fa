// Test notes through the port that the window shows. A port's test output is open or closed in the driver;
// playing sends the current chord of a fixed progression. All failures are log lines; state changes only on
// success. Event-loop thread only.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "config/DriverConfiguration.h"
#include "driver/DriverConnection.h"

namespace vexil {

inline constexpr std::uint32_t kChordCount = 24;
inline constexpr std::size_t kPacketListSize = 512;

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

    // Both must outlive this object. `packetListLimit` bounds the packet list that a chord is put into, in
    // bytes; at most kPacketListSize.
    TestOutput(DriverConnection& driverConnection, Mediator& panelMediator,
               std::size_t packetListLimit = kPacketListSize)
        : connection(driverConnection), mediator(panelMediator), listSize(packetListLimit) {}

    // All four work on the connection's current port. Open, Close and Play do not ask whether a driver is
    // connected: without one their calls fail and are logged.

    // Opens and activates. Does nothing when open already.
    void Open();
    // Does nothing when closed. A port whose closing fails stays open.
    void Close();
    // Closes and reopens an open output of a connected driver, so that it gets the port's new flags, target
    // port and computer. When closing fails the old target stays in force.
    void Retarget();
    // Sends the current chord as note-ons or note-offs (Note On with velocity 0). A note-off moves on to the
    // next chord, whether it could be sent or not. Does nothing when the output is closed.
    void Play(bool noteOn);

  private:
    // Sends the deactivation of a port; clears its bit on success.
    void Deactivate(int port);

    DriverConnection& connection;
    Mediator& mediator;
    const std::size_t listSize;
    std::array<std::uint8_t, kPacketListSize> packetList{};
};

}  // namespace vexil
