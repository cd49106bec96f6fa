// The list of computers as option 202 gives it: one record for each, then a zero byte. driver/HostInfos.h
// tells how a panel reads it. A computer named "ab" at 192.168.1.5 whose MIDI arrives at UDP port 5004, with
// the Ethernet address 00:11:22:33:44:55, is these 21 bytes:
//
//   'N' 'a' 'b' 0   'A' C0 A8 01 05 13 8C   'L' 00 11 22 33 44 55   'E' 01 00
//
// Address and port stand in network order, the E field (1: enabled) is little-endian.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace vexil {

struct HostRecord {
    std::string name;
    std::array<std::uint8_t, 4> address{};   // IPv4, in network order; zero: unknown
    std::uint16_t port = 0;                  // UDP; 0: it takes no MIDI from the network
    std::array<std::uint8_t, 6> hardware{};  // Ethernet address; zero: unknown
    bool enabled = true;
};

// At most kHostInfosSize bytes; records that no longer fit are left out. So are computers whose names
// hold control characters (U+0000 to U+001F, U+007F to U+009F): a panel stores what is picked, and such a
// name would break its files.
std::vector<std::uint8_t> MakeHostRecords(const std::vector<HostRecord>& hosts);

// This computer as it is at the moment: its host name, and the address by which it reaches other networks or,
// without such a way, that of its first interface which is up. Loopback does not count.
HostRecord LookUpThisComputer();

// "192.168.1.5" and "00:11:22:33:44:55"; empty where unknown.
std::string AddressText(const HostRecord& host);
std::string HardwareText(const HostRecord& host);

}  // namespace vexil
