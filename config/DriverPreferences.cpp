#include "config/DriverPreferences.h"

#include <algorithm>
#include <array>
#include <optional>

#include "config/PreferencesStore.h"

namespace vexil {

namespace {

constexpr std::int32_t kAbsent = -1;  // what an absent number reads as; a stored -1 counts as absent too
constexpr std::uint32_t kMaskBytes = 8;

// A read-only pair of domains. Where the older one is left out, nothing is migrated.
struct Domains {
    const PreferencesStore* older;
    const PreferencesStore& current;
};

// The key of a value of one port (0-based index): "01 PortFlags" to "64 PortFlags".
svString PortKey(int port, const char* name) {
    svString key;
    key.Format("%02d %s", port + 1, name);
    return key;
}

int WithinRecord(int portCount) {
    return std::clamp(portCount, 0, kMaxPorts);
}

// A mask is stored as its bytes, low byte first, whatever the processor.
std::array<std::uint8_t, kMaskBytes> MaskBytes(std::uint64_t mask) {
    std::array<std::uint8_t, kMaskBytes> bytes;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::uint8_t>(mask >> (8 * i));
    }
    return bytes;
}

// None when there is no such mask, or one of more than 8 bytes. A shorter one gives the low bytes.
std::optional<std::uint64_t> ReadMask(const PreferencesStore& store, const char* key) {
    std::array<std::uint8_t, kMaskBytes> bytes{};
    std::uint32_t size = kMaskBytes;
    if (!store.GetBinary(key, store.User(), bytes.data(), &size)) {
        return std::nullopt;
    }
    std::uint64_t mask = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        mask |= std::uint64_t{bytes[i]} << (8 * i);
    }
    return mask;
}

void WriteMask(PreferencesStore& store, const char* key, std::uint64_t mask) {
    const std::array<std::uint8_t, kMaskBytes> bytes = MaskBytes(mask);
    store.SetBinary(key, store.User(), bytes.data(), kMaskBytes);
}

void WriteNumber(PreferencesStore& store, const char* key, std::uint32_t number) {
    const auto stored = static_cast<std::int32_t>(number);
    store.SetInt(key, store.User(), &stored);
}

// A number of the older domain, or the default where that domain is left out.
std::int32_t OlderInt(const Domains& domains, const char* key, std::int32_t defaultValue) {
    return domains.older == nullptr ? defaultValue
                                    : domains.older->GetInt(key, domains.older->User(), defaultValue);
}

// The ports that the older generation had active. Each of its four words holds 16 ports: their outputs from
// bit 0 and their inputs from bit 16.
std::uint64_t OlderActivePorts(const Domains& domains, unsigned firstBit, int portCount) {
    static constexpr const char* kWordKeys[] = {"ActiveDevices", "ActiveDevices01", "ActiveDevices02",
                                                "ActiveDevices03"};
    std::uint32_t words[std::size(kWordKeys)] = {};
    for (std::size_t word = 0; word < std::size(kWordKeys); ++word) {
        words[word] = static_cast<std::uint32_t>(OlderInt(domains, kWordKeys[word], 0));
    }
    std::uint64_t mask = 0;
    for (int port = 0; port < WithinRecord(portCount); ++port) {
        const auto index = static_cast<unsigned>(port);
        if ((words[index / 16] >> (index % 16 + firstBit) & 1u) != 0) {
            mask |= std::uint64_t{1} << index;
        }
    }
    return mask;
}

void LoadMasks(const Domains& domains, int portCount, DriverConfiguration& configuration) {
    const std::optional<std::uint64_t> inputs = ReadMask(domains.current, "InputPorts");
    configuration.InputPorts = inputs ? *inputs : OlderActivePorts(domains, 16, portCount);
    // Output port 1 is always on in a migrated or an empty configuration, whatever the older domain says.
    const std::optional<std::uint64_t> outputs = ReadMask(domains.current, "OutputPorts");
    configuration.OutputPorts = outputs ? *outputs : 1 | OlderActivePorts(domains, 0, portCount);
    configuration.LocalPipes = ReadMask(domains.current, "LocalPipes").value_or(0);
}

std::int32_t StoredMiscOptions(const Domains& domains) {
    const PreferencesStore& current = domains.current;
    const std::int32_t options = current.GetInt("MiscOptions", current.User(), kAbsent);
    return options != kAbsent ? options : OlderInt(domains, "MiscOptions", kAbsent);
}

// The older generation kept the flags in the high byte and the source port in the low byte of one number, and
// the target port in another.
PortEntry OlderPortEntry(const Domains& domains, int port) {
    const auto from = static_cast<std::uint32_t>(
        OlderInt(domains, PortKey(port, "In_FromPort").c_str(), port - 0x40000000));
    const std::int32_t to = OlderInt(domains, PortKey(port, "Out_ToPort").c_str(), port);
    return {static_cast<std::uint8_t>(from >> 24), 0, static_cast<std::uint8_t>(from),
            static_cast<std::uint8_t>(to)};
}

svString StoredName(const Domains& domains, int port, const char* name) {
    const svString key = PortKey(port, name);
    svString text = domains.current.GetString(key.c_str(), domains.current.User(), "");
    if (text.IsEmpty() && domains.older != nullptr) {
        text = domains.older->GetString(key.c_str(), domains.older->User(), "");
    }
    return text;
}

