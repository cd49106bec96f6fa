// What the service tells of itself: one JSON object, for vexil3ctl and whoever else asks for it (request kind
// 4). Numbers of ports are those that are shown, 11 to 88.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "service/backends/MidiBackend.h"
#include "service/control/HostRecords.h"
#include "service/control/RemoteNetwork.h"
#include "service/control/TestOutputs.h"
#include "service/engine/Engine.h"

namespace vexil {

// All that a status is made of; nothing is owned.
struct StatusSources {
    const std::vector<HostRecord>& hosts;  // this computer first
    const RemoteStatus& remote;            // of MIDI between computers
    const std::vector<std::string>& names;
    const DriverConfiguration& configuration;
    const RouteTable& routes;
    const TestOutputs& tests;
    const LocalNames& localNames;
    const Engine& engine;
    const MidiBackend& backend;
    const RemoteNetwork* network = nullptr;  // null: no MIDI between computers
    bool attached = false;
    bool wireless = false;
    std::uint32_t sendGranularity = 0;  // in force, not as configured
    std::string memory;                 // "locked", or why it is not
    std::string control;                // path of the control channel's socket
    std::uint32_t looks = 0;            // at the counters, while somebody waits for changes
};

// The status, or as much of it as kMaxControlData holds: hosts, sessions and ports are one list, from whose
// entry `first` on it is told. Where something is left, "next" is the entry at which it goes on, and
// "portsLeftOut" how many ports are left. An entry that no answer could hold is passed over. Bytes that are
// no UTF-8 become U+FFFD.
std::string MakeStatus(const StatusSources& sources, std::size_t first = 0);

// A text that differs when the status has changed: all of it but counters of messages, and what is a little
// different at each moment.
std::string MakeStatusDigest(const StatusSources& sources);

}  // namespace vexil
