// Preference domains around others that fail on demand, in the way a full disk or a lost permission makes
// them fail: Synchronize returns false, the changes are gone, and what was stored is still there.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "config/PreferenceDomains.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {

class FaultyPreferenceDomains : public PreferenceDomains {
  public:
    // `wrappedDomains` must outlive this object.
    explicit FaultyPreferenceDomains(PreferenceDomains& wrappedDomains) : wrapped(wrappedDomains) {}

    // Every Synchronize fails from here on, or no longer does.
    void FailAll(bool on) { failAll = on; }
    // Every Synchronize of one application's domains fails from here on.
    void FailApplication(const std::string& application) { failingApplications.insert(application); }
    // The Synchronize that comes after `successes` more of them fails, once.
    void FailOnceAfter(int successes) { untilFailure = successes; }

    PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                          HostScope host) override {
        const Pending& changes = pending[{application, user, host}];
        for (auto change = changes.rbegin(); change != changes.rend(); ++change) {
            if (change->first == key) {
                return change->second;
            }
        }
        return wrapped.CopyValue(key, application, user, host);
    }

    // Kept here until Synchronize, so that a failure leaves no trace in the wrapped domains.
    void SetValue(const std::string& key, PropertyRef value, const std::string& application, UserScope user,
                  HostScope host) override {
        pending[{application, user, host}].emplace_back(key, std::move(value));
    }

    bool Synchronize(const std::string& application, UserScope user, HostScope host) override {
        const Pending changes = std::exchange(pending[{application, user, host}], {});
        const bool countedOut = untilFailure >= 0 && untilFailure-- == 0;
        if (failAll || countedOut || failingApplications.contains(application)) {
            return false;
        }
        for (const auto& [key, value] : changes) {
            wrapped.SetValue(key, value, application, user, host);
        }
        return wrapped.Synchronize(application, user, host);
    }

  private:
    using Pending = std::vector<std::pair<std::string, PropertyRef>>;

    PreferenceDomains& wrapped;
    std::map<PreferenceDomainId, Pending> pending;
    bool failAll = false;
    std::set<std::string> failingApplications;
    int untilFailure = -1;  // successes before the one failure; -1: none is planned
};

}  // namespace vexil
