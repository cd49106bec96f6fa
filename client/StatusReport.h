// What the service says of itself, read from its status (JSON text) with every field checked. Texts are as
// the service sent them: whoever shows them makes them printable first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

struct HostReport {
    std::string name;
    std::string address;
    std::string hardware;  // Ethernet address
    std::uint16_t port = 0;
    bool enabled = false;
};

// Since the service started. What does not apply to a side stays 0.
struct TrafficReport {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
    std::uint64_t filtered = 0;
    std::uint64_t dropped = 0;
};

// What music programs see of one side of a port.
struct EndpointReport {
    std::string name;
    std::string address;  // as programs name it
    std::uint32_t connections = 0;
    std::string problem;  // why it is not there; else empty
};

enum class RouteEnd { Local, Remote, Nowhere };

struct TargetReport {
    std::string computer;
    unsigned port = 0;  // as shown: 11 to 88, or what any other stored number gives
};

struct OutputReport {
    EndpointReport endpoint;
    TargetReport target;
    RouteEnd route = RouteEnd::Nowhere;
    std::string routeProblem;
    std::string warning;  // earlier services have none
    TrafficReport traffic;
};

struct InputReport {
    EndpointReport endpoint;
    std::optional<std::string> sourceComputer;  // null: any
    std::optional<unsigned> sourcePort;         // as shown; null: any
    TrafficReport traffic;
};

struct TestReport {
    bool open = false;
    bool active = false;
    TargetReport target;
    std::string routeProblem;
    TrafficReport traffic;
};

struct PortReport {
    unsigned port = 0;  // as shown
    bool pipe = false;
    std::optional<OutputReport> output;
    std::optional<InputReport> input;
    std::optional<TestReport> test;
};

// A computer that is not let in because its name belongs to another key.
struct RefusalReport {
    std::string name;
    std::string key;  // short form
};

// MIDI between this computer and others.
struct NetworkReport {
    std::string speaks;   // "off", "lo", "on", or names of interfaces with commas
    std::string problem;  // why it does not, though it is to
    std::string key;      // of this computer, short form
    std::uint16_t port = 0;
    std::string avahi;  // why it does not find computers
    std::vector<std::string> remarks;
    std::vector<RefusalReport> refused;  // earlier services tell none
};

struct WayReport {
    unsigned from = 0;  // ports as shown
    unsigned to = 0;
    bool incoming = false;
    bool test = false;  // a test output plays it
    std::string problem;
};

// Another computer that is wanted or connected.
struct SessionReport {
    std::string computer;
    std::string state;
    bool up = false;
    std::string problem;
    std::string address;
    std::string interface;
    bool wireless = false;
    std::string key;                         // short form
    std::uint64_t since = 0;                 // when the key was remembered: seconds since 1970, or 0
    std::string needs;                       // of the user here: "key", "secret" or nothing
    std::uint64_t seconds = 0;               // in that state
    std::optional<std::uint32_t> roundTrip;  // microseconds
    std::uint64_t repaired = 0;
    std::uint64_t lost = 0;
    std::uint64_t late = 0;
    std::vector<WayReport> ways;
};

struct StatusReport {
    std::string version;
    std::string host;
    std::vector<std::string> names;  // under which this computer is known

    std::string backend;  // "jack", "alsa" or "none"
    bool running = false;
    std::string midiProblem;
    std::string realtimeProblem;

    bool attached = false;  // a control panel is
    bool wireless = false;
    bool launchMonitor = false;
    bool logging = false;
    bool showConnectors = false;
    std::uint32_t sendGranularity = 0;  // tenths of a millisecond

    std::string memory;   // "locked" or why not
    std::string control;  // path of the socket
    // How often the service has looked at its counters for those who watch; earlier services never do.
    std::uint64_t looks = 0;

    std::optional<NetworkReport> network;  // earlier services have none
    std::vector<HostReport> hosts;
    std::vector<SessionReport> sessions;
    std::vector<PortReport> ports;
    unsigned portsLeftOut = 0;  // used as well, but the answer had no room for them
};

// None, with `problem` a phrase that names the place, for text that is no JSON or not the JSON of a status:
// a field that is missing, of another type or out of its range, more than 64 ports. Fields that are not known
// are passed over, so that a newer service can say more.
std::optional<StatusReport> ReadStatusReport(std::string_view json, std::string& problem);

}  // namespace vexil
