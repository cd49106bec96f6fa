#include "service/backends/none/NoneBackend.h"

namespace vexil {

std::string NoneBackend::Problem() const {
    return "The service runs without a MIDI system.";
}

std::vector<PublishedEndpoint> NoneBackend::Published() const {
    std::vector<PublishedEndpoint> published;
    for (const Endpoint& endpoint : wanted) {
        published.push_back({endpoint.port, endpoint.output, "", 0, Problem()});
    }
    return published;
}

}  // namespace vexil
