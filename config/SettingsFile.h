// The whole configuration in an INI text file. The caller opens the file and closes it, which saves it.
// Export edits the file in place: lines, sections and keys that are not its own are kept. Import changes
// nothing in the file.
//
//   section "Options"   ShowEndpoints, LaunchMonitor, EnableLogging, UseWireless: "1" or "0"
//   section "General"   SendGranularity: tenths of a millisecond
//   section "Port_NN"   NN is the 0-based index, two digits.
//                       Properties: "Input", "Output", "Pipe", joined by ",";
//                       Flags, SrcPort, DstPort: bytes of the port's entry;
//                       SrcName, DstName, InpName, OutName
//
// A key whose value would be empty is not written; one that is there is removed. Names are written as they
// are: a line break splits the line, and a name with a "[" and a "]" behind it reads as a section header.
#pragma once

#include <cstdint>

#include "config/DriverConfiguration.h"
#include "config/IniFile.h"

namespace vexil {

// Both work on the ports from 0 to `portCount` - 1, at most kMaxPorts of them.
void ExportSettings(std::int32_t portCount, IniFile& file, const DriverConfiguration& configuration);

// What the file lacks stays as it was. Switches other than "1" and "0" change nothing; SendGranularity is
// limited to 0 to 100; malformed numbers read as 0, and the bytes keep the low 8 bits of any number.
void ImportSettings(std::int32_t portCount, IniFile& file, DriverConfiguration& configuration);

}  // namespace vexil
