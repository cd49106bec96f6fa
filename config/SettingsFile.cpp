#include "config/SettingsFile.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <limits>

namespace vexil {
namespace {

constexpr const char* kOptionsSection = "Options";
constexpr const char* kGeneralSection = "General";
constexpr const char* kSendGranularityKey = "SendGranularity";

// The switches, last bit first.
constexpr std::array kOptionKeys = {"UseWireless", "EnableLogging", "LaunchMonitor", "ShowEndpoints"};

// The switches by the number of their bit in MiscOptions.
constexpr auto kKeyOfBit = [] {
    auto keys = kOptionKeys;
    std::reverse(keys.begin(), keys.end());
    return keys;
}();

// What a port can be, in the order of the Properties value.
struct Role {
    const char* name;
    std::uint64_t DriverConfiguration::*ports;
};
constexpr std::array kRoles = {Role{"Input", &DriverConfiguration::InputPorts},
                               Role{"Output", &DriverConfiguration::OutputPorts},
                               Role{"Pipe", &DriverConfiguration::LocalPipes}};

struct ByteKey {
    const char* name;
    std::uint8_t PortEntry::*byte;
};
constexpr std::array kByteKeys = {ByteKey{"Flags", &PortEntry::flags},
                                  ByteKey{"SrcPort", &PortEntry::sourcePort},
                                  ByteKey{"DstPort", &PortEntry::targetPort}};

constexpr std::array kNameKeys = {"SrcName", "DstName", "InpName", "OutName"};

// The port's names in the order of kNameKeys.
template <class Configuration>
auto NamesOf(Configuration& configuration, int port) {
    auto& hosts = configuration.Hosts[port];
    auto& names = configuration.CustomNames[port];
    return std::array{&hosts.SrcHost, &hosts.DstHost, &names.In_CustomName, &names.Out_CustomName};
}

svString PortSection(int port) {
    svString section;
    section.Format("Port_%02d", port);
    return section;
}

std::uint64_t PortBit(int port) {
    return std::uint64_t{1} << port;
}

svString PropertiesOf(const DriverConfiguration& configuration, int port) {
    svString properties;
    for (const Role& role : kRoles) {
        if ((configuration.*role.ports & PortBit(port)) != 0) {
            if (!properties.IsEmpty()) {
                properties += ",";
            }
            properties += role.name;
        }
    }
    return properties;
}

// As atoi of a 32-bit integer; a number beyond its range is the nearest end of the range.
std::int32_t NumberOf(const svString& text) {
    using Limits = std::numeric_limits<std::int32_t>;
    const long number = std::strtol(text.c_str(), nullptr, 10);
    return static_cast<std::int32_t>(std::clamp(number, long{Limits::min()}, long{Limits::max()}));
}

void ExportPort(int port, IniFile& file, const DriverConfiguration& configuration) {
    const svString section = PortSection(port);
    file.SetValue(section.c_str(), "Properties", PropertiesOf(configuration, port).c_str());
    for (const ByteKey& key : kByteKeys) {
        svString number;
        number.Format("%d", configuration.PortFlags[port].*key.byte);
        file.SetValue(section.c_str(), key.name, number.c_str());
    }
    const auto names = NamesOf(configuration, port);
    for (std::size_t index = 0; index < kNameKeys.size(); ++index) {
        file.SetValue(section.c_str(), kNameKeys[index], names[index]->c_str());
    }
}

void ImportPort(int port, const IniFile& file, DriverConfiguration& configuration) {
    const svString section = PortSection(port);
    svString value;
    if (file.GetValue(section.c_str(), "Properties", value)) {
        for (const Role& role : kRoles) {
            std::uint64_t& ports = configuration.*role.ports;
            ports = value.Find(role.name) >= 0 ? ports | PortBit(port) : ports & ~PortBit(port);
        }
    }
    for (const ByteKey& key : kByteKeys) {
        if (file.GetValue(section.c_str(), key.name, value)) {
            configuration.PortFlags[port].*key.byte = static_cast<std::uint8_t>(NumberOf(value) & 0xFF);
        }
    }
    const auto names = NamesOf(configuration, port);
    for (std::size_t index = 0; index < kNameKeys.size(); ++index) {
        if (file.GetValue(section.c_str(), kNameKeys[index], value)) {
            *names[index] = value;
        }
    }
}

}  // namespace

void ExportSettings(std::int32_t portCount, IniFile& file, const DriverConfiguration& configuration) {
    for (std::size_t bit = 0; bit < kKeyOfBit.size(); ++bit) {
        const bool on = (configuration.MiscOptions >> bit & 1) != 0;
        file.SetValue(kOptionsSection, kKeyOfBit[bit], on ? "1" : "0");
    }
    svString granularity;
    granularity.Format("%ld", static_cast<long>(static_cast<std::int32_t>(configuration.SendGranularity)));
    file.SetValue(kGeneralSection, kSendGranularityKey, granularity.c_str());
    for (int port = 0; port < std::min(portCount, kMaxPorts); ++port) {
        ExportPort(port, file, configuration);
    }
}

void ImportSettings(std::int32_t portCount, IniFile& file, DriverConfiguration& configuration) {
    svString value;
    for (std::size_t bit = 0; bit < kKeyOfBit.size(); ++bit) {
        const std::uint32_t mask = std::uint32_t{1} << bit;
        file.GetValue(kOptionsSection, kKeyOfBit[bit], value);
        if (value == "1") {
            configuration.MiscOptions |= mask;
        } else if (value == "0") {
            configuration.MiscOptions &= ~mask;
        }
    }
    if (file.GetValue(kGeneralSection, kSendGranularityKey, value) && !value.IsEmpty()) {
        configuration.SendGranularity = static_cast<std::uint32_t>(
            std::clamp(NumberOf(value), 0, static_cast<std::int32_t>(kMaxSendGranularity)));
    }
    for (int port = 0; port < std::min(portCount, kMaxPorts); ++port) {
        ImportPort(port, file, configuration);
    }
}

}  // namespace vexil
