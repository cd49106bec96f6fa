#include "service/network/PlainDatagram.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::uint8_t kMark = 'V';
// RFC 7983: the first bytes of DTLS among other protocols on one port.
constexpr std::uint8_t kFirstSealed = 20;
constexpr std::uint8_t kLastSealed = 63;
constexpr std::uint8_t kGoingAway = 1;
constexpr std::uint8_t kSecretNeeded = 2;

void PutHeader(PlainKind kind, const Nonce& nonce, ByteWriter& writer) {
    writer.Put(kMark);
    writer.Put(kLinkVersion);
    writer.Put(static_cast<std::uint8_t>(kind));
    writer.PutBytes(nonce);
}

std::size_t WriteComputer(PlainKind kind, const Nonce& nonce, const ComputerAnswer& computer,
                          std::span<std::uint8_t> out) {
    if (out.size() < kQuerySize || computer.port == 0 || !IsComputerName(computer.name)) {
        return 0;
    }
    ByteWriter writer(out);
    PutHeader(kind, nonce, writer);
    writer.PutBytes(computer.id);
    writer.Put(computer.port);
    writer.PutBytes(computer.hardwareAddress);
    writer.Put(static_cast<std::uint8_t>((computer.goingAway ? kGoingAway : 0) |
                                         (computer.secretNeeded ? kSecretNeeded : 0)));
    writer.Put(static_cast<std::uint8_t>(computer.name.size()));
    for (const char character : computer.name) {
        writer.Put(static_cast<std::uint8_t>(character));
    }
    return writer.Size();
}

std::optional<ComputerAnswer> ReadComputer(ByteReader& reader) {
    ComputerAnswer computer;
    const ByteView id = reader.TakeBytes(computer.id.size());
    computer.port = reader.Take<std::uint16_t>();
    const ByteView address = reader.TakeBytes(computer.hardwareAddress.size());
    const auto flags = reader.Take<std::uint8_t>();
    const ByteView name = reader.TakeBytes(reader.Take<std::uint8_t>());
    // What a later program of this version adds stands behind the name.
    if (reader.IsShort() || computer.port == 0) {
        return std::nullopt;
    }
    std::copy(id.begin(), id.end(), computer.id.begin());
    std::copy(address.begin(), address.end(), computer.hardwareAddress.begin());
    computer.goingAway = (flags & kGoingAway) != 0;
    computer.secretNeeded = (flags & kSecretNeeded) != 0;
    computer.name = {reinterpret_cast<const char*>(name.data()), name.size()};
    if (!IsComputerName(computer.name)) {
        return std::nullopt;
    }
    return computer;
}

}  // namespace

DatagramKind KindOfDatagram(ByteView datagram) {
    if (datagram.empty()) {
        return DatagramKind::Foreign;
    }
    if (datagram[0] >= kFirstSealed && datagram[0] <= kLastSealed) {
        return DatagramKind::Sealed;
    }
    return datagram[0] == kMark ? DatagramKind::Plain : DatagramKind::Foreign;
}

bool IsComputerName(std::string_view name) {
    return !name.empty() && name.size() <= kLongestComputerName &&
           std::none_of(name.begin(), name.end(), [](char character) {
               const auto byte = static_cast<std::uint8_t>(character);
               return byte < 0x20 || byte == 0x7F;
           });
}

std::optional<PlainDatagram> ReadPlainDatagram(ByteView datagram) {
    if (KindOfDatagram(datagram) != DatagramKind::Plain) {
        return std::nullopt;
    }
    ByteReader reader(datagram.subspan(1));
    PlainDatagram read;
    read.version = reader.Take<std::uint8_t>();
    const auto kind = reader.Take<std::uint8_t>();
    const ByteView nonce = reader.TakeBytes(read.nonce.size());
    if (reader.IsShort() || kind < static_cast<std::uint8_t>(PlainKind::Query) ||
        kind > static_cast<std::uint8_t>(PlainKind::Announcement)) {
        return std::nullopt;
    }
    read.kind = static_cast<PlainKind>(kind);
    std::copy(nonce.begin(), nonce.end(), read.nonce.begin());
    if (read.kind == PlainKind::Query) {
        return datagram.size() >= kQuerySize ? std::optional(read) : std::nullopt;
    }
    if (read.version != kLinkVersion) {
        return read;
    }
    read.computer = ReadComputer(reader);
    const bool hasNonce = read.nonce != Nonce{};
    if (!read.computer || (read.kind == PlainKind::Announcement && hasNonce)) {
        return std::nullopt;
    }
    return read;
}

std::size_t WriteQuery(const Nonce& nonce, std::span<std::uint8_t> out) {
    if (out.size() < kQuerySize) {
        return 0;
    }
    ByteWriter writer(out);
    PutHeader(PlainKind::Query, nonce, writer);
    std::fill(out.begin() + static_cast<std::ptrdiff_t>(writer.Size()),
              out.begin() + static_cast<std::ptrdiff_t>(kQuerySize), std::uint8_t{0});
    return kQuerySize;
}

std::size_t WriteAnswer(const Nonce& nonce, const ComputerAnswer& computer, std::span<std::uint8_t> out) {
    return WriteComputer(PlainKind::Answer, nonce, computer, out);
}

std::size_t WriteAnnouncement(const ComputerAnswer& computer, std::span<std::uint8_t> out) {
    return WriteComputer(PlainKind::Announcement, Nonce{}, computer, out);
}

}  // namespace vexil
