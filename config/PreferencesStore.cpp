#include "config/PreferencesStore.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "shared/System/svLog.h"

namespace vexil {

namespace {

constexpr HostScope kHost = HostScope::kCFPreferencesCurrentHost;

// What the lines start with.
constexpr const char* kGetEntryString = "GetEntryString:";
constexpr const char* kSetSynchronizeProperty = "SetSynchronizeProperty:";
constexpr const char* kGetDictEntryValue = "GetDictEntryValue:";
constexpr const char* kGetObjectOfType = "GetObjectOfType:";
constexpr const char* kGetBinary = "GetBinary:";
constexpr const char* kPutObject = "PutObject:";
constexpr const char* kInitialize = "Initialize:";

// Lines that more than one operation writes.
constexpr const char* kNotInitialized = "%s Not initialized or invalid Entry (%p).\n";
constexpr const char* kDictionaryAsValue = "%s Attempt to get Dictionary as value\n";
constexpr const char* kNoDictionary = "%s NULL Dictionary given.\n";
constexpr const char* kGettingEntry = "%s Getting Entry '%s'\n";
constexpr const char* kSettingEntry = "%s Setting Entry '%s'\n";
constexpr const char* kEnteringDictionary = "%s Entering Dictionary %p\n";
constexpr const char* kSynchronizing = "%s Synchronizing %d\n";

// A path split at its first "/": the key before it and the rest after it. No rest where there is no "/".
struct KeyPath {
    explicit KeyPath(const char* text) : key(text) {
        const int slash = key.Find('/');
        if (slash >= 0) {
            rest = key.Mid(slash + 1);
            key = key.Left(slash);
        }
    }

    const char* Rest() const { return rest ? rest->c_str() : nullptr; }

