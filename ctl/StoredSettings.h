// The stored configuration to and from a settings file, without a panel: what a panel's Load and Apply, or
// its Save, would do with the same file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "config/DriverConfiguration.h"
#include "config/PreferenceDomains.h"
#include "ctl/CollectedLog.h"
#include "ctl/PreferenceBatch.h"
#include "ctl/SettingsCheck.h"

namespace vexil {

struct LoadWishes {
    // What the file lacks gets its default; else it stays as it was.
    bool fromDefaults = false;
    // Asked when everything is ready to be stored: Use Wireless is not stored while a panel is open,
    // which stores its own choice when it ends. Null: none is.
    std::function<bool()> isPanelOpen;
};

class StoredSettings {
  public:
    // Both must outlive this object; the log must be collected before the domains are first used.
    StoredSettings(PreferenceDomains& preferenceDomains, CollectedLog& collectedLog)
        : domains(preferenceDomains), log(collectedLog) {}

    enum class Outcome { Stored, Corrected, Failed };

    // Reads the file into the stored configuration and stores the result in one step. Corrected: no port was
    // enabled any more, so the output of the first one is. On failure nothing is changed, and Problem says
    // why.
    Outcome Load(const std::string& path, const LoadWishes& wishes = {});
    // Stores the defaults. `fromDefaults` does not count.
    Outcome LoadDefaults(const LoadWishes& wishes);

    // The stored configuration. False on failure.
    bool Read(DriverConfiguration& configuration);
    // Changes the stored configuration by `edit`, which returns false when nothing is to be stored: Failed,
    // without a problem.
    Outcome Edit(const std::function<bool(DriverConfiguration&)>& edit, const LoadWishes& wishes);

    // Of the last load: what in the file means nothing, and Use Wireless as it was wanted, which differs from
    // what was stored or not.
    const std::vector<SettingsRemark>& Remarks() const { return remarks; }
    bool WirelessWish() const { return wirelessWish; }
    bool WirelessChanged() const { return wirelessChanged; }

    // Writes the stored configuration into the file, edited in place where there is one. False on failure:
    // the file is unchanged, or made whole when it is next loaded or saved (see config/SafeRewrite.h).
    bool Save(const std::string& path);

    // What to tell after the last operation: why it failed, or what is worth knowing. Lines; may be empty.
    const std::string& Problem() const { return problem; }

  private:
    bool ReadStored(PreferenceBatch& batch, DriverConfiguration& configuration);
    Outcome Store(PreferenceBatch& batch, const DriverConfiguration& before,
                  DriverConfiguration configuration, const LoadWishes& wishes);
    bool Fail(const std::string& what);

    PreferenceDomains& domains;
    CollectedLog& log;
    std::string problem;
    std::vector<SettingsRemark> remarks;
    bool wirelessWish = false;
    bool wirelessChanged = false;
};

}  // namespace vexil
