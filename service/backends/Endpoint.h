// The sides of ports as music programs see them.
#pragma once

#include <string>

namespace vexil {

// What music programs are to see of one side of a port.
struct Endpoint {
    int port = 0;         // 0 to 63
    bool output = false;  // true: programs write to it (the port's output); false: they read from it
    std::string name;     // as the user calls it, UTF-8, not necessarily unique or legal
    bool hidden = false;  // kept out of port listings; a back end that cannot does not publish it
    // As earlier versions called it, which saved sessions still do; empty: as nobody did.
    std::string formerName{};

    bool operator==(const Endpoint&) const = default;
};

// What a MIDI system made of it.
struct PublishedEndpoint {
    int port = 0;
    bool output = false;
    std::string address;  // as programs name it: "Vexil III:Stage piano out"
    int connections = 0;  // what is connected to it now
    // Why it is not there although it is wanted, or what keeps programs from hearing it; else empty.
    std::string problem;
};

}  // namespace vexil
