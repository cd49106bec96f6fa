// Big-endian numbers in a buffer of bytes, for the codecs of RTP-MIDI.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>

#include "service/network/LinkBytes.h"

namespace vexil {

// Writes into a buffer that the caller owns. What does not fit is not written, and the writer says so.
class RtpByteWriter {
  public:
    explicit RtpByteWriter(std::span<std::uint8_t> whole) : buffer(whole) {}

    std::size_t Size() const { return size; }
    std::size_t Room() const { return buffer.size() - size; }
    bool IsCut() const { return cut; }

    template <class Number>
    void Put(Number value) {
        if (Room() < sizeof(Number)) {
            cut = true;
            return;
        }
        for (std::size_t byte = sizeof(Number); byte > 0; --byte) {
            buffer[size++] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * (byte - 1)));
        }
    }
    void PutByte(int value) { Put(static_cast<std::uint8_t>(value)); }
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

  private:
    std::span<std::uint8_t> buffer;
    std::size_t size = 0;
    bool cut = false;
};

// Reads from the front of a buffer. Beyond the end it gives zeros and says that the bytes were short.
class RtpByteReader {
  public:
    explicit RtpByteReader(ByteView whole) : rest(whole) {}

    ByteView Rest() const { return rest; }
    bool IsShort() const { return isShort; }

    template <class Number>
    Number Take() {
        std::uint64_t value = 0;
        for (const std::uint8_t byte : TakeBytes(sizeof(Number))) {
            value = value << 8 | byte;
        }
        return static_cast<Number>(value);
    }
    std::uint8_t TakeByte() { return Take<std::uint8_t>(); }
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
