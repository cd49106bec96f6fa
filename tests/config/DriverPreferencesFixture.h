// The stored configuration on domains in memory.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "config/DriverPreferences.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {

inline PreferenceDomainId DomainOf(const char* application) {
    return {application, UserScope::kCFPreferencesAnyUser, HostScope::kCFPreferencesCurrentHost};
}

class DriverPreferencesTest : public testing::Test {
  protected:
    PropertyDictionary& Current() { return domains.Storage().domains[DomainOf(kDriverDomain)]; }
    PropertyDictionary& Older() { return domains.Storage().domains[DomainOf(kOlderDriverDomain)]; }

    DriverConfiguration Load() const {
        DriverConfiguration configuration;
        preferences.LoadConfiguration(kPortCount, configuration);
        return configuration;
    }
    DriverConfiguration LoadCurrent() const {
        DriverConfiguration configuration;
        preferences.LoadCurrentConfiguration(kPortCount, configuration);
        return configuration;
    }
    // A mask of fewer, of exactly or of more than 8 bytes.
    static PropertyRef Mask(const std::string& bytes) { return MakePropertyData(bytes.data(), bytes.size()); }

    MemoryPreferenceDomains domains;
    DriverPreferences preferences{domains};
    LogCapture log;
};

}  // namespace vexil
