// The whole set of settings of the virtual MIDI driver, as one record. Plain data; the strings are owned by
// the record.
#pragma once

#include <cstdint>

#include "shared/System/svString.h"

namespace vexil {

inline constexpr int kMaxPorts = 64;          // room in the record; loading and saving run over all of them
inline constexpr int kPortCount = kMaxPorts;  // ports the panel works with

// PortEntry::flags.
inline constexpr std::uint8_t kSendImmediately = 0x01;
inline constexpr std::uint8_t kSourcePortUnused = 0x40;
inline constexpr std::uint8_t kSourceComputerUnused = 0x80;

// DriverConfiguration::MiscOptions.
inline constexpr std::uint32_t kShowConnectors = 0x1;
inline constexpr std::uint32_t kLaunchMonitor = 0x2;
inline constexpr std::uint32_t kEnableLogging = 0x4;
inline constexpr std::uint32_t kUseWireless = 0x8;  // takes effect at the panel's next start

inline constexpr std::uint32_t kDefaultMiscOptions = 7;
// SendGranularity, in tenths of a millisecond.
inline constexpr std::uint32_t kDefaultSendGranularity = 2;
inline constexpr std::uint32_t kMaxSendGranularity = 100;

// One port's options; stored as one little-endian 32-bit value, `flags` in the low byte.
struct PortEntry {
    std::uint8_t flags = 0;
    std::uint8_t reserved = 0;    // always 0 in the record
    std::uint8_t sourcePort = 0;  // 0-based port of the source computer that the input listens to
    std::uint8_t targetPort = 0;  // 0-based port of the target computer that the output sends to

    bool operator==(const PortEntry&) const = default;
};

std::uint32_t PackPortEntry(const PortEntry& entry);
PortEntry UnpackPortEntry(std::uint32_t value);
// What a port (0-based index) gets that has no stored value.
PortEntry DefaultPortEntry(int port);

struct PortHosts {
    svString SrcHost;  // source computer of the input
    svString DstHost;  // target computer of the output
};

struct PortNames {
    svString In_CustomName;
    svString Out_CustomName;
};

struct DriverConfiguration {
    // Bit i: the port of index i. The three masks stand first and back to back.
    std::uint64_t InputPorts = 0;
    std::uint64_t OutputPorts = 1;
    std::uint64_t LocalPipes = 0;
    PortEntry PortFlags[kMaxPorts];
    PortHosts Hosts[kMaxPorts];
    PortNames CustomNames[kMaxPorts];
    std::uint32_t SendGranularity = kDefaultSendGranularity;  // tenths of a millisecond
    std::uint32_t MiscOptions = kDefaultMiscOptions;

    // A configuration with the defaults of every field.
    DriverConfiguration();
};

// Copies the record, with the strings of the first kPortCount ports. Each copied string shares its characters
// with the original until one of the two is written.
void CopyConfiguration(const DriverConfiguration& from, DriverConfiguration& to);

// Whether two records differ. Names and hosts of the first kPortCount ports are compared byte for byte,
// letter case included; a null text among them is an assertion of svString.
bool Differs(const DriverConfiguration& left, const DriverConfiguration& right);

// Whether at least one input or output port is enabled.
bool IsAdmissible(const DriverConfiguration& configuration);

// The number under which the port of a 0-based index is shown: with 64 ports by banks of eight, 11 to 18, 21
// to 28, up to 81 to 88; with any other count the index + 1.
unsigned ShownPortNumber(int port, int portCount = kPortCount);

// SendGranularity as shown, in milliseconds: 2 gives "0.2". The decimal point is that of the C library's
// current locale, which the program keeps at "C" for numbers.
svString SendQuantizationText(std::uint32_t sendGranularity);

}  // namespace vexil
