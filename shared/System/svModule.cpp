#include "shared/System/svModule.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "config/PreferencesStore.h"
#include "shared/System/svLog.h"

namespace vexil::svModule {

namespace {

constexpr const char* kIdentityDomain = "com.sonavert.";
constexpr int kFoldersToBundleHolder = 4;  // MacOS, Contents, the application bundle, the folder holding it
constexpr std::size_t kMaxBundleHolderPath = 260;  // bytes
constexpr const char* kBundleExecutables = "/Contents/MacOS/";

// The lines by which support knows these assertions; they do not follow the source.
constexpr unsigned kCheckInitialisedLine = 227;
constexpr unsigned kGetPreferenceIntegerLine = 244;
constexpr unsigned kSetPreferenceIntegerLine = 261;
constexpr unsigned kGetPreferenceStringLine = 278;
constexpr unsigned kSetPreferenceStringLine = 295;

struct Module {
    svString moduleName;
    svString subName;
    svString moduleId;
    bool sInited = false;
    svString executableDirectory;
    std::string bundleHolder;  // absolute, links resolved; empty: not known
    std::optional<svString> mainBundle;
};

Module& State() {
    static Module module;
    return module;
}

void RequireInitialised(unsigned line) {
    if (!State().sInited) {
        AssertionFailed(kAssertionFormat, "shared/System/svModule", line, "sInited");
    }
}

// Up to the last "/" included; all of it when it has no "/".
svString CutAfterLastSlash(const svString& path) {
    int nLength = 0;
    for (int slash = path.Find('/'); slash != -1; slash = path.Find('/', slash + 1)) {
        nLength = slash + 1;
    }
    return nLength == 0 ? path : path.Left(nLength);
}

// 0 and the folder, or the errno value. The root has no folder above it.
int FindBundleHolder(const char* executablePath, std::string& folder) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(executablePath, nullptr),
                                                               &std::free);
    if (!resolved) {
        return errno;
    }
    std::string path = resolved.get();
    for (int level = 0; level < kFoldersToBundleHolder; ++level) {
        if (path == "/") {
            return ENOENT;
        }
        path.resize(std::max<std::size_t>(path.rfind('/'), 1));
    }
    folder = path;
    return 0;
}

PreferencesStore OpenStore(PreferenceDomains& domains, bool anyUser) {
    return {domains, State().moduleId.c_str(), anyUser};
}

}  // namespace

int Initialise(const char* executablePath, const char* moduleName, const char* subName) {
    Module& module = State();
    module.moduleName = moduleName;
    module.subName = subName;
    module.sInited = true;
    module.moduleId = kIdentityDomain + module.moduleName;
    if (subName != nullptr) {
        module.moduleId += "." + module.subName;
    }
    module.executableDirectory = CutAfterLastSlash(executablePath);
    return FindBundleHolder(executablePath, module.bundleHolder);
}

svString ExecutableDirectory() {
    return State().executableDirectory;
}

svString ContentsDirectory() {
    const svString& directory = State().executableDirectory;
    const int nLength = directory.GetLength();
    const bool endsInSlash = nLength > 0 && directory.c_str()[nLength - 1] == '/';
    return CutAfterLastSlash(endsInSlash ? directory.Left(nLength - 1) : directory);
}

svString BundleHolderPath() {
    const std::string& folder = State().bundleHolder;
    if (folder.empty() || folder.size() > kMaxBundleHolderPath) {
        return {};
    }
    return folder.c_str() + svString("/");
}

svString MainBundle() {
    Module& module = State();
    if (!module.mainBundle) {
        if (!module.sInited) {
            return {};
        }
        const std::string_view directory = module.executableDirectory.c_str();
        const std::string_view tail = kBundleExecutables;
        const bool inBundle = directory.size() > tail.size() && directory.ends_with(tail);
        module.mainBundle =
            inBundle ? module.executableDirectory.Left(static_cast<int>(directory.size() - tail.size()) + 1)
                     : module.executableDirectory;
    }
    return *module.mainBundle;
}

int CheckInitialised() {
    RequireInitialised(kCheckInitialisedLine);
    return 0;
}

std::int32_t GetPreferenceInteger(PreferenceDomains& domains, const char* keyPath, std::int32_t defaultValue,
                                  bool anyUser) {
    RequireInitialised(kGetPreferenceIntegerLine);
    const PreferencesStore store = OpenStore(domains, anyUser);
    return store.IsInitialized() ? store.GetInt(keyPath, store.User(), defaultValue) : defaultValue;
}

int SetPreferenceInteger(PreferenceDomains& domains, const char* keyPath, std::int32_t value, bool anyUser) {
    RequireInitialised(kSetPreferenceIntegerLine);
    PreferencesStore store = OpenStore(domains, anyUser);
    return store.IsInitialized() && store.SetInt(keyPath, store.User(), &value) ? 0 : -1;
}

svString GetPreferenceString(PreferenceDomains& domains, const char* keyPath, const char* defaultText,
                             bool anyUser) {
    RequireInitialised(kGetPreferenceStringLine);
    const PreferencesStore store = OpenStore(domains, anyUser);
    return store.IsInitialized() ? store.GetString(keyPath, store.User(), defaultText)
                                 : svString(defaultText);
}

int SetPreferenceString(PreferenceDomains& domains, const char* keyPath, const char* text, bool anyUser) {
    RequireInitialised(kSetPreferenceStringLine);
    PreferencesStore store = OpenStore(domains, anyUser);
    return store.IsInitialized() && store.SetString(keyPath, store.User(), text) ? 0 : -1;
}

}  // namespace vexil::svModule
