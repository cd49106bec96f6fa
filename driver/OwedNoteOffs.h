// The ends of test notes that a driver could not be given when they were played, so that it gets them as soon
// as it can: without them the notes would sound for ever.
#pragma once

#include <cstdint>
#include <deque>
#include <span>

#include "driver/DriverSetting.h"

namespace vexil {

// Whether an option's payload is a packet list with messages of three bytes that all end a note: a velocity
// of 0, whatever the status byte.
bool EndsNotes(std::uint32_t option, std::span<const std::uint8_t> payload);

// In the order in which they were played. One that is owed already, but for its time stamps, is not owed
// twice, so there are never more than there are different ones.
class OwedNoteOffs {
  public:
    void Owe(std::uint32_t option, std::span<const std::uint8_t> payload);
    bool IsEmpty() const { return owed.empty(); }
    // Only while there is one.
    const DriverSetting& First() const { return owed.front(); }
    // It is owed no longer.
    void Done(const DriverSetting& noteOff);

  private:
    std::deque<DriverSetting> owed;
};

}  // namespace vexil
