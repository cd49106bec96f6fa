#include "platform/linux/Paths.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <vector>

namespace vexil {
namespace {

std::optional<std::string> EnvironmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

// Takes home and name from the user's passwd entry, if there is one.
void ReadPasswdEntry(Surroundings& surroundings) {
    constexpr std::size_t kLargestEntry = 1U << 20;
    passwd entry{};
    passwd* found = nullptr;
    for (std::vector<char> buffer(4096); buffer.size() <= kLargestEntry; buffer.resize(buffer.size() * 2)) {
        const int error = getpwuid_r(surroundings.uid, &entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) {
            continue;
        }
        if (error == 0 && found != nullptr) {
            surroundings.passwdHome = entry.pw_dir != nullptr ? entry.pw_dir : "";
            surroundings.userName = entry.pw_name != nullptr ? entry.pw_name : "";
        }
        return;
    }
}

bool IsAbsolute(const std::optional<std::string>& path) {
    return path && !path->empty() && path->front() == '/';
}

bool FolderExists(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool MayWriteTo(const std::string& folder) {
    return faccessat(AT_FDCWD, folder.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) == 0;
}

// The base directory rules: a value that is unset, empty or relative counts as not given. `standard`: below
// the home.
std::string BaseFolder(const std::optional<std::string>& given, const char* standard,
                       const Surroundings& surroundings) {
    if (IsAbsolute(given)) {
        return *given;
    }
    if (IsAbsolute(surroundings.home)) {
        return *surroundings.home + standard;
    }
    if (IsAbsolute(surroundings.passwdHome)) {
        return surroundings.passwdHome + standard;
    }
    return "";
}

// The 32 hexadecimal digits of the machine id file; empty when the file is missing or holds something else,
// as during a first boot ("uninitialized").
std::string MachineId(const std::string& path) {
    constexpr std::size_t kDigits = 32;
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (file < 0) {
        return "";
    }
    std::array<char, 64> text{};
    const ssize_t count = read(file, text.data(), text.size());
    close(file);
    if (count < static_cast<ssize_t>(kDigits)) {
        return "";
    }
    std::string id(text.data(), static_cast<std::size_t>(count));
    while (!id.empty() && (id.back() == '\n' || id.back() == '\r')) {
        id.pop_back();
    }
    const bool valid =
        id.size() == kDigits && id.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return valid ? id : "";
}

// The user as a part of a file name.
std::string UserPart(const Surroundings& surroundings) {
    const std::string& name = surroundings.userName;
    const bool isFileName = !name.empty() && name.find('/') == std::string::npos;
    return isFileName ? name : std::to_string(surroundings.uid);
}

std::string HostId(const Surroundings& surroundings, const std::string& machineId) {
    std::string id = machineId;
    if (id.empty()) {
        id = surroundings.hostName;
        std::replace(id.begin(), id.end(), '/', '_');
    }
    return id.empty() ? "localhost" : id;
}

}  // namespace

Surroundings CurrentSurroundings() {
    Surroundings surroundings;
    surroundings.xdgConfigHome = EnvironmentValue("XDG_CONFIG_HOME");
    surroundings.xdgRuntimeDir = EnvironmentValue("XDG_RUNTIME_DIR");
    surroundings.xdgStateHome = EnvironmentValue("XDG_STATE_HOME");
    surroundings.home = EnvironmentValue("HOME");
    surroundings.uid = getuid();
    ReadPasswdEntry(surroundings);
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) == 0) {
        surroundings.hostName = name.data();
    }
    return surroundings;
}

Paths FindPaths(const Surroundings& surroundings) {
    Paths paths;
    paths.machineId = MachineId(surroundings.machineIdFile);
    paths.hostId = HostId(surroundings, paths.machineId);

    const std::string config = BaseFolder(surroundings.xdgConfigHome, "/.config", surroundings);
    if (!config.empty()) {
        paths.anyUserPreferences = config + "/vexil3/preferences/any-user";
        paths.currentUserPreferences = config + "/vexil3/preferences/current-user";
    }
    paths.controlIsSystemWide = FolderExists(surroundings.systemControl);
    // A shared folder can outlive the driver for all users: its members go on with what they share, and
    // everybody else has a configuration of their own.
    paths.anyUserIsSystemWide = FolderExists(surroundings.systemPreferences) &&
                                (paths.controlIsSystemWide || MayWriteTo(surroundings.systemPreferences));
    if (paths.anyUserIsSystemWide) {
        paths.anyUserPreferences = surroundings.systemPreferences;
    }

    const std::string state = BaseFolder(surroundings.xdgStateHome, "/.local/state", surroundings);
    if (paths.controlIsSystemWide && FolderExists(surroundings.systemNetwork)) {
        paths.network = surroundings.systemNetwork;
    } else if (!state.empty()) {
        paths.network = state + "/vexil3/network";
    }

    if (paths.controlIsSystemWide) {
        paths.control = surroundings.systemControl;
    } else if (IsAbsolute(surroundings.xdgRuntimeDir)) {
        paths.control = *surroundings.xdgRuntimeDir + "/vexil3";
    } else {
        std::string runtime = surroundings.runUser + "/" + std::to_string(surroundings.uid);
        if (!FolderExists(runtime)) {
            runtime = surroundings.temporary + "/runtime-" + UserPart(surroundings);
            paths.standInRuntime = runtime;
        }
        paths.control = runtime + "/vexil3";
    }
    return paths;
}

}  // namespace vexil
