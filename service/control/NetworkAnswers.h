// The JSON text with which a network command is answered (request kind 6; docs/control-channel.md gives the
// fields). Bytes that are no UTF-8 become U+FFFD. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vexil {

// A computer that is near, or of which something is stored.
struct NetworkComputer {
    std::string name;
    std::string address;      // "192.168.1.5:11188"; empty when unknown
    std::string key;          // short form; empty when unknown
    std::uint64_t since = 0;  // seconds since 1970 when its key was remembered or blocked; 0: neither was
    std::string state;        // "up", "pinned", "blocked", "seen"
};

struct NetworkOverview {
    std::string speaks;      // "off", "lo", "on", or names of interfaces with commas
    std::uint16_t port = 0;  // UDP; 0: it does not speak
    std::string key;         // of this computer, short form; empty: it has no key
    std::string allow;       // who is let in: "any", "known", "secret"
    bool secret = false;     // one is set
    bool rtp = false;        // it speaks RTP-MIDI as well
    std::string problem;     // why it does not speak, though it is to; else empty
    std::string avahi;       // why Avahi does not find computers; empty: it does, or need not
    std::vector<NetworkComputer> computers;
};

// The answer to "list", or as much of it as kMaxControlData holds: the computers from `first` on. Where some
// are left, "next" is the one at which it goes on. A computer that no answer could hold is passed over.
std::string NetworkList(const NetworkOverview& overview, std::size_t first = 0);

// A change was made, or could not be: one sentence for the user.
std::string NetworkDone(const std::string& sentence);
std::string NetworkProblem(const std::string& sentence);

}  // namespace vexil
