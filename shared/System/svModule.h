// The program's identity and its places on disk, process-wide. Initialise comes first in main; the state
// lasts until the process ends. Not locked: it is used by the thread that initialised it.
//
// The preference accessors work on the preferences domain that is named after the module. Each opens its own
// store on the given domains and drops it. Called before Initialise they stop the program with an assertion
// line.
#pragma once

#include <cstdint>

#include "config/PreferenceDomains.h"
#include "shared/System/svString.h"

namespace vexil::svModule {

// Sets names and places; again overwrites them. The module id is "com.sonavert.", the module name, and "."
// with the sub name unless that is null. `executablePath` is the program's first argument. Returns 0, or the
// errno value of the step that failed: the executable could not be found, or it has no four folders above it
// (ENOENT). The names and the executable directory are set even then; the bundle holder stays what it was.
int Initialise(const char* executablePath, const char* moduleName, const char* subName);

// The executable's path up to its last "/" included; the whole path when it has no "/".
svString ExecutableDirectory();
// The folder above it, up to a "/": of a directory that ends in X.app/Contents/MacOS/, X.app/Contents/.
svString ContentsDirectory();
// The folder four levels above the executable, which holds the application bundle, with a "/" appended. Empty
// when it is not known or longer than 260 bytes.
svString BundleHolderPath();
// The application bundle's folder when the executable directory ends in X/Contents/MacOS/, else the
// executable directory; both end in "/". What the first call after Initialise found stays.
svString MainBundle();

// 0. Stops the program when the module is not initialised.
int CheckInitialised();

// A stored value, or the default when no value of that type is stored or the store did not initialise. Key
// paths as for PreferencesStore; `anyUser` chooses its user scope.
std::int32_t GetPreferenceInteger(PreferenceDomains& domains, const char* keyPath, std::int32_t defaultValue,
                                  bool anyUser);
svString GetPreferenceString(PreferenceDomains& domains, const char* keyPath, const char* defaultText,
                             bool anyUser);

// Stores a value permanently: 0, or -1 when that failed. A null text removes the entry.
int SetPreferenceInteger(PreferenceDomains& domains, const char* keyPath, std::int32_t value, bool anyUser);
int SetPreferenceString(PreferenceDomains& domains, const char* keyPath, const char* text, bool anyUser);

}  // namespace vexil::svModule
