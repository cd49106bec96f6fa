// The service's status for a person's eyes: at most 80 columns, printable characters only.
#pragma once

#include <string>

#include "client/StatusReport.h"

namespace vexil {

// The service itself, then one line for each side of a used port: its endpoint, how many programs are
// connected to it, where it goes, and what went through; then one line for each other computer that is wanted
// or connected. Below a line, behind a "!", what is wrong with it.
std::string StatusText(const StatusReport& status);
// The lines of the ports with these shown numbers; one that is not in use is said to be so.
std::string PortsText(const StatusReport& status, const std::vector<unsigned>& ports);

// The computers that the service knows.
std::string HostsText(const StatusReport& status);

// A count in at most eight characters: in full below 100 million, then in thousands, millions and so on.
std::string CountText(std::uint64_t count);
// The same in at most five: in full below 100,000.
std::string ShortCountText(std::uint64_t count);

}  // namespace vexil
