// What a musician is told of a connection to another computer, and of the ways there. Names must be printable
// and short already: see NameText. Pure functions.
#pragma once

#include <string>

#include "service/network/LinkTransport.h"

namespace vexil {

// "searching", "calling", "up", "lost", "ended" or "refused".
const char* StateText(LinkPeerState::Kind kind);

// Why a computer is not connected, as one sentence; empty when it is. `name`: as it was set.
// What the user of this computer can do for a connection that is refused: "key" (accept the one that
// answers), "secret" (enter the one that is wanted), or nothing.
const char* NeedsText(const LinkPeerState& state);
std::string ConnectionProblemText(const LinkPeerState& state, const std::string& name);

// Whether that is about to change by itself: it needs no line in a log.
bool IsPassing(const LinkPeerState& state);

// Why a way to the input of a port (0 to 63) over there is not heard, as one sentence; empty when it is.
// `isSession`: over there is an RTP-MIDI session, which has one port.
std::string WayProblemText(WayProblem problem, const std::string& name, int port, bool isSession = false);

}  // namespace vexil
