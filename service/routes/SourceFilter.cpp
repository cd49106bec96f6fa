#include "service/routes/SourceFilter.h"

namespace vexil {

RouteProblem ProblemAtInput(const DriverConfiguration& configuration, int input,
                            const ComputerNames& computer, int port) {
    if ((configuration.LocalPipes >> input & 1) != 0) {
        return RouteProblem::TargetIsPipe;
    }
    if ((configuration.InputPorts >> input & 1) == 0) {
        return RouteProblem::TargetNotInput;
    }
    const PortEntry& filter = configuration.PortFlags[input];
    if ((filter.flags & kSourceComputerUnused) == 0 &&
        !computer.Contains(configuration.Hosts[input].SrcHost.c_str())) {
        return RouteProblem::WrongSourceComputer;
    }
    if ((filter.flags & kSourcePortUnused) == 0 && filter.sourcePort != port) {
        return RouteProblem::WrongSourcePort;
    }
    return RouteProblem::None;
}

}  // namespace vexil
