// Unsigned integers as the wire formats of this room carry them: little-endian, unaligned.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vexil {

// Writes the low `size` bytes (at most 8) of a value.
inline void PutLittleEndian(std::uint8_t* bytes, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

inline std::uint16_t Uint16At(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

inline std::uint32_t Uint32At(const std::uint8_t* bytes) {
    return Uint16At(bytes) | static_cast<std::uint32_t>(Uint16At(bytes + 2)) << 16;
}

}  // namespace vexil
