// The lines of "vexil3ctl monitor".
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <utility>

#include "client/MonitoredMessages.h"
#include "client/StatusReport.h"

namespace vexil {

// What music programs call the sides of the ports, by index and side (kMonitoredOutput, kMonitoredInput).
using MonitorNames = std::map<std::pair<int, std::uint8_t>, std::string>;
MonitorNames NamesOfPorts(const StatusReport& status);

using WallClock = std::chrono::system_clock;

// The titles above the lines.
std::string MonitorTitle();
// One line: time of day, port, side, name, channel, what it is, and its first bytes. Printable, with its end.
std::string MonitorLine(const MonitoredMessage& message, const MonitorNames& names,
                        WallClock::time_point time);
// The same as a JSON object in one line, with all bytes.
std::string MonitorJson(const MonitoredMessage& message, const MonitorNames& names,
                        WallClock::time_point time);
// So many pieces were left out.
std::string LeftOutLine(std::uint32_t pieces);
std::string LeftOutJson(std::uint32_t pieces);

}  // namespace vexil
