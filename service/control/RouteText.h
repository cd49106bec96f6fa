// What a musician is told of a route: in the log and in the status.
#pragma once

#include <cstdint>
#include <string>

#include "service/routes/RouteTable.h"

namespace vexil {

// "11" to "88": the number under which the port of a 0-based index is shown.
std::string PortText(int port);
// A name for a line of the log: printable, and not endless.
std::string NameText(const std::string& name);

// "local", "remote" or "nowhere".
const char* DestinationText(Destination::Kind kind);
// Why nothing that is sent on this route is heard, as one sentence; empty when it gets through. The
// configuration tells what the inputs here listen to.
std::string RouteProblemText(const Route& route, const DriverConfiguration& configuration);
// That the route of an output is suspected to be part of a loop, as one sentence; empty when it is not, as
// Engine::SuspectedRate says.
std::string LoopText(int port, const Route& route, std::uint64_t suspectedRate);
// What a panic has done: at so many inputs here, and on so many ways to other computers. `midiProblem`: why
// no MIDI system is running; empty when one is.
std::string PanicText(int inputs, int ways, const std::string& midiProblem);

}  // namespace vexil
