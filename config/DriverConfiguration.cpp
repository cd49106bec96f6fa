#include "config/DriverConfiguration.h"

#include <algorithm>
#include <cstddef>

namespace vexil {

namespace {

// The masks form one block of 24 bytes and the entries one of 256: without padding, comparing the fields
// compares the blocks byte for byte.
static_assert(offsetof(DriverConfiguration, InputPorts) == 0);
static_assert(offsetof(DriverConfiguration, OutputPorts) == 8);
static_assert(offsetof(DriverConfiguration, LocalPipes) == 16);
static_assert(sizeof(PortEntry) == 4);
static_assert(sizeof(DriverConfiguration::PortFlags) == 256);

bool SameText(const svString& left, const svString& right) {
    return left.Compare(right.c_str()) == 0;
}

}  // namespace

std::uint32_t PackPortEntry(const PortEntry& entry) {
    return std::uint32_t{entry.flags} | std::uint32_t{entry.reserved} << 8 |
           std::uint32_t{entry.sourcePort} << 16 | std::uint32_t{entry.targetPort} << 24;
}

PortEntry UnpackPortEntry(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

PortEntry DefaultPortEntry(int port) {
    const auto index = static_cast<std::uint8_t>(port);
    return {kSourceComputerUnused | kSourcePortUnused, 0, index, index};
}

DriverConfiguration::DriverConfiguration() {
    for (int port = 0; port < kMaxPorts; ++port) {
        PortFlags[port] = DefaultPortEntry(port);
    }
}

void CopyConfiguration(const DriverConfiguration& from, DriverConfiguration& to) {
    to.InputPorts = from.InputPorts;
    to.OutputPorts = from.OutputPorts;
    to.LocalPipes = from.LocalPipes;
    std::copy(std::begin(from.PortFlags), std::end(from.PortFlags), std::begin(to.PortFlags));
    to.SendGranularity = from.SendGranularity;
    to.MiscOptions = from.MiscOptions;
    for (int port = 0; port < kPortCount; ++port) {
        to.Hosts[port] = from.Hosts[port];
        to.CustomNames[port] = from.CustomNames[port];
    }
}

bool Differs(const DriverConfiguration& left, const DriverConfiguration& right) {
    if (left.InputPorts != right.InputPorts || left.OutputPorts != right.OutputPorts ||
        left.LocalPipes != right.LocalPipes) {
        return true;
    }
    if (!std::equal(std::begin(left.PortFlags), std::end(left.PortFlags), std::begin(right.PortFlags))) {
        return true;
    }
    if (left.MiscOptions != right.MiscOptions || left.SendGranularity != right.SendGranularity) {
        return true;
    }
    for (int port = 0; port < kPortCount; ++port) {
        if (!SameText(left.Hosts[port].SrcHost, right.Hosts[port].SrcHost) ||
            !SameText(left.Hosts[port].DstHost, right.Hosts[port].DstHost) ||
            !SameText(left.CustomNames[port].In_CustomName, right.CustomNames[port].In_CustomName) ||
            !SameText(left.CustomNames[port].Out_CustomName, right.CustomNames[port].Out_CustomName)) {
            return true;
        }
    }
    return false;
}

bool IsAdmissible(const DriverConfiguration& configuration) {
    return configuration.InputPorts != 0 || configuration.OutputPorts != 0;
}

unsigned ShownPortNumber(int port, int portCount) {
    const auto index = static_cast<unsigned>(port);
    if (portCount != kPortCount) {
        return index + 1;
    }
    return (index / 8 + 1) * 10 + (index % 8 + 1);
}

svString SendQuantizationText(std::uint32_t sendGranularity) {
    svString text;
    text.Format("%2.1f", static_cast<double>(sendGranularity) / 10.0);
    return text;
}

}  // namespace vexil
