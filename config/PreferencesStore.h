// One preferences domain, seen through key paths. Made on the stack for a few reads or writes; every write is
// permanent when it returns true. Failures are results and one log line each, no exceptions; only the memory
// of a copied path or of a handed-out text is left to the allocator's exception.
//
// A key path is a top-level key, optionally followed by names of nested dictionary entries, separated by "/".
// Keys cannot hold a "/": nothing escapes it. The store works on its own copy of a path.
//
// Error lines are always written to the log, trace lines only while the store is verbose. Each starts with
// the name of the operation; the operations on nested entries share one name, and a key that cannot be made
// is always reported under "GetEntryString:".
//
// The host scope is always the current host. Texts are stored in the system's encoding, UTF-8.
//
// Threads: a store is used by one thread and holds no lock. Several stores may exist at once.
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

    // Addresses the domain of `applicationId` and synchronises it. False, with the store not initialised,
    // when that failed; false with the store as it was for a null id and for one that cannot be made a key
    // string. May be called again.
    bool Initialize(const char* applicationId, bool anyUser);

    bool IsInitialized() const { return initialised; }
    // The scope that callers give to the operations below.
    UserScope User() const { return userScope; }
    // Switches the trace lines in the log on or off. Off at construction.
    void SetVerbose(bool on) { verbose = on; }

    // A key string of `text`, or null (logged) when it cannot be made: the text is null or longer than
    // kMaxPropertyTextBytes, or there is no memory for it.
    std::optional<std::string> GetEntryString(const char* text) const;

    // The value at a key path, or null. A top-level value must have the wanted type; a value inside a
    // dictionary is handed out whatever its type. A dictionary itself is never handed out. Below a top-level
    // value that is no dictionary the rest of the path is ignored.
    PropertyRef GetObjectOfType(const char* keyPath, PropertyType wanted, UserScope user) const;
    // The value at the rest of a key path in `dictionary`, or null (logged).
    PropertyRef GetDictEntryValue(const PropertyRef& dictionary, const char* keyPath) const;

    // The typed getters. What is missing or of another type counts as absent, inside a dictionary as well.

    // Copies stored bytes. `size` (required) is the buffer's size on entry; on return the stored length, or
    // what it was when there is no such value. False when absent, or when the buffer is null or too small: a
    // null buffer is the way to learn the length.
    bool GetBinary(const char* keyPath, UserScope user, void* buffer, std::uint32_t* size) const;
    // A stored empty text that is had only by copying it out counts as absent.
    svString GetString(const char* keyPath, UserScope user, const char* defaultText) const;
    bool GetBool(const char* keyPath, UserScope user, bool defaultValue) const;
    std::int32_t GetInt(const char* keyPath, UserScope user, std::int32_t defaultValue) const;

    // Stores a value under a key path, making the dictionaries on the way and replacing what is no
    // dictionary; a null value removes the entry. With `releaseValue` the store takes over the caller's
    // reference, which is null on return on every path; without it the caller's reference is untouched.
    bool PutObject(const char* keyPath, PropertyRef& value, UserScope user, bool releaseValue);
    // A null pointer, or a length of 0, removes the entry.
    bool SetBinary(const char* keyPath, UserScope user, const void* bytes, std::uint32_t length);
    bool SetString(const char* keyPath, UserScope user, const char* text);
    bool SetBool(const char* keyPath, UserScope user, const bool* value);
    bool SetInt(const char* keyPath, UserScope user, const std::int32_t* value);

    // Stores a value under a top-level key and makes it permanent. `releaseValue` as in PutObject.
    bool SetSynchronizeProperty(const std::string& key, PropertyRef& value, UserScope user,
                                bool releaseValue);
    // Sets `value` (null removes the entry) under the rest of a key path in `dictionary`. False when there is
    // no dictionary or an entry cannot be made; the dictionary is then unchanged.
    bool SetDictEntryValue(PropertyDictionary* dictionary, const char* keyPath,
                           const PropertyRef& value) const;

  private:
    void TraceFound(const char* operation, const PropertyRef& value) const;

    PreferenceDomains& domains;
    std::optional<std::string> application;
    UserScope userScope;
    bool initialised = false;
    bool verbose = false;
};

}  // namespace vexil