void LoadPort(const Domains& domains, int port, DriverConfiguration& configuration) {
    const PreferencesStore& current = domains.current;
    const std::int32_t entry = current.GetInt(PortKey(port, "PortFlags").c_str(), current.User(), kAbsent);
    configuration.PortFlags[port] =
        entry != kAbsent ? UnpackPortEntry(static_cast<std::uint32_t>(entry)) : OlderPortEntry(domains, port);
    configuration.CustomNames[port].In_CustomName = StoredName(domains, port, "In_CustomName");
    configuration.CustomNames[port].Out_CustomName = StoredName(domains, port, "Out_CustomName");
    configuration.Hosts[port].SrcHost =
        current.GetString(PortKey(port, "SrcHost").c_str(), current.User(), "");
    configuration.Hosts[port].DstHost =
        current.GetString(PortKey(port, "DstHost").c_str(), current.User(), "");
}

void Load(const Domains& domains, int portCount, DriverConfiguration& configuration) {
    LoadMasks(domains, portCount, configuration);
    const std::int32_t options = StoredMiscOptions(domains);
    configuration.MiscOptions =
        options != kAbsent ? static_cast<std::uint32_t>(options) : kDefaultMiscOptions;
    const PreferencesStore& current = domains.current;
    configuration.SendGranularity = static_cast<std::uint32_t>(current.GetInt(
        "SendGranularity", current.User(), static_cast<std::int32_t>(kDefaultSendGranularity)));
    for (int port = 0; port < kMaxPorts; ++port) {
        LoadPort(domains, port, configuration);
    }
}

}  // namespace

void DriverPreferences::LoadConfiguration(int portCount, DriverConfiguration& configuration) const {
    const PreferencesStore older(domains, kOlderDriverDomain, true);
    const PreferencesStore current(domains, kDriverDomain, true);
    Load({&older, current}, portCount, configuration);
}

void DriverPreferences::LoadCurrentConfiguration(int portCount, DriverConfiguration& configuration) const {
    const PreferencesStore current(domains, kDriverDomain, true);
    Load({nullptr, current}, portCount, configuration);
}

void DriverPreferences::SaveConfiguration(int portCount, const DriverConfiguration& configuration) const {
    PreferencesStore store(domains, kDriverDomain, true);
    WriteMask(store, "InputPorts", configuration.InputPorts);
    WriteMask(store, "OutputPorts", configuration.OutputPorts);
    WriteMask(store, "LocalPipes", configuration.LocalPipes);
    WriteNumber(store, "MiscOptions", configuration.MiscOptions);
    WriteNumber(store, "SendGranularity", configuration.SendGranularity);
    for (int port = 0; port < WithinRecord(portCount); ++port) {
        WriteNumber(store, PortKey(port, "PortFlags").c_str(), PackPortEntry(configuration.PortFlags[port]));
        const PortNames& names = configuration.CustomNames[port];
        const PortHosts& hosts = configuration.Hosts[port];
        store.SetString(PortKey(port, "In_CustomName").c_str(), store.User(), names.In_CustomName.c_str());
        store.SetString(PortKey(port, "Out_CustomName").c_str(), store.User(), names.Out_CustomName.c_str());
        store.SetString(PortKey(port, "SrcHost").c_str(), store.User(), hosts.SrcHost.c_str());
        store.SetString(PortKey(port, "DstHost").c_str(), store.User(), hosts.DstHost.c_str());
    }
}

bool DriverPreferences::GetWirelessOption() const {
    const PreferencesStore store(domains, kDriverDomain, true);
    const std::int32_t options = store.GetInt("MiscOptions", store.User(), kAbsent);
    return options != kAbsent && (static_cast<std::uint32_t>(options) & kUseWireless) != 0;
}

void DriverPreferences::SetWirelessOption(bool on) const {
    PreferencesStore store(domains, kDriverDomain, true);
    const auto options = static_cast<std::uint32_t>(store.GetInt("MiscOptions", store.User(), 0));
    WriteNumber(store, "MiscOptions", on ? options | kUseWireless : options & ~kUseWireless);
}

bool DriverPreferences::GetLoggingOption() const {
    const PreferencesStore older(domains, kOlderDriverDomain, true);
    const PreferencesStore current(domains, kDriverDomain, true);
    // Stored nowhere, the value stays -1, which has the bit: logging is on by default.
    const auto options = static_cast<std::uint32_t>(StoredMiscOptions({&older, current}));
    return (options & kEnableLogging) != 0;
}

bool DriverPreferences::HasOptions() const {
    const PreferencesStore current(domains, kDriverDomain, true);
    return current.GetInt("MiscOptions", current.User(), kAbsent) != kAbsent;
}

bool DriverPreferences::CompleteOptions(bool withWireless) const {
    const PreferencesStore older(domains, kOlderDriverDomain, true);
    PreferencesStore current(domains, kDriverDomain, true);
    if (!current.IsInitialized()) {
        return false;
    }
    if (current.GetObjectOfType("InputPorts", PropertyType::Data, current.User()) != nullptr) {
        return true;
    }
    const std::int32_t stored = older.GetInt("MiscOptions", older.User(), kAbsent);
    const std::uint32_t options =
        stored == kAbsent ? kDefaultMiscOptions : static_cast<std::uint32_t>(stored);
    const auto completed = static_cast<std::int32_t>(withWireless ? options : options & ~kUseWireless);
    return current.SetInt("MiscOptions", current.User(), &completed);
}

bool DriverPreferences::ReadCache(void* buffer, std::uint32_t* size) const {
    const PreferencesStore store(domains, kDriverDomain, true);
    return store.GetBinary("Cache", store.User(), buffer, size);
}

void DriverPreferences::WriteCache(const void* bytes, std::uint32_t length) const {
    PreferencesStore store(domains, kDriverDomain, true);
    store.SetBinary("Cache", store.User(), bytes, length);
}

void DriverPreferences::RemoveCache() const {
    PreferencesStore store(domains, kDriverDomain, true);
    store.SetBinary("Cache", store.User(), nullptr, 0);
}

}  // namespace vexil
