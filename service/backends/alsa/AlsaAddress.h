// The address of a port of a client of the ALSA sequencer.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexil {

// The clients that there may be: the kernel counts to 192, the addresses to 256.
inline constexpr std::size_t kAlsaClients = 256;

struct AlsaAddress {
    std::uint8_t client = 0;
    std::uint8_t port = 0;

    bool operator==(const AlsaAddress&) const = default;
};

}  // namespace vexil
