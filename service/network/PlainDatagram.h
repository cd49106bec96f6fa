// The unsealed datagrams of the link: a query, its answer, and an announcement. They say who is where and
// prove nothing. docs/link-protocol.md shows each byte by byte.
//
// Pure functions; nothing is allocated. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "service/network/LinkBytes.h"

namespace vexil {

// The version that this program speaks, of the plain datagrams and of what is inside the sealed ones.
inline constexpr std::uint8_t kLinkVersion = 1;
// A query is padded to this, so that no answer is longer than its question.
inline constexpr std::size_t kQuerySize = 320;
// Version, kind and nonce stand at the same place in every version.
inline constexpr std::size_t kPlainHeaderSize = 19;
// Bytes of the name of a computer, at most.
inline constexpr std::size_t kLongestComputerName = 255;
inline constexpr std::size_t kLongestAnswer = kPlainHeaderSize + 26 + kLongestComputerName;

using Nonce = std::array<std::uint8_t, 16>;

// What a datagram on the link's port is, by its first byte alone.
enum class DatagramKind : std::uint8_t { Foreign, Sealed, Plain };
DatagramKind KindOfDatagram(ByteView datagram);

// What a computer says of itself.
struct ComputerAnswer {
    ComputerId id{};
    std::uint16_t port = 0;                         // UDP port on which it speaks the link; not 0
    std::array<std::uint8_t, 6> hardwareAddress{};  // zeros: not known
    bool goingAway = false;                         // it stops speaking the link
    bool secretNeeded = false;                      // callers have to prove the secret
    std::string_view name;                          // as announced; see IsComputerName
};

// Whether a name from the network is taken at all: 1 to kLongestComputerName bytes, no control characters.
bool IsComputerName(std::string_view name);

enum class PlainKind : std::uint8_t { Query = 1, Answer = 2, Announcement = 3 };

struct PlainDatagram {
    std::uint8_t version = kLinkVersion;
    PlainKind kind = PlainKind::Query;
    Nonce nonce{};                           // of a query and its answer; zeros in an announcement
    std::optional<ComputerAnswer> computer;  // of an answer or announcement in our version; else empty
};

// Reads one datagram. Null when it is malformed. A datagram of another version has its version, kind and
// nonce, and nothing else of it is read: a query of another version is answered in our own.
std::optional<PlainDatagram> ReadPlainDatagram(ByteView datagram);

// Each writes one datagram into `out` and returns its size; 0 when the name is no IsComputerName, the port is
// 0, or `out` is smaller than kQuerySize.
std::size_t WriteQuery(const Nonce& nonce, std::span<std::uint8_t> out);
std::size_t WriteAnswer(const Nonce& nonce, const ComputerAnswer& computer, std::span<std::uint8_t> out);
std::size_t WriteAnnouncement(const ComputerAnswer& computer, std::span<std::uint8_t> out);

}  // namespace vexil
