// One preferences domain, seen through key paths. Made on the stack for a few reads or writes; every write is
// permanent when it returns true. Failures are results and log lines, never exceptions.
//
// A key path is a top-level key, optionally followed by names of nested dictionary entries, separated by "/". Keys cannot
// hold a "/".
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "config/PreferenceDomains.h"
#include "shared/System/svString.h"

namespace vexil {

class PreferencesStore {
  public:
    // `domains` must outlive the store. With a null id the store is not initialised.
    PreferencesStore(PreferenceDomains& domains, const char* applicationId, bool anyUser);

    // Addresses the domain of `applicationId` and synchronises it. False, with the store not initialised, when
    // that failed; false with the store as it was for an id that cannot be made a key string.
    bool Initialize(const char* applicationId, bool anyUser);

    bool IsInitialized() const { return initialised; }
    UserScope User() const { return userScope; }
    // Switches the trace lines in the log on or off. Off at construction.
    void SetVerbose(bool on) { verbose = on; }

    // A key string of `text`, or none (logged) when it cannot be made.
    std::optional<std::string> GetEntryString(const char* text) const;

    // The value at a key path or none. A top-level value must have the wanted type; a value inside a dictionary is
    // handed out whatever its type.
    PropertyRef GetObjectOfType(const char* keyPath, PropertyType wanted, UserScope user) const;
    PropertyRef GetDictEntryValue(const PropertyRef& dictionary, const char* keyPath) const;

    // Copies stored bytes. `size` is the buffer's size on entry; the stored length on return, when there is such
    // a value. False when absent, or when the buffer is null or too small.
    bool GetBinary(const char* keyPath, UserScope user, void* buffer, std::uint32_t* size) const;
    svString GetString(const char* keyPath, UserScope user, const char* defaultText) const;
    bool GetBool(const char* keyPath, UserScope user, bool defaultValue) const;
    std::int32_t GetInt(const char* keyPath, UserScope user, std::int32_t defaultValue) const;

    // Stores a value (none removes it) under a key path, making the dictionaries on the way.
    bool PutObject(const char* keyPath, PropertyRef value, UserScope user, bool releaseValue);
    // A null pointer, or a length of 0, removes the entry.
    bool SetBinary(const char* keyPath, UserScope user, const void* bytes, std::uint32_t length);
    bool SetString(const char* keyPath, UserScope user, const char* text);
    bool SetBool(const char* keyPath, UserScope user, const bool* value);
    bool SetInt(const char* keyPath, UserScope user, const std::int32_t* value);

    // Sets `value` under the rest of a key path in `dictionary`; false when there is no dictionary.
    bool SetDictEntryValue(PropertyDictionary* dictionary, const char* keyPath, PropertyRef value);

    bool SetSynchronizeProperty(const std::string& key, PropertyRef value, UserScope user, bool releaseValue);

  private:
    PreferenceDomains& domains;
    std::optional<std::string> application;
    UserScope userScope;
    bool initialised = false;
    bool verbose = false;
};

}  // namespace vexil
