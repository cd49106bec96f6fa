// An address of the network: where a datagram goes and where one comes from. IPv4 and IPv6, with the UDP port
// and the interface. A plain value; functions are pure.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/network/LinkBytes.h"

namespace vexil {

enum class AddressFamily : std::uint8_t { None = 0, V4 = 4, V6 = 6 };

struct NetworkAddress {
    AddressFamily family = AddressFamily::None;  // None: no address
    // In network order. IPv4 takes the first four, the others are zero. An IPv4 address that came as IPv6
    // ("::ffff:192.168.1.5") is stored as IPv4, so that equal ones compare equal.
    std::array<std::uint8_t, 16> bytes{};
    std::uint16_t port = 0;       // UDP; 0: not known or of no interest
    std::uint32_t interface = 0;  // its index; 0: not tied to one. IPv6 link-local needs one to be reached

    static NetworkAddress V4(std::array<std::uint8_t, 4> address, std::uint16_t port = 0,
                             std::uint32_t interface = 0);
    // Turns an IPv4 address in IPv6 form into IPv4.
    static NetworkAddress V6(const std::array<std::uint8_t, 16>& address, std::uint16_t port = 0,
                             std::uint32_t interface = 0);

    bool IsThere() const { return family != AddressFamily::None; }
    // 127.0.0.0/8 and ::1.
    bool IsLoopback() const;
    // 169.254.0.0/16 and fe80::/10.
    bool IsLinkLocal() const;
    // Limited broadcast, 127.255.255.255, and every multicast address. The broadcast address of a network is
    // not known from the address alone.
    bool IsForMany() const;
    // Whether the first `prefix` bits are those of the other, of the same family.
    bool IsWithin(const NetworkAddress& network, unsigned prefix) const;

    NetworkAddress WithPort(std::uint16_t other) const;
    NetworkAddress WithInterface(std::uint32_t index) const;
    // Whether family and bytes are the same; ports and interfaces may differ.
    bool IsSameHost(const NetworkAddress& other) const;

    // "192.168.1.5" or "fe80::1", without port and interface; empty when there is no address.
    std::string Text() const;
    // "192.168.1.5:11188" or "[fe80::1]:11188".
    std::string TextWithPort() const;

    auto operator<=>(const NetworkAddress&) const = default;
};

// The form in which LinkPeer holds addresses, and back. Whole: family, bytes, port and interface. Bytes that
// are no address give none.
LinkAddress ToLinkAddress(const NetworkAddress& address);
NetworkAddress FromLinkAddress(const LinkAddress& bytes);

// "192.168.1.5" or "fe80::1" as an address with neither port nor interface. Null for anything else; also for
// what has blanks, brackets or a scope.
std::optional<NetworkAddress> ParseAddress(std::string_view text);

}  // namespace vexil
