// The driver configuration in the preferences. The panel writes it here and the driver reads it here; values
// that the current domain lacks are taken from the domain of the previous driver generation, which is never
// written.
//
// Every operation makes its own stores, for any user on the current host, and drops them on return; nothing
// is kept between calls. A value that is missing, of another type, or (a mask) of more than 8 bytes counts as
// absent; so does a stored -1 where -1 cannot be.
//
// Keys of the current domain, all at the top level:
//
//     InputPorts, OutputPorts, LocalPipes              data, 8 bytes, lowest first
//     MiscOptions, SendGranularity                     number
//     01 PortFlags ... 64 PortFlags                    number, the packed PortEntry
//     NN In_CustomName, NN Out_CustomName, NN SrcHost, NN DstHost     string
//     Cache                                            data
//
// Keys read from the older domain: MiscOptions and NN In_CustomName, NN Out_CustomName as above, and
//
//     ActiveDevices, ActiveDevices01 ... 03     number, 16 ports each: outputs from bit 0, inputs from bit 16
//     NN In_FromPort                            number: flags in bits 24-31, source port in bits 0-7
//     NN Out_ToPort                             number: target port in bits 0-7
#pragma once

#include <cstdint>

#include "config/DriverConfiguration.h"
#include "config/PreferenceDomains.h"

namespace vexil {

inline constexpr const char* kDriverDomain = "com.sonavert.Vexil3Driver";
inline constexpr const char* kOlderDriverDomain = "com.sonavert.VexilDrv.2";

class DriverPreferences {
  public:
    // `preferenceDomains` must outlive this object.
    explicit DriverPreferences(PreferenceDomains& preferenceDomains) : domains(preferenceDomains) {}

    // Fills the record from the current domain, then the older one, then the defaults. `portCount` bounds the
    // migration of the port masks; the per-port values are always read for all 64 ports.
    void LoadConfiguration(int portCount, DriverConfiguration& configuration) const;
    // The same from the current domain alone, for callers that must not migrate; every value that it lacks is
    // the default.
    void LoadCurrentConfiguration(int portCount, DriverConfiguration& configuration) const;
    // Stores the record in the current domain, the values of the first `portCount` ports. Each write is
    // permanent before the next; failures are logged by the store, and the rest is still written.
    void SaveConfiguration(int portCount, const DriverConfiguration& configuration) const;

    // Bit 3 of the stored MiscOptions; false when no options are stored.
    bool GetWirelessOption() const;
    // Reads MiscOptions (0 when no options are stored), sets or clears bit 3 and writes them back.
    void SetWirelessOption(bool on) const;
    // Bit 2 of the stored MiscOptions of the current, else the older domain; true when neither has options.
    bool GetLoggingOption() const;

    // Where no configuration was ever saved (the current domain has no InputPorts), stores the MiscOptions
    // that a load gives with none in the current domain: those of the older one, else the defaults. What a
    // panel left there at its start is no choice of a person's. Without `withWireless` bit 3 is cleared.
    // False when that could not be stored, or the domain not be read.
    bool CompleteOptions(bool withWireless) const;

    // Whether the current domain has MiscOptions.
    bool HasOptions() const;
    // The host list cache, an opaque block. ReadCache: as PreferencesStore::GetBinary.
    bool ReadCache(void* buffer, std::uint32_t* size) const;
    void WriteCache(const void* bytes, std::uint32_t length) const;
    void RemoveCache() const;

  private:
    PreferenceDomains& domains;
};

}  // namespace vexil
