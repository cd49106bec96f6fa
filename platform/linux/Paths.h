// Where this program finds its folders on Linux: the preferences of a computer's installation or of one user,
// the folder of the control channel, and the id that tells this computer from others which share a home.
#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace vexil {

// What the folders are derived from. Production code takes CurrentSurroundings(); a test fills in its own, so
// that it never touches the real places.
struct Surroundings {
    std::optional<std::string> xdgConfigHome;
    std::optional<std::string> xdgRuntimeDir;
    std::optional<std::string> xdgStateHome;
    std::optional<std::string> home;
    std::string passwdHome;  // home folder of the user's passwd entry; empty without an entry
    std::string userName;    // of the same entry
    uid_t uid = 0;
    std::string hostName;
    // Folders of a system-wide installation; each is used where it exists.
    std::string systemPreferences = "/var/lib/vexil3/preferences";
    std::string systemControl = "/run/vexil3";
    std::string systemNetwork = "/var/lib/vexil3/network";
    // Where the system makes a folder for running services for each user who is logged in.
    std::string runUser = "/run/user";
    // Where a private one stands in for it. Fixed: programs that were started with different values of TMPDIR
    // find each other.
    std::string temporary = "/tmp";
    std::string machineIdFile = "/etc/machine-id";
};

// The environment, user and host of this process.
Surroundings CurrentSurroundings();

struct Paths {
    std::string anyUserPreferences;      // empty when the user has no home at all
    bool anyUserIsSystemWide = false;    // shared by the users of the folder's group
    std::string currentUserPreferences;  // empty when the user has no home at all
    std::string control;                 // folder of the control channel's socket
    bool controlIsSystemWide = false;
    // The folder that stands in for the user's folder of running services, which the system did not make;
    // `control` is inside. Whoever makes it makes it for this user alone. Empty where the system made one.
    // The toolkit of the panel uses the same one.
    std::string standInRuntime;
    // Folder of the service's key and of whom it knows in the network: of the computer's one service, or the
    // user's own. Empty when the user has no home at all.
    std::string network;
    std::string hostId;     // never empty, holds no "/"
    std::string machineId;  // 32 digits; empty where the computer has none
};

// Looks the folders up; makes no folder.
Paths FindPaths(const Surroundings& surroundings);

}  // namespace vexil
