// A temporary home for preferences, removed with everything in it at the end.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "config/PreferenceDomains.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"

namespace vexil {

inline constexpr const char* kTestDomain = "com.example.Test";
inline constexpr UserScope kTestUser = UserScope::kCFPreferencesAnyUser;
inline constexpr HostScope kTestHost = HostScope::kCFPreferencesCurrentHost;

class PreferenceFolder {
  public:
    PreferenceFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "vexil-preferences-XXXXXX").string();
        root = mkdtemp(name.data());
        paths.anyUserPreferences = root + "/config/vexil3/preferences/any-user";
        paths.currentUserPreferences = root + "/config/vexil3/preferences/current-user";
        paths.hostId = "0123456789abcdef0123456789abcdef";
    }
    ~PreferenceFolder() {
        std::error_code ignored;  // a folder that stays behind harms nothing
        std::filesystem::remove_all(root, ignored);
    }
    PreferenceFolder(const PreferenceFolder&) = delete;
    PreferenceFolder& operator=(const PreferenceFolder&) = delete;

    std::string File() const {
        return paths.anyUserPreferences + "/" + kTestDomain + "." + paths.hostId + ".plist";
    }
    // Has the preferences of all users in a folder of a system-wide installation.
    void Share() {
        paths.anyUserPreferences = root + "/system";
        paths.anyUserIsSystemWide = true;
        std::filesystem::create_directory(paths.anyUserPreferences);
    }
    // Puts a file of another program in the place of the domain's.
    void Put(const std::string& content) const {
        std::filesystem::create_directories(paths.anyUserPreferences);
        std::ofstream(File(), std::ios::binary | std::ios::trunc) << content;
    }
    void PutList(const std::string& entries) const { Put(List(entries)); }
    static std::string List(const std::string& entries) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
               "</dict></plist>\n";
    }
    std::string Content() const { return ContentOf(File()); }
    static std::string ContentOf(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // The names in the folder of the domain other than the domain's own and its lock's.
    std::vector<std::string> OtherNames() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(paths.anyUserPreferences)) {
            const std::string name = entry.path().string();
            if (name != File() && name != File() + ".lock") {
                names.push_back(name);
            }
        }
        return names;
    }
    static unsigned ModeOf(const std::string& path) {
        struct stat status {};
        return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
    }

    std::string root;
    Paths paths;
};

// The domain of the tests, through one PreferenceDomains.
class TestDomain {
  public:
    explicit TestDomain(const PreferenceFolder& folder) : domains(folder.paths) {}
    TestDomain(const PreferenceFolder& folder, const DurabilityCalls& calls,
               Unparsable whileUnparsable = Unparsable::Wait)
        : domains(folder.paths, calls, whileUnparsable) {}

    PropertyRef Read(const std::string& key) {
        return domains.CopyValue(key, kTestDomain, kTestUser, kTestHost);
    }
    void Set(const std::string& key, PropertyRef value) {
        domains.SetValue(key, std::move(value), kTestDomain, kTestUser, kTestHost);
    }
    bool Synchronize() { return domains.Synchronize(kTestDomain, kTestUser, kTestHost); }
    bool Store(const std::string& key, PropertyRef value) {
        Set(key, std::move(value));
        return Synchronize();
    }
    bool Holds(const std::string& key, std::int32_t number) {
        return SameProperty(Read(key), MakePropertyNumber(number));
    }

    PlistPreferenceDomains domains;
};

}  // namespace vexil
