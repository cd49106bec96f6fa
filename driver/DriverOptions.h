// The driver's socket options: numbers and payloads. Pure byte building, no calls. All integers
// little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "config/DriverConfiguration.h"

namespace vexil {

// Options 0 to 63 carry a MIDI packet list for the port of that index.
inline constexpr int kOptionReloadConfiguration = 190;
inline constexpr int kOptionSendGranularity = 191;
inline constexpr int kOptionOpenTestOutput = 192;
inline constexpr int kOptionActivateTestOutput = 193;
inline constexpr int kOptionDeactivateTestOutput = 194;
inline constexpr int kOptionWirelessOn = 195;
inline constexpr int kOptionWirelessOff = 196;
inline constexpr int kOptionBrowseHosts = 197;
inline constexpr int kOptionReadHostInfos = 202;

inline constexpr const char* kControlName = "com.sonavert.driver.vexil3";
inline constexpr std::uint32_t kControlUnit = 175;
inline constexpr std::uint32_t kHostInfosSize = 8192;

inline constexpr std::size_t kCtlInfoSize = 100;
inline constexpr std::size_t kSockaddrCtlSize = 32;
inline constexpr std::size_t kCtlNameSize = 96;

// The ctl_info by which a control is looked up, 100 bytes: ctl_id (4, here 0) and the name (96, padded with
// zeros; a longer name is cut).
std::array<std::uint8_t, kCtlInfoSize> MakeCtlInfo(const char* controlName);
// The ctl_id that the system has filled in.
std::uint32_t CtlInfoId(const std::array<std::uint8_t, kCtlInfoSize>& info);
// The sockaddr_ctl of a control's unit, 32 bytes: sc_len 32, sc_family 32, ss_sysaddr 2 (2 bytes), sc_id (4),
// sc_unit (4), zeros (20). With control 5 and unit 175 it starts with 20 20 02 00 05 00 00 00 AF 00 00 00.
std::array<std::uint8_t, kSockaddrCtlSize> MakeSockaddrCtl(std::uint32_t controlId, std::uint32_t unit);

// A 32-bit payload, signed or unsigned.
std::array<std::uint8_t, 4> MakeUint32(std::uint32_t value);

// The record of option 192 for a port. For port index 9, flags 0xC1, source port 3, target port 17, target
// computer "alpha" and source computer "b" it is these 13 bytes (length of both names + 7):
//
//   C1 09 03 11  61 6C 70 68 61 00  62 00  00
//
// The last byte carries no meaning. The caller owns the memory, of TestOutputRecordLength(hosts) bytes.
std::uint32_t TestOutputRecordLength(const PortHosts& hosts);
void PutTestOutputRecord(std::uint8_t* record, int port, const PortEntry& entry, const PortHosts& hosts);

}  // namespace vexil
