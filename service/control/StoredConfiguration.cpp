#include "service/control/StoredConfiguration.h"

#include <utility>

#include "config/DriverPreferences.h"

namespace vexil {

void StoredConfiguration::Complete(bool panelIsAttached) {
    isIncomplete = !DriverPreferences(domains).CompleteOptions(!panelIsAttached);
}

bool StoredConfiguration::LacksOptions() const {
    return !DriverPreferences(domains).HasOptions();
}

const DriverConfiguration& StoredConfiguration::Read() {
    DriverPreferences(domains).LoadCurrentConfiguration(kPortCount, seen);
    return seen;
}

std::optional<StoredConfiguration::Change> StoredConfiguration::Look(bool panelIsAttached) {
    if (isIncomplete) {
        Complete(panelIsAttached);
    }
    const DriverConfiguration before = seen;
    Read();
    seen.MiscOptions = (seen.MiscOptions & ~kUseWireless) | (before.MiscOptions & kUseWireless);
    if (!Differs(before, seen)) {
        return std::nullopt;
    }
    return Change{seen, seen.SendGranularity != before.SendGranularity};
}

}  // namespace vexil
