// The status of MIDI between computers for a person's eyes, as StatusText.h says.
#pragma once

#include <string>

#include "client/StatusReport.h"

namespace vexil {

// Where this computer speaks, as one line of the service's, and what its user should know of that below.
// Empty where the service tells of no network.
std::string NetworkText(const StatusReport& status);

// Where it speaks: "on every interface", "off".
std::string SpeaksText(const std::string& speaks);

// An empty line and a table of the other computers that are wanted or connected, each with what does not get
// through below it. Empty when no other computer is wanted or connected.
std::string SessionsText(const StatusReport& status);

// A time in at most four characters: "59s", "59m", "23h", "999d", or the most that there is room for.
std::string DurationText(std::uint64_t seconds);
// Of microseconds in at most six characters: "340 us", "1.2 ms", "340 ms", "12 s".
std::string RoundTripText(std::uint32_t microseconds);

}  // namespace vexil
