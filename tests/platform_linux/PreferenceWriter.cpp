// Stores one value as another program would: PreferenceWriter FOLDER KEY TEXT [VARIANT]. Prints "true" or
// "false". FOLDER takes the place of the preferences folder of any user. "read" as VARIANT prints the value
// instead.
//
// The other variants each lack one thing on which it depends that the value lasts, so that the test which
// looks for these things can show that it would notice.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "shared/System/svLog.h"

namespace {

int unsyncedFile = -1;

int Omitted(int) {
    return 0;
}
int Postponed(int file) {
    unsyncedFile = dup(file);
    return 0;
}
int RenameThenSync(int oldFolder, const char* oldName, int newFolder, const char* newName) {
    const int result = renameat(oldFolder, oldName, newFolder, newName);
    return fdatasync(unsyncedFile) == 0 ? result : -1;
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 4) {
        return 2;
    }
    const std::string variant = count > 4 ? arguments[4] : "";
    vexil::DurabilityCalls calls = vexil::SystemDurabilityCalls();
    if (variant == "without-fdatasync") {
        calls.fdatasync = Omitted;
    } else if (variant == "rename-before-fdatasync") {
        calls.fdatasync = Postponed;
        calls.rename = RenameThenSync;
    } else if (variant == "without-folder-fsync") {
        calls.fsync = Omitted;
    }
    vexil::Paths paths;
    paths.anyUserPreferences = arguments[1];
    paths.hostId = "host";
    const auto user = vexil::UserScope::kCFPreferencesAnyUser;
    const auto host = vexil::HostScope::kCFPreferencesCurrentHost;
    vexil::OpenLog("", "", vexil::kLogAppend, "/dev/stderr");
    vexil::PlistPreferenceDomains domains(paths, calls);
    if (variant == "read") {
        const bool read = domains.Synchronize("domain", user, host);
        const vexil::PropertyRef value = domains.CopyValue(arguments[2], "domain", user, host);
        const auto* text = value == nullptr ? nullptr : value->As<vexil::PropertyString>();
        std::printf("%s %s\n", read ? "true" : "false", text == nullptr ? "" : text->text.c_str());
        return 0;
    }
    domains.SetValue(arguments[2], vexil::MakePropertyString(arguments[3]), "domain", user, host);
    std::puts(domains.Synchronize("domain", user, host) ? "true" : "false");
    return 0;
}