    svString key;
    std::optional<svString> rest;
};

// The content of a value when there is one of that kind, else null. A leaf of a dictionary comes unchecked,
// so each getter asks this way.
template <class Kind>
const Kind* ContentOf(const PropertyRef& value) {
    return value == nullptr ? nullptr : value->As<Kind>();
}

// A dictionary to change: a copy of the stored one, or an empty one in place of anything else; null when
// there is no memory for it.
std::optional<PropertyDictionary> MutableCopy(const PropertyRef& stored) {
    try {
        const PropertyDictionary* dictionary = ContentOf<PropertyDictionary>(stored);
        return dictionary == nullptr ? PropertyDictionary() : *dictionary;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

// Sets an entry, or removes it where the value is null. False when there is no memory for it.
bool AssignEntry(PropertyDictionary& dictionary, const std::string& key, const PropertyRef& value) {
    if (value == nullptr) {
        dictionary.erase(key);
        return true;
    }
    try {
        dictionary.insert_or_assign(key, value);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void ReleaseIf(bool owned, PropertyRef& value) {
    if (owned) {
        value.reset();
    }
}

// The two truth values exist once, for the life of the program: a reference to one owns nothing and always
// succeeds.
PropertyRef SharedBoolean(bool boolean) {
    static const PropertyValue kFalse{false};
    static const PropertyValue kTrue{true};
    return PropertyRef(PropertyRef(), boolean ? &kTrue : &kFalse);
}

const void* Address(const PropertyRef& value) {
    return value.get();
}

}  // namespace

PreferencesStore::PreferencesStore(PreferenceDomains& domainsToUse, const char* applicationId, bool anyUser)
    : domains(domainsToUse),
      userScope(anyUser ? UserScope::kCFPreferencesAnyUser : UserScope::kCFPreferencesCurrentUser) {
    if (applicationId != nullptr) {
        Initialize(applicationId, anyUser);
    }
}

bool PreferencesStore::Initialize(const char* applicationId, bool anyUser) {
    if (applicationId == nullptr) {
        return false;
    }
    LogPrintfIf(verbose, "%s App '%s'\n", kInitialize, applicationId);
    std::optional<std::string> id = GetEntryString(applicationId);
    if (!id) {
        return false;
    }
    application = std::move(id);
    userScope = anyUser ? UserScope::kCFPreferencesAnyUser : UserScope::kCFPreferencesCurrentUser;
    initialised = domains.Synchronize(*application, userScope, kHost);
    LogPrintfIf(verbose, kSynchronizing, kInitialize, initialised ? 1 : 0);
    return initialised;
}

std::optional<std::string> PreferencesStore::GetEntryString(const char* text) const {
    if (text != nullptr) {
        const std::size_t length = strnlen(text, kMaxPropertyTextBytes + 1);
        if (length <= kMaxPropertyTextBytes) {
            try {
                return std::string(text, length);
            } catch (const std::bad_alloc&) {
                // Reported below, as any string that cannot be made.
            }
        }
    }
    LogPrintf("%s CFString NULL\n", kGetEntryString);
    return std::nullopt;
}

void PreferencesStore::TraceFound(const char* operation, const PropertyRef& value) const {
    LogPrintfIf(verbose, "%s Found CFType %p ID %d\n", operation, Address(value),
                static_cast<int>(value->Type()));
}

PropertyRef PreferencesStore::GetObjectOfType(const char* keyPath, PropertyType wanted,
                                              UserScope user) const {
    if (!initialised || keyPath == nullptr) {
        LogPrintf(kNotInitialized, kGetObjectOfType, static_cast<const void*>(keyPath));
        return nullptr;
    }
    const KeyPath path(keyPath);
    LogPrintfIf(verbose, kGettingEntry, kGetObjectOfType, path.key.c_str());
    const std::optional<std::string> key = GetEntryString(path.key.c_str());
    if (!key) {
        return nullptr;
    }
    PropertyRef value = domains.CopyValue(*key, *application, user, kHost);
    if (value == nullptr) {
        return nullptr;
    }
    TraceFound(kGetObjectOfType, value);
    if (value->Type() == PropertyType::Dictionary) {
        if (!path.rest) {
            LogPrintf(kDictionaryAsValue, kGetObjectOfType);
            return nullptr;
        }
        LogPrintfIf(verbose, kEnteringDictionary, kGetObjectOfType, Address(value));
        return GetDictEntryValue(value, path.Rest());
    }
    return value->Type() == wanted ? value : nullptr;
}

PropertyRef PreferencesStore::GetDictEntryValue(const PropertyRef& dictionary, const char* keyPath) const {
    const PropertyDictionary* entries = ContentOf<PropertyDictionary>(dictionary);
    if (entries == nullptr) {
        LogPrintf(kNoDictionary, kGetDictEntryValue);
        return nullptr;
    }
    if (keyPath == nullptr) {
        LogPrintf(kDictionaryAsValue, kGetDictEntryValue);
        return nullptr;
    }
    const KeyPath path(keyPath);
    LogPrintfIf(verbose, kGettingEntry, kGetDictEntryValue, path.key.c_str());
    const std::optional<std::string> key = GetEntryString(path.key.c_str());
    if (!key) {
        return nullptr;
    }
    PropertyRef value;
    const auto found = entries->find(*key);
    if (found != entries->end() && found->second != nullptr) {
        value = found->second;
        TraceFound(kGetDictEntryValue, value);
        if (value->Type() == PropertyType::Dictionary) {
            LogPrintfIf(verbose, kEnteringDictionary, kGetDictEntryValue, Address(value));
            value = GetDictEntryValue(value, path.Rest());
        }
    }
    if (value != nullptr) {
        LogPrintfIf(verbose, "%s Returning CFType %p ID %d\n", kGetDictEntryValue, Address(value),
                    static_cast<int>(value->Type()));
    } else {
        LogPrintf("%s Returning NULL CFType\n", kGetDictEntryValue);
    }
    return value;
}

bool PreferencesStore::GetBinary(const char* keyPath, UserScope user, void* buffer,
                                 std::uint32_t* size) const {
    const PropertyRef value = GetObjectOfType(keyPath, PropertyType::Data, user);
    const PropertyData* data = ContentOf<PropertyData>(value);
    if (data == nullptr) {
        return false;
    }
    const std::uint32_t room = *size;
    const std::size_t length = data->size();
    *size = static_cast<std::uint32_t>(length);
    if (buffer == nullptr || length > room) {
        LogPrintf("%s buffer null or overflow (%d > %d)\n", kGetBinary, static_cast<int>(length),
                  static_cast<int>(room));
        return false;
    }
    std::copy(data->begin(), data->end(), static_cast<std::uint8_t*>(buffer));
    LogPrintfIf(verbose, "%s %d bytes copied\n", kGetBinary, static_cast<int>(length));
    return true;
}

svString PreferencesStore::GetString(const char* keyPath, UserScope user, const char* defaultText) const {
    svString result(defaultText);
    const PropertyRef value = GetObjectOfType(keyPath, PropertyType::String, user);
    if (const PropertyString* string = ContentOf<PropertyString>(value)) {
        const std::size_t length = string->text.size();
        if (string->direct) {
            result = string->text.c_str();
        } else if (length > 0) {
            // The buffer has one byte more than asked for, and the copy takes the terminator into it.
            std::memcpy(result.GetBuffer(static_cast<int>(length)), string->text.c_str(), length + 1);
            result.ReleaseBuffer();
        }
    }
    LogPrintfIf(verbose, "GetString: result '%s'\n", result.c_str());
    return result;
}

bool PreferencesStore::GetBool(const char* keyPath, UserScope user, bool defaultValue) const {
    const PropertyRef value = GetObjectOfType(keyPath, PropertyType::Boolean, user);
    const bool* boolean = ContentOf<bool>(value);
    const bool result = boolean == nullptr ? defaultValue : *boolean;
    LogPrintfIf(verbose, "GetBool: result '%s'\n", result ? "Yes" : "No");
    return result;
}

std::int32_t PreferencesStore::GetInt(const char* keyPath, UserScope user, std::int32_t defaultValue) const {
    const PropertyRef value = GetObjectOfType(keyPath, PropertyType::Number, user);
    const PropertyNumber* number = ContentOf<PropertyNumber>(value);
    const std::int32_t result = number == nullptr ? defaultValue : PropertyInt32(*number);
    LogPrintfIf(verbose, "GetInt: result %d\n", result);
    return result;
}

bool PreferencesStore::PutObject(const char* keyPath, PropertyRef& value, UserScope user, bool releaseValue) {
    if (!initialised || keyPath == nullptr) {
        LogPrintf(kNotInitialized, kPutObject, static_cast<const void*>(keyPath));
        ReleaseIf(releaseValue, value);
        return false;
    }
    LogPrintfIf(verbose, kSettingEntry, kPutObject, keyPath);
    const KeyPath path(keyPath);
    const std::optional<std::string> key = GetEntryString(path.key.c_str());
    if (!key) {
        ReleaseIf(releaseValue, value);
        return false;
    }
    if (!path.rest) {
        return SetSynchronizeProperty(*key, value, user, releaseValue);
    }

    PropertyRef changed;
    std::optional<PropertyDictionary> dictionary =
        MutableCopy(domains.CopyValue(*key, *application, user, kHost));
    if (dictionary && SetDictEntryValue(&*dictionary, path.Rest(), value)) {
        changed = MakePropertyDictionary(std::move(*dictionary));
    }
    ReleaseIf(releaseValue, value);
    if (changed == nullptr) {
        LogPrintf("%s Out of memory.", kPutObject);
        return false;
    }
    return SetSynchronizeProperty(*key, changed, user, true);
}

bool PreferencesStore::SetDictEntryValue(PropertyDictionary* dictionary, const char* keyPath,
                                         const PropertyRef& value) const {
    if (dictionary == nullptr) {
        LogPrintf(kNoDictionary, kGetDictEntryValue);
        return false;
    }
    LogPrintfIf(verbose, kSettingEntry, kGetDictEntryValue, keyPath == nullptr ? "" : keyPath);
    const KeyPath path(keyPath);
    const std::optional<std::string> key = GetEntryString(path.key.c_str());
    if (!key) {
        return false;
    }
    if (!path.rest) {
        return AssignEntry(*dictionary, *key, value);
    }

    const auto found = dictionary->find(*key);
    std::optional<PropertyDictionary> inner =
        MutableCopy(found == dictionary->end() ? nullptr : found->second);
    if (!SetDictEntryValue(inner ? &*inner : nullptr, path.Rest(), value)) {
        return false;
    }
    const PropertyRef changed = MakePropertyDictionary(std::move(*inner));
    return changed != nullptr && AssignEntry(*dictionary, *key, changed);
}

bool PreferencesStore::SetSynchronizeProperty(const std::string& key, PropertyRef& value, UserScope user,
                                              bool releaseValue) {
    if (!initialised) {
        LogPrintf(kNotInitialized, kSetSynchronizeProperty, static_cast<const void*>(key.c_str()));
        ReleaseIf(releaseValue, value);
        return false;
    }
    domains.SetValue(key, value, *application, user, kHost);
    ReleaseIf(releaseValue, value);
    const bool permanent = domains.Synchronize(*application, user, kHost);
    LogPrintfIf(verbose, kSynchronizing, kSetSynchronizeProperty, permanent ? 1 : 0);
    return permanent;
}

bool PreferencesStore::SetBinary(const char* keyPath, UserScope user, const void* bytes,
                                 std::uint32_t length) {
    PropertyRef value;
    if (bytes != nullptr && length > 0) {
        value = MakePropertyData(bytes, length);
        if (value == nullptr) {
            LogPrintf("SetBinary: CFData NULL\n");
            return false;
        }
    }
    return PutObject(keyPath, value, user, true);
}

bool PreferencesStore::SetString(const char* keyPath, UserScope user, const char* text) {
    PropertyRef value;
    if (text != nullptr) {
        value = MakePropertyString(text);
        if (value == nullptr) {
            LogPrintf("SetString: CFString NULL\n");
            return false;
        }
    }
    return PutObject(keyPath, value, user, true);
}

bool PreferencesStore::SetBool(const char* keyPath, UserScope user, const bool* value) {
    PropertyRef constant = value == nullptr ? nullptr : SharedBoolean(*value);
    return PutObject(keyPath, constant, user, false);
}

bool PreferencesStore::SetInt(const char* keyPath, UserScope user, const std::int32_t* value) {
    PropertyRef number;
    if (value != nullptr) {
        number = MakePropertyNumber(*value);
        if (number == nullptr) {
            LogPrintf("SetInt: CFNumber NULL\n");
            return false;
        }
    }
    return PutObject(keyPath, number, user, true);
}

}  // namespace vexil
