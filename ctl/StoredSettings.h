// The stored configuration to and from a settings file, without a panel: what a panel's Load and Apply, or
// its Save, would do with the same file.
#pragma once

#include <string>

#include "config/DriverConfiguration.h"
#include "config/PreferenceDomains.h"
#include "ctl/CollectedLog.h"
#include "ctl/PreferenceBatch.h"

namespace vexil {

class StoredSettings {
  public:
    // Both must outlive this object; the log must be collected before the domains are first used.
    StoredSettings(PreferenceDomains& preferenceDomains, CollectedLog& collectedLog)
        : domains(preferenceDomains), log(collectedLog) {}

    enum class Outcome { Stored, Corrected, Failed };

    // Reads the file into the stored configuration, so that what it lacks stays as it was, and stores the
    // result in one step. Corrected: no port was enabled any more, so the output of the first one is. On
    // failure nothing is changed, and Problem says why.
    Outcome Load(const std::string& path);

    // Writes the stored configuration into the file, edited in place where there is one. False on failure:
    // the file is unchanged, or made whole when it is next loaded or saved (see config/SafeRewrite.h).
    bool Save(const std::string& path);

    // What to tell after the last operation: why it failed, or what is worth knowing. Lines; may be empty.
    const std::string& Problem() const { return problem; }

  private:
    bool ReadStored(PreferenceBatch& batch, DriverConfiguration& configuration);
    bool Fail(const std::string& what);

    PreferenceDomains& domains;
    CollectedLog& log;
    std::string problem;
};

}  // namespace vexil
