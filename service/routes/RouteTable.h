// Where what programs write to a port goes, worked out from the configuration. Plain data, made by the
// control thread and handed to the engine whole; never changed once made.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"

namespace vexil {

// A source is what messages come from: the output of a port (0 to 63) or the test output of a port (64 to
// 127).
inline constexpr int kTestSourceBase = kMaxPorts;
inline constexpr int kSourceCount = 2 * kMaxPorts;

// A remote destination is one more kind; nothing carries it yet.
enum class RouteKind : std::uint8_t { Nowhere, LocalInput, Remote };

// Why a route leads nowhere, or leads somewhere and does not get through.
enum class RouteProblem : std::uint8_t {
    None,
    NotEnabled,           // the port is neither an output nor a pipe
    NoTarget,             // the target computer is empty
    TargetPortUnused,     // a target port above the port count
    TargetNotInput,       // the target port is not enabled as an input
    TargetIsPipe,         // the target port is a local pipe, which hears only itself
    WrongSourceComputer,  // the target port listens to another computer
    WrongSourcePort,      // the target port listens to another port
    RemoteUnreachable,    // the target computer is not this one
};

struct Route {
    RouteKind kind = RouteKind::Nowhere;
    RouteProblem problem = RouteProblem::NotEnabled;
    std::uint8_t inputPort = 0;  // LocalInput, Remote: the port of the target computer whose input is meant
    bool immediate = false;      // not held back by send quantization

    bool operator==(const Route&) const = default;
};

// Whether messages on this route reach an input of this computer.
inline bool GetsThrough(const Route& route) {
    return route.kind == RouteKind::LocalInput && route.problem == RouteProblem::None;
}

struct RouteTable {
    std::array<Route, kSourceCount> routes;
    std::uint64_t outputEndpoints = 0;  // bit p: programs write to the port of index p
    std::uint64_t inputEndpoints = 0;   // bit p: programs read from it
};

// What a test output was opened with.
struct TestOutputRecord {
    PortEntry entry;
    std::string targetComputer;
    std::string sourceComputer;
};

// A host name in the form in which names compare: without regard to case, a trailing dot or a trailing
// ".local".
std::string FoldHostName(std::string name);

// The names under which this computer is a target or a source, compared by FoldHostName. The empty name is
// none.
class LocalNames {
  public:
    // "localhost" is always among them.
    explicit LocalNames(std::vector<std::string> names);
    bool Contains(const std::string& name) const;

  private:
    std::vector<std::string> folded;
};

// The routes of the outputs and endpoints of a configuration; test sources lead nowhere. A local pipe goes
// from its output to its input past every filter, whatever else the port is set to.
RouteTable MakeRouteTable(const DriverConfiguration& configuration, const LocalNames& names);
// The route of an open test output: where its record says, through the filters of the configuration's inputs.
// Whether the port itself is enabled or a pipe is no matter.
Route MakeTestRoute(const TestOutputRecord& record, int port, const DriverConfiguration& configuration,
                    const LocalNames& names);

}  // namespace vexil
