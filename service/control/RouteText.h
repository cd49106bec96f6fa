// What a musician is told of a route: in the log and in the status.
#pragma once

#include <string>

#include "service/routes/RouteTable.h"

namespace vexil {

// "11" to "88": the number under which the port of a 0-based index is shown.
std::string PortText(int port);
// A name for a line of the log: printable, and not endless.
std::string NameText(const std::string& name);

// "local", "remote" or "nowhere".
const char* RouteKindText(RouteKind kind);
// Why nothing that is sent on this route is heard, as one sentence; empty when it gets through. `target` is
// the computer that the route was to lead to, `targetPort` the port there.
std::string RouteProblemText(const Route& route, const std::string& target, int targetPort,
                             const DriverConfiguration& configuration);

}  // namespace vexil
