// Seam: where preferences are kept. A persistent map from (application id, user scope, host scope, key) to a
// value.
#pragma once

#include <string>

#include "config/PropertyValue.h"

namespace vexil {

enum class UserScope { kCFPreferencesCurrentUser, kCFPreferencesAnyUser };
enum class HostScope { kCFPreferencesCurrentHost };

class PreferenceDomains {
  public:
    virtual ~PreferenceDomains() = default;

    // The value under a top-level key as of the last Synchronize of its domain, with what SetValue has
    // changed since; null when the key is absent. A domain that was never synchronised is read first.
    virtual PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                                  HostScope host) = 0;

    // Changes the value under a top-level key; null removes the key. Nothing is permanent before Synchronize.
    virtual void SetValue(const std::string& key, PropertyRef value, const std::string& application,
                          UserScope user, HostScope host) = 0;

    // Makes the pending changes permanent and reads the domain anew. True when that is done; false when the
    // changes could not be made permanent, in which case what was stored before is still there whole, the
    // changes are dropped, and the reason has been logged. A domain that does not exist is empty.
    virtual bool Synchronize(const std::string& application, UserScope user, HostScope host) = 0;
};

}  // namespace vexil
