#include "platform/linux/preferences/InotifyPreferenceWatch.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/linux/preferences/LinkedFile.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"
#include "shared/System/svLog.h"

namespace vexil {
namespace {

constexpr std::uint32_t kEvents = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MODIFY |
                                  IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF;

bool FolderIsThere(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

InotifyPreferenceWatch::InotifyPreferenceWatch(const Paths& paths, const std::string& application,
                                               UserScope user)
    : inotify(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    const DomainPlace place = PlaceOfDomain(paths, application, user);
    if (!place.folder.empty()) {
        path = place.folder + "/" + place.name;
        followsLinks = !place.systemWide;
    }
    if (!inotify.IsOpen()) {
        LogPrintf("Changes of the preferences are not noticed: %s\n", std::strerror(errno));
        return;
    }
    Follow();
}

InotifyPreferenceWatch::Places InotifyPreferenceWatch::FindPlaces() const {
    Places found;
    if (path.empty()) {
        return found;
    }
    const std::vector<std::string> chain = followsLinks ? LinkChain(path) : std::vector<std::string>{path};
    for (std::string part : chain) {
        while (!FolderIsThere(FolderOf(part)) && FolderOf(part) != part) {
            part = FolderOf(part);
        }
        found[FolderOf(part)].insert(NameOf(part));
    }
    return found;
}

// Has the watches where the file is now. Whether they were elsewhere.
bool InotifyPreferenceWatch::Follow() {
    // What is made or led elsewhere meanwhile is found the next time round.
    constexpr int kMostRounds = 10;
    for (int round = 0; round < kMostRounds; ++round) {
        Places wanted = FindPlaces();
        if (wanted == places) {
            return round != 0;
        }
        for (const auto& [watch, folder] : folders) {
            inotify_rm_watch(inotify.Number(), watch);
        }
        folders.clear();
        places = std::move(wanted);
        for (const auto& [folder, names] : places) {
            const int watch = inotify_add_watch(inotify.Number(), folder.c_str(), kEvents);
            if (watch >= 0) {
                folders[watch] = folder;
            } else if (errno != ENOENT && errno != ENOTDIR && !std::exchange(hasFailed, true)) {
                LogPrintf("Changes of the preferences are not noticed: %s: %s\n", std::strerror(errno),
                          folder.c_str());
            }
        }
    }
    return true;
}

bool InotifyPreferenceWatch::Concerns(int watch, const std::string& name) const {
    const auto folder = folders.find(watch);
    if (folder == folders.end()) {
        return false;
    }
    const auto names = places.find(folder->second);
    return names != places.end() && names->second.contains(name);
}

bool InotifyPreferenceWatch::ReadEvents() {
    bool isConcerned = false;
    alignas(inotify_event) std::array<char, 16384> buffer;
    for (;;) {
        const ssize_t length = read(inotify.Number(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            return isConcerned;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            inotify_event event{};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const char* const name = buffer.data() + at + sizeof event;
            const bool isLost = (event.mask & IN_Q_OVERFLOW) != 0;
            const bool isFolderGone = (event.mask & kFolderGone) != 0 && folders.contains(event.wd);
            if (isLost || isFolderGone) {
                // The same path may be another folder by now.
                places.clear();
                isConcerned = true;
            } else if (event.len != 0 && Concerns(event.wd, name)) {
                isConcerned = true;
            }
            at += sizeof event + event.len;
        }
    }
}

bool InotifyPreferenceWatch::Take() {
    bool isConcerned = false;
    // Once more where watches were moved: that is an event, too.
    while (ReadEvents()) {
        isConcerned = true;
        if (!Follow()) {
            break;
        }
    }
    return isConcerned;
}

}  // namespace vexil
