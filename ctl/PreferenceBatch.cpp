#include "ctl/PreferenceBatch.h"

#include <utility>

namespace vexil {

PropertyRef PreferenceBatch::CopyValue(const std::string& key, const std::string& application, UserScope user,
                                       HostScope host) {
    return domains.CopyValue(key, application, user, host);
}

void PreferenceBatch::SetValue(const std::string& key, PropertyRef value, const std::string& application,
                               UserScope user, HostScope host) {
    domains.SetValue(key, std::move(value), application, user, host);
}

bool PreferenceBatch::Synchronize(const std::string& application, UserScope user, HostScope host) {
    return holding || Commit(application, user, host);
}

bool PreferenceBatch::Commit(const std::string& application, UserScope user, HostScope host) {
    const bool done = domains.Synchronize(application, user, host);
    failed = failed || !done;
    return done;
}

}  // namespace vexil
