// Big-endian numbers in a buffer of bytes, for the codecs of RTP-MIDI.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "service/network/LinkBytes.h"

namespace vexil {

// Writes into a buffer that the caller owns. What does not fit is not written, and the writer says so.
class RtpByteWriter : private ByteWriter {
  public:
    using ByteWriter::At;
    using ByteWriter::ByteWriter;
    using ByteWriter::IsCut;
    using ByteWriter::PutBytes;
    using ByteWriter::Room;
    using ByteWriter::Size;

    template <class Number>
    void Put(Number value) {
        std::array<std::uint8_t, sizeof(Number)> bytes{};
        for (std::size_t byte = 0; byte < bytes.size(); ++byte) {
            bytes[byte] = static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >>
                                                    (8 * (bytes.size() - 1 - byte)));
        }
        PutBytes(bytes);
    }
    void PutByte(int value) { Put(static_cast<std::uint8_t>(value)); }
};

// Reads from the front of a buffer. Beyond the end it gives zeros and says that the bytes were short.
class RtpByteReader : private ByteReader {
  public:
    using ByteReader::ByteReader;
    using ByteReader::IsShort;
    using ByteReader::Rest;
    using ByteReader::TakeBytes;

    template <class Number>
    Number Take() {
        std::uint64_t value = 0;
        for (const std::uint8_t byte : TakeBytes(sizeof(Number))) {
            value = value << 8 | byte;
        }
        return static_cast<Number>(value);
    }
    std::uint8_t TakeByte() { return Take<std::uint8_t>(); }
};

}  // namespace vexil
