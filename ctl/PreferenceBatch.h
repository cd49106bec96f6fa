// Preferences of which many values are changed at once: read as they are, and then written all together or
// not at all. A store synchronises each value as it is set, which after a failure half way would leave a
// mixture.
#pragma once

#include <string>

#include "config/PreferenceDomains.h"

namespace vexil {

class PreferenceBatch : public PreferenceDomains {
  public:
    // `preferenceDomains` must outlive this object.
    explicit PreferenceBatch(PreferenceDomains& preferenceDomains) : domains(preferenceDomains) {}

    PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                          HostScope host) override;
    void SetValue(const std::string& key, PropertyRef value, const std::string& application, UserScope user,
                  HostScope host) override;
    // Before Begin the result of the domains, afterwards true, with nothing done.
    bool Synchronize(const std::string& application, UserScope user, HostScope host) override;

    // Whether a Synchronize has failed.
    bool HasFailed() const { return failed; }

    // From now on changes are held back.
    void Begin() { holding = true; }
    // Makes the changes of one domain permanent, in one step. False when that failed: what was stored before
    // is then there whole.
    bool Commit(const std::string& application, UserScope user, HostScope host);

  private:
    PreferenceDomains& domains;
    bool holding = false;
    bool failed = false;
};

}  // namespace vexil
