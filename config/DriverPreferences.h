// The driver configuration in the preferences. The panel writes it here and the driver reads it here; values that the
// current domain lacks are taken from the domain of the previous driver generation, which is never
// written.
//
// Every operation makes its own stores and drops them on return; nothing is kept between calls.
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
    // The same from the current domain alone, for callers that must not migrate.
    void LoadCurrentConfiguration(int portCount, DriverConfiguration& configuration) const;
    // Stores the record in the current domain. Failures are logged by the store.
    void SaveConfiguration(int portCount, const DriverConfiguration& configuration) const;

    // Bit 3 of the stored MiscOptions; false when none are stored.
    bool GetWirelessOption() const;
    void SetWirelessOption(bool on) const;
    // Bit 2 of the stored MiscOptions of the current, else the older domain; true when none are stored.
    bool GetLoggingOption() const;

    // The host list cache, an opaque block. ReadCache: as PreferencesStore::GetBinary.
    bool ReadCache(void* buffer, std::uint32_t* size) const;
    void WriteCache(const void* bytes, std::uint32_t length) const;
    void RemoveCache() const;

  private:
    PreferenceDomains& domains;
};

}  // namespace vexil
