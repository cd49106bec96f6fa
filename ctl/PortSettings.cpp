#include "ctl/PortSettings.h"

#include <algorithm>
#include <optional>

#include "ctl/PortArgument.h"

namespace vexil {

namespace {

constexpr const char* kAny = "any";

using Mask = std::uint64_t DriverConfiguration::*;

std::string OnOff(bool on) {
    return on ? "on" : "off";
}

std::optional<bool> ReadOnOff(const std::string& value) {
    return value == "on" ? std::optional(true) : value == "off" ? std::optional(false) : std::nullopt;
}

bool HasBit(std::uint64_t mask, int port) {
    return (mask >> port & 1) != 0;
}

template <class Number>
void SetBits(Number& mask, Number bits, bool on) {
    mask = static_cast<Number>(on ? mask | bits : mask & ~bits);
}

Mask MaskOf(std::string_view key) {
    return key == "in"    ? &DriverConfiguration::InputPorts
           : key == "out" ? &DriverConfiguration::OutputPorts
                          : &DriverConfiguration::LocalPipes;
}

svString& NameOf(DriverConfiguration& configuration, int port, std::string_view key) {
    PortNames& names = configuration.CustomNames[port];
    return key == "in-name" ? names.In_CustomName : names.Out_CustomName;
}

std::string PortNumber(std::uint8_t port) {
    return std::to_string(ShownPortNumber(port));
}

std::string SourceText(const DriverConfiguration& configuration, int port) {
    const PortEntry& entry = configuration.PortFlags[port];
    const bool anyComputer = (entry.flags & kSourceComputerUnused) != 0;
    const bool anyPort = (entry.flags & kSourcePortUnused) != 0;
    return (anyComputer ? kAny : std::string(configuration.Hosts[port].SrcHost.c_str())) + ":" +
           (anyPort ? kAny : PortNumber(entry.sourcePort));
}

// A computer and what stands behind the last colon: addresses have colons, too.
struct Place {
    std::string computer;
    std::string port;
};
std::optional<Place> ReadPlace(const std::string& value) {
    const std::size_t colon = value.rfind(':');
    return colon == std::string::npos ? std::nullopt
                                      : std::optional(Place{value.substr(0, colon), value.substr(colon + 1)});
}

// What is wrong with text that becomes a name; a name holds no line break and no control character.
std::string NameProblem(const std::string& text) {
    const bool isControl = std::any_of(text.begin(), text.end(), [](char each) {
        return static_cast<unsigned char>(each) < 0x20 || each == 0x7F;
    });
    return isControl ? "a name has no control characters" : "";
}

std::string SetTarget(DriverConfiguration& configuration, int port, const std::string& value) {
    if (value.empty()) {
        configuration.Hosts[port].DstHost = "";
        return "";
    }
    const std::optional<Place> place = ReadPlace(value);
    const std::optional<int> target = place ? PortArgument(place->port) : std::nullopt;
    if (!target || place->computer.empty()) {
        return "'" + value + "' is no target: COMPUTER:PORT is, such as studio:12";
    }
    configuration.Hosts[port].DstHost = place->computer.c_str();
    configuration.PortFlags[port].targetPort = static_cast<std::uint8_t>(*target);
    return "";
}

std::string SetSource(DriverConfiguration& configuration, int port, const std::string& value) {
    const std::optional<Place> place = ReadPlace(value);
    const bool anyPort = place && place->port == kAny;
    const std::optional<int> source = place ? PortArgument(place->port) : std::nullopt;
    if (!place || place->computer.empty() || (!anyPort && !source)) {
        return "'" + value + "' is no source: COMPUTER:PORT is, such as studio:12, studio:any or any:any";
    }
    PortEntry& entry = configuration.PortFlags[port];
    const bool anyComputer = place->computer == kAny;
    SetBits(entry.flags, kSourceComputerUnused, anyComputer);
    SetBits(entry.flags, kSourcePortUnused, anyPort);
    if (!anyComputer) {
        configuration.Hosts[port].SrcHost = place->computer.c_str();
    }
    if (source) {
        entry.sourcePort = static_cast<std::uint8_t>(*source);
    }
    return "";
}

std::string SetSwitch(DriverConfiguration& configuration, int port, std::string_view key,
                      const std::string& value) {
    const std::optional<bool> on = ReadOnOff(value);
    if (!on) {
        return "'" + value + "' is neither on nor off";
    }
    if (key == "immediately") {
        SetBits(configuration.PortFlags[port].flags, kSendImmediately, *on);
    } else {
        SetBits(configuration.*MaskOf(key), std::uint64_t{1} << port, *on);
    }
    return "";
}

}  // namespace

const std::vector<std::string_view>& PortSettingKeys() {
    static const std::vector<std::string_view> kKeys = {"in",     "out",         "pipe",    "target",
                                                        "source", "immediately", "in-name", "out-name"};
    return kKeys;
}

std::string PortSetting(const DriverConfiguration& configuration, int port, std::string_view key) {
    if (key == "target") {
        const std::string computer = configuration.Hosts[port].DstHost.c_str();
        return computer.empty() ? "" : computer + ":" + PortNumber(configuration.PortFlags[port].targetPort);
    }
    if (key == "source") {
        return SourceText(configuration, port);
    }
    if (key == "immediately") {
        return OnOff((configuration.PortFlags[port].flags & kSendImmediately) != 0);
    }
    if (key == "in-name") {
        return configuration.CustomNames[port].In_CustomName.c_str();
    }
    if (key == "out-name") {
        return configuration.CustomNames[port].Out_CustomName.c_str();
    }
    return OnOff(HasBit(configuration.*MaskOf(key), port));
}

std::string SetPortSetting(DriverConfiguration& configuration, int port, std::string_view key,
                           const std::string& value) {
    const std::vector<std::string_view>& keys = PortSettingKeys();
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
        return "there is no key '" + std::string(key) + "'";
    }
    std::string problem = NameProblem(value);
    if (!problem.empty()) {
        return problem;
    }
    if (key == "target") {
        return SetTarget(configuration, port, value);
    }
    if (key == "source") {
        return SetSource(configuration, port, value);
    }
    if (key == "in-name" || key == "out-name") {
        NameOf(configuration, port, key) = value.c_str();
        return "";
    }
    return SetSwitch(configuration, port, key, value);
}

}  // namespace vexil
