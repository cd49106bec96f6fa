// Where what a source plays is to be heard: nowhere, at an input here, or at an input of another computer.
#pragma once

#include <cstdint>

namespace vexil {

struct Destination {
    enum class Kind : std::uint8_t { Nowhere, Input, Remote };

    Kind kind = Kind::Nowhere;
    std::uint8_t port = 0;  // Input, Remote: the port whose input is meant, 0 to 63
    std::uint8_t from = 0;  // Remote: as what the other computer hears it: a port, or kTestSourceBase + port
    std::uint16_t computer = 0;  // Remote: the number under which the network knows the other computer

    static constexpr Destination Input(int port) {
        return {Kind::Input, static_cast<std::uint8_t>(port), 0, 0};
    }
    static constexpr Destination Remote(int computer, int port, int from) {
        return {Kind::Remote, static_cast<std::uint8_t>(port), static_cast<std::uint8_t>(from),
                static_cast<std::uint16_t>(computer)};
    }

    bool operator==(const Destination&) const = default;
};

}  // namespace vexil
