// Little-endian numbers in a buffer of bytes, for the codecs of the link.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vexil {

using ByteView = std::span<const std::uint8_t>;

// The computer id: the first 16 bytes of the SHA-256 of its public key.
using ComputerId = std::array<std::uint8_t, 16>;

// Where datagrams go and come from: any bytes that tell addresses apart, with the interface. NetworkAddress.h
// makes them of addresses; the protocol does not look into them.
using LinkAddress = std::array<std::uint8_t, 24>;

// Writes into a buffer that the caller owns. What does not fit is not written, and the writer says so.
class ByteWriter {
  public:
    explicit ByteWriter(std::span<std::uint8_t> whole) : buffer(whole) {}

    std::size_t Size() const { return size; }
    std::size_t Room() const { return buffer.size() - size; }
    bool IsCut() const { return cut; }

    template <class Number>
    void Put(Number value) {
        if (Room() < sizeof(Number)) {
            cut = true;
            return;
        }
        for (std::size_t byte = 0; byte < sizeof(Number); ++byte) {
            buffer[size++] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * byte));
        }
    }
    void PutBytes(ByteView bytes) {
        if (Room() < bytes.size()) {
            cut = true;
            return;
        }
        std::copy(bytes.begin(), bytes.end(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
        size += bytes.size();
    }
    // A byte that was written before, to be changed.
    std::uint8_t& At(std::size_t place) { return buffer[place]; }
    // Writes a number again that was written at a place before.
    void PutLengthAt(std::size_t place, std::size_t value) {
        At(place) = static_cast<std::uint8_t>(value);
        At(place + 1) = static_cast<std::uint8_t>(value >> 8);
    }

  private:
    std::span<std::uint8_t> buffer;
    std::size_t size = 0;
    bool cut = false;
};

// Reads from the front of a buffer. Beyond the end it gives zeros and says that the bytes were short.
class ByteReader {
  public:
    explicit ByteReader(ByteView whole) : rest(whole) {}

    ByteView Rest() const { return rest; }
    bool IsShort() const { return isShort; }

    template <class Number>
    Number Take() {
        const ByteView bytes = TakeBytes(sizeof(Number));
        std::uint64_t value = 0;
        for (std::size_t byte = bytes.size(); byte > 0; --byte) {
            value = value << 8 | bytes[byte - 1];
        }
        return static_cast<Number>(value);
    }
    // Exactly `count` bytes, or an empty view when there are fewer.
    ByteView TakeBytes(std::size_t count) {
        if (rest.size() < count) {
            isShort = true;
            rest = {};
            return {};
        }
        const ByteView bytes = rest.first(count);
        rest = rest.subspan(count);
        return bytes;
    }

  private:
    ByteView rest;
    bool isShort = false;
};

}  // namespace vexil
