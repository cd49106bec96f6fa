// The numbers of sources. A source is one stream of MIDI with a way of its own.
#pragma once

#include "config/DriverConfiguration.h"

namespace vexil {

// The output of a port, 0 to 63: what all its programs write, where the MIDI system mixes them.
// The test output of a port.
inline constexpr int kTestSourceBase = kMaxPorts;
// What comes from elsewhere, such as from another computer: taken and given back by the control thread.
inline constexpr int kTakenSourceBase = 2 * kMaxPorts;
inline constexpr int kTakenSources = 512;
// One program of an output, where the MIDI system tells them apart: taken and given back by the engine
// thread.
inline constexpr int kWriterSourceBase = kTakenSourceBase + kTakenSources;
inline constexpr int kWriterSources = 512;

// What silences the input of a port: nobody writes to it.
inline constexpr int kSilencerBase = kWriterSourceBase + kWriterSources;

inline constexpr int kSourceCount = kSilencerBase + kMaxPorts;

}  // namespace vexil
