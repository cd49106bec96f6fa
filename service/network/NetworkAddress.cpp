#include "service/network/NetworkAddress.h"

#include <arpa/inet.h>

#include <algorithm>

namespace vexil {

namespace {

constexpr std::size_t kV4Size = 4;
// What IPv4 addresses begin with in IPv6's form: ten bytes of zero, then two of ones.
constexpr std::size_t kMappedPrefix = 12;
constexpr std::size_t kLongestText = 45;

bool IsMapped(const std::array<std::uint8_t, 16>& bytes) {
    return std::all_of(bytes.begin(), bytes.begin() + 10, [](std::uint8_t byte) { return byte == 0; }) &&
           bytes[10] == 0xFF && bytes[11] == 0xFF;
}

}  // namespace

NetworkAddress NetworkAddress::V4(std::array<std::uint8_t, 4> address, std::uint16_t port,
                                  std::uint32_t interface) {
    NetworkAddress made;
    made.family = AddressFamily::V4;
    std::copy(address.begin(), address.end(), made.bytes.begin());
    made.port = port;
    made.interface = interface;
    return made;
}

NetworkAddress NetworkAddress::V6(const std::array<std::uint8_t, 16>& address, std::uint16_t port,
                                  std::uint32_t interface) {
    if (IsMapped(address)) {
        std::array<std::uint8_t, kV4Size> inside{};
        std::copy_n(address.begin() + kMappedPrefix, inside.size(), inside.begin());
        return V4(inside, port, interface);
    }
    NetworkAddress made;
    made.family = AddressFamily::V6;
    made.bytes = address;
    made.port = port;
    made.interface = interface;
    return made;
}

bool NetworkAddress::IsLoopback() const {
    if (family == AddressFamily::V4) {
        return bytes[0] == 127;
    }
    return family == AddressFamily::V6 && bytes[15] == 1 &&
           std::all_of(bytes.begin(), bytes.end() - 1, [](std::uint8_t byte) { return byte == 0; });
}

bool NetworkAddress::IsLinkLocal() const {
    if (family == AddressFamily::V4) {
        return bytes[0] == 169 && bytes[1] == 254;
    }
    return family == AddressFamily::V6 && bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
}

bool NetworkAddress::IsForMany() const {
    if (family == AddressFamily::V6) {
        return bytes[0] == 0xFF;
    }
    const auto ends = [this](std::uint8_t first) {
        return bytes[0] == first && bytes[1] == 255 && bytes[2] == 255 && bytes[3] == 255;
    };
    return family == AddressFamily::V4 && ((bytes[0] & 0xF0) == 0xE0 || ends(255) || ends(127));
}

bool NetworkAddress::IsWithin(const NetworkAddress& network, unsigned prefix) const {
    const unsigned longest = family == AddressFamily::V4 ? 32 : 128;
    if (!IsThere() || family != network.family || prefix > longest) {
        return false;
    }
    const unsigned whole = prefix / 8;
    if (!std::equal(bytes.begin(), bytes.begin() + whole, network.bytes.begin())) {
        return false;
    }
    const unsigned rest = prefix % 8;
    return rest == 0 || (bytes[whole] ^ network.bytes[whole]) >> (8 - rest) == 0;
}

NetworkAddress NetworkAddress::WithPort(std::uint16_t other) const {
    NetworkAddress changed = *this;
    changed.port = other;
    return changed;
}

NetworkAddress NetworkAddress::WithInterface(std::uint32_t index) const {
    NetworkAddress changed = *this;
    changed.interface = index;
    return changed;
}

bool NetworkAddress::IsSameHost(const NetworkAddress& other) const {
    return family == other.family && bytes == other.bytes;
}

std::string NetworkAddress::Text() const {
    if (!IsThere()) {
        return "";
    }
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int domain = family == AddressFamily::V4 ? AF_INET : AF_INET6;
    return inet_ntop(domain, bytes.data(), text.data(), text.size()) != nullptr ? text.data() : "";
}

std::string NetworkAddress::TextWithPort() const {
    if (!IsThere()) {
        return "";
    }
    const std::string host = family == AddressFamily::V6 ? "[" + Text() + "]" : Text();
    return host + ":" + std::to_string(port);
}

LinkAddress ToLinkAddress(const NetworkAddress& address) {
    LinkAddress bytes{};
    ByteWriter writer(bytes);
    writer.Put(static_cast<std::uint8_t>(address.family));
    writer.Put(std::uint8_t{0});
    writer.Put(address.port);
    writer.Put(address.interface);
    writer.PutBytes(address.bytes);
    return bytes;
}

NetworkAddress FromLinkAddress(const LinkAddress& bytes) {
    ByteReader reader(bytes);
    const auto family = reader.Take<std::uint8_t>();
    reader.Take<std::uint8_t>();
    const auto port = reader.Take<std::uint16_t>();
    const auto interface = reader.Take<std::uint32_t>();
    NetworkAddress address;
    const ByteView host = reader.TakeBytes(address.bytes.size());
    std::copy(host.begin(), host.end(), address.bytes.begin());
    if (family == static_cast<std::uint8_t>(AddressFamily::V6)) {
        return NetworkAddress::V6(address.bytes, port, interface);
    }
    if (family == static_cast<std::uint8_t>(AddressFamily::V4)) {
        return NetworkAddress::V4({host[0], host[1], host[2], host[3]}, port, interface);
    }
    return {};
}

std::optional<NetworkAddress> ParseAddress(std::string_view text) {
    if (text.empty() || text.size() > kLongestText || text.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    const std::string terminated(text);
    std::array<std::uint8_t, kV4Size> v4{};
    if (inet_pton(AF_INET, terminated.c_str(), v4.data()) == 1) {
        return NetworkAddress::V4(v4);
    }
    std::array<std::uint8_t, 16> v6{};
    if (inet_pton(AF_INET6, terminated.c_str(), v6.data()) == 1) {
        return NetworkAddress::V6(v6);
    }
    return std::nullopt;
}

}  // namespace vexil
