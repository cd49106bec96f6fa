// What the driver has of the stored configuration: it reads it, sees what has changed since it last looked,
// and completes it where no panel ever saved one. It writes nothing else.
//
// One thread.
#pragma once

#include <optional>

#include "config/DriverConfiguration.h"
#include "config/PreferenceDomains.h"

namespace vexil {

class StoredConfiguration {
  public:
    // `preferenceDomains` must outlive this object.
    explicit StoredConfiguration(PreferenceDomains& preferenceDomains) : domains(preferenceDomains) {}

    // Stores the options where no options were ever saved, as DriverPreferences::CompleteOptions has it. What
    // could not be stored now is tried again with every Look.
    void Complete(bool panelIsAttached);
    // Whether there are no options: nothing was ever stored, or the file has gone.
    bool LacksOptions() const;

    // The whole configuration as it is stored now.
    const DriverConfiguration& Read();

    struct Change {
        const DriverConfiguration& configuration;  // good until the next look
        bool granularity;                          // SendGranularity is another than at the last look
    };
    // What is stored now, when a value differs from the one of the last Read or Look; else null. Use Wireless
    // does not count and stays as it was: a panel stores it away while it runs.
    std::optional<Change> Look(bool panelIsAttached);

  private:
    PreferenceDomains& domains;
    DriverConfiguration seen;
    bool isIncomplete = false;
};

}  // namespace vexil
