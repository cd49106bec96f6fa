// Where what is written to a port is to go, and why it does not where it does not.
#pragma once

#include <cstdint>
#include <string>

#include "service/routes/Destination.h"

namespace vexil {

enum class RouteProblem : std::uint8_t {
    None,
    NotEnabled,           // the port is neither an output nor a pipe
    NoTarget,             // the target computer is empty
    TargetPortUnused,     // a target port above the port count
    TargetNotInput,       // the target port is not enabled as an input
    TargetIsPipe,         // the target port is a local pipe, which hears only itself
    WrongSourceComputer,  // the target port listens to another computer
    WrongSourcePort,      // the target port listens to another port
    RemoteUnreachable,    // the target computer is not this one, and no network is there
    NotHeardThere,        // the network says why: Route::reason
};

struct Route {
    Destination destination;  // where it leads, whether or not it gets through
    RouteProblem problem = RouteProblem::NotEnabled;
    bool immediate = false;  // not held back by send quantization
    std::uint8_t port = 0;   // the target port, as it was set
    std::string computer{};  // the target computer, as it was set; of a local pipe: this one's name
    std::string reason{};    // NotHeardThere: why, as one sentence
    bool passing = false;    // NotHeardThere: that is about to change by itself

    bool operator==(const Route&) const = default;
};

// Whether messages on this route are heard.
inline bool GetsThrough(const Route& route) {
    return route.destination.kind != Destination::Kind::Nowhere && route.problem == RouteProblem::None;
}

}  // namespace vexil
