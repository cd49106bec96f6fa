// What inputs listen to.
#pragma once

#include "config/DriverConfiguration.h"
#include "service/routes/HostNames.h"
#include "service/routes/Route.h"

namespace vexil {

// Whether the input of a port (0 to 63) admits what a port of a computer sends, this one or another: None, or
// what stands between them. A test output sends as its port.
RouteProblem ProblemAtInput(const DriverConfiguration& configuration, int input,
                            const ComputerNames& computer, int port);

}  // namespace vexil
