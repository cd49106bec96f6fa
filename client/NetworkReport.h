// What the service answers to a network command, read from its JSON text with every field checked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

struct KnownComputer {
    std::string name;
    std::string address;
    std::string key;          // short form
    std::uint64_t since = 0;  // seconds since 1970, or 0
    std::string state;
};

struct NetworkList {
    std::string speaks;
    std::uint16_t port = 0;
    std::string key;  // of this computer, short form
    std::string allow;
    bool secret = false;
    std::string problem;
    bool rtp = false;   // it speaks RTP-MIDI as well
    std::string avahi;  // why it does not find computers
    std::vector<KnownComputer> computers;
};

// Null, with `problem` a phrase that names the place, for text that is not such an answer.
std::optional<NetworkList> ReadNetworkList(std::string_view json, std::string& problem);

// What became of a change.
struct NetworkChange {
    std::string done;     // one sentence on what was done
    std::string refused;  // or why nothing was changed
};
std::optional<NetworkChange> ReadNetworkChange(std::string_view json, std::string& problem);

}  // namespace vexil
