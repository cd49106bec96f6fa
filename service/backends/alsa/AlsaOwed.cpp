#include "service/backends/alsa/AlsaOwed.h"

namespace vexil {

void AlsaOwed::Heard(int port, std::span<const std::uint8_t> bytes) {
    const std::uint8_t first = bytes.front();
    if (first == kStartOfExclusive || first < 0x80 || first == kEndOfExclusive) {
        const bool goesOn = bytes.back() != kEndOfExclusive;
        inExclusive = goesOn ? inExclusive | Bit(port) : inExclusive & ~Bit(port);
    } else {
        sounding[static_cast<std::size_t>(port)].Heard(bytes);
    }
}

void AlsaOwed::Leave(int port) {
    const auto index = static_cast<std::size_t>(port);
    owed.sounding[index].Add(sounding[index]);
    owed.exclusives |= inExclusive & Bit(port);
}

void AlsaOwed::Settle(int port) {
    owed.sounding[static_cast<std::size_t>(port)].Clear();
    owed.exclusives &= ~Bit(port);
}

bool AlsaOwed::IsOwed(int port) const {
    return (owed.exclusives & Bit(port)) != 0 || !owed.sounding[static_cast<std::size_t>(port)].IsAtRest();
}

}  // namespace vexil
