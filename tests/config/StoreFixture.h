// A preferences store on domains in memory, with the log's lines at hand.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "config/PreferencesStore.h"
#include "tests/doubles/LogCapture.h"
#include "tests/doubles/MemoryPreferenceDomains.h"

namespace vexil {

inline constexpr const char* kApp = "com.example.App";
inline constexpr UserScope kAny = UserScope::kCFPreferencesAnyUser;
inline constexpr UserScope kOwn = UserScope::kCFPreferencesCurrentUser;
inline constexpr HostScope kHere = HostScope::kCFPreferencesCurrentHost;

// printf into a string, for expected lines with addresses.
__attribute__((format(printf, 1, 2))) inline std::string Printed(const char* format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

class StoreTest : public testing::Test {
  protected:
    // Puts a value into the storage before a store looks at it.
    void Put(const std::string& key, const PropertyRef& value) {
        domains.Storage().domains[{kApp, kAny, kHere}][key] = value;
    }
    // The value as it is stored for good.
    PropertyRef Stored(const std::string& key) {
        const PropertyDictionary& domain = domains.Storage().domains[{kApp, kAny, kHere}];
        const auto found = domain.find(key);
        return found == domain.end() ? nullptr : found->second;
    }
    PreferencesStore Open(bool verbose = false) {
        PreferencesStore store(domains, kApp, true);
        store.SetVerbose(verbose);
        log.Clear();
        return store;
    }
    PreferencesStore OpenVerbose() { return Open(true); }

    MemoryPreferenceDomains domains;
    LogCapture log;
};

}  // namespace vexil
