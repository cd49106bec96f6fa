// The driver's socket options: numbers and payloads. Pure byte building, no calls. All integers little-endian.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

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

// A ctl_info that names the control, ctl_id 0.
std::array<std::uint8_t, kCtlInfoSize> MakeCtlInfo(const char* controlName);
// The ctl_id that the system has filled in.
std::uint32_t CtlInfoId(const std::array<std::uint8_t, kCtlInfoSize>& info);
// The sockaddr_ctl of a control's unit.
std::array<std::uint8_t, kSockaddrCtlSize> MakeSockaddrCtl(std::uint32_t controlId, std::uint32_t unit);

// A 32-bit payload, signed or unsigned.
std::array<std::uint8_t, 4> MakeUint32(std::uint32_t value);

// The record of option 192 for a port: both names, four bytes in front, three zeros; length of the names + 7.
// Throws std::bad_alloc.
std::vector<std::uint8_t> MakeTestOutputRecord(int port, const PortEntry& entry, const PortHosts& hosts);

}  // namespace vexil
