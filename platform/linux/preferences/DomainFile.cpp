#include "platform/linux/preferences/DomainFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <utility>

#include "platform/linux/preferences/PropertyListCheck.h"

namespace vexil {
namespace {

constexpr std::chrono::milliseconds kLockPatience{2000};
constexpr mode_t kUserMode = 0600;
constexpr mode_t kSystemWideMode = 0660;

std::string ErrorText(int error) {
    std::array<char, 128> buffer{};
    // The GNU form returns the text, which may be elsewhere than in the buffer.
    return std::string(strerror_r(error, buffer.data(), buffer.size())) + " (" + std::to_string(error) + ")";
}

bool SameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsBefore(const timespec& left, const timespec& right) {
    return left.tv_sec != right.tv_sec ? left.tv_sec < right.tv_sec : left.tv_nsec < right.tv_nsec;
}

// Whether a further change of the file could get the same time stamps as the state now seen: time stamps
// advance with the coarse clock.
bool MayChangeUnseen(const timespec& changed) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return !IsBefore(changed, now);
}

const char* KindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a folder";
        case S_IFLNK:
            return "a symbolic link";
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

}  // namespace

DomainFile::DomainFile(DomainPlace domainPlace, const DurabilityCalls& durabilityCalls, Report reporter)
    : place(std::move(domainPlace)),
      path(place.folder + "/" + place.name),
      calls(durabilityCalls),
      report(std::move(reporter)) {}

bool DomainFile::Identity::operator==(const Identity& other) const {
    return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
           SameTime(modified, other.modified) && SameTime(changed, other.changed);
}

DomainFile::Identity DomainFile::IdentityOf(const struct stat& status) {
    return {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool DomainFile::Fail(const char* task, const FileFailure& failure) {
    report(std::string(task) + ": " + failure.operation + ": " + ErrorText(failure.error) + ": " + path);
    return false;
}

PropertyRef DomainFile::CopyValue(const std::string& key) {
    if (!std::exchange(readOnce, true)) {
        Refresh();
        Unlock();
    }
    if (const auto changed = pending.find(key); changed != pending.end()) {
        return changed->second;
    }
    return stored.Find(key);
}

void DomainFile::SetValue(const std::string& key, PropertyRef value) {
    pending[key] = std::move(value);
}

bool DomainFile::Synchronize() {
    readOnce = true;
    bool done = Refresh();
    if (done) {
        DropUnchanged();
        done = pending.empty() || Write();
    }
    pending.clear();
    Unlock();
    return done;
}

void DomainFile::Unlock() {
    lock.Close();
    folder.Close();
}

void DomainFile::DropUnchanged() {
    std::erase_if(pending, [this](const auto& change) {
        return SameProperty(change.second, stored.Find(change.first));
    });
}

void DomainFile::Take(PropertyList list, const Identity& identity) {
    stored = std::move(list);
    seen = identity;
    blocked = false;
}

// Takes up what is at the file's place now, when it is not what was seen last. False when that cannot be
// told.
bool DomainFile::Refresh() {
    // Another program may replace the file between two looks; each time round it has done so anew.
    for (int attempt = 0; attempt < 100; ++attempt) {
        struct stat status {};
        if (place.folder.empty() || lstat(path.c_str(), &status) != 0) {
            const int error = place.folder.empty() ? ENOENT : errno;
            if (error != ENOENT && error != ENOTDIR && error != EACCES) {
                return Fail("Cannot read preferences", {"lstat", error});
            }
            if (error == EACCES) {
                SetBadFileAside("folder not accessible", {}, FileFailure{"lstat", error});
            } else if (!seen || seen->exists || blocked) {
                Take(PropertyList(), {});
            }
            return true;
        }
        const Identity identity = IdentityOf(status);
        if (seen && *seen == identity) {
            return true;
        }
        std::string problem;
        switch (Load(status, problem)) {
            case Content::Read:
                return true;
            case Content::Failed:
                return false;
            case Content::Bad: {
                const bool wasLocked = lock.IsOpen();
                const FileResult obstacle = Lock(false);
                if (wasLocked || obstacle) {
                    SetBadFileAside(problem, identity, obstacle);
                    return true;
                }
                // Looked at again, now that no other writer can be about to do the same.
                break;
            }
            case Content::Missing:
                break;
        }
    }
    return Fail("Cannot read preferences", {"open", EAGAIN});
}

DomainFile::Content DomainFile::Read(const struct stat& status, std::string& text, std::string& problem) {
    if (!S_ISREG(status.st_mode)) {
        problem = KindOf(status.st_mode);
        return Content::Bad;
    }
    // O_NONBLOCK: what was a file a moment ago may be a pipe by now.
    Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat opened {};
    if (!file.IsOpen()) {
        if (errno == EACCES || errno == EPERM) {
            problem = "not readable";
            return Content::Bad;
        }
        if (errno == ENOENT || errno == ELOOP || errno == ENXIO) {
            return Content::Missing;
        }
        Fail("Cannot read preferences", {"open", errno});
        return Content::Failed;
    }
    if (fstat(file.Number(), &opened) != 0) {
        Fail("Cannot read preferences", {"fstat", errno});
        return Content::Failed;
    }
    if (!(IdentityOf(opened) == IdentityOf(status))) {
        return Content::Missing;
    }
    if (opened.st_size > static_cast<off_t>(kMaxPropertyListBytes)) {
        problem = "too large";
        return Content::Bad;
    }
    // One byte more than the limit tells a file that has grown meanwhile.
    text.resize(static_cast<std::size_t>(opened.st_size) + 1);
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t count = read(file.Number(), text.data() + length, text.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Fail("Cannot read preferences", {"read", errno});
            return Content::Failed;
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    if (length == text.size()) {
        return Content::Missing;
    }
    text.resize(length);
    seenFile = std::move(file);
    return Content::Read;
}

DomainFile::Content DomainFile::Load(const struct stat& status, std::string& problem) {
    std::string text;
    const bool unsettled = MayChangeUnseen(status.st_ctim);
    if (const Content content = Read(status, text, problem); content != Content::Read) {
        return content;
    }
    std::optional<PropertyList> list = PropertyList::Read(text, problem);
    if (!list) {
        return Content::Bad;
    }
    Take(std::move(*list), IdentityOf(status));
    if (unsettled) {
        seen.reset();
    }
    return Content::Read;
}

// Access of a lock file, or of a domain file in whose place `keepExisting` says there is one.
FileAccess DomainFile::AccessOfNewFile(bool keepExisting) const {
    FileAccess access;
    struct stat existing {};
    struct stat parent {};
    const bool hasParent = fstat(folder.Number(), &parent) == 0;
    if (keepExisting && fstatat(folder.Number(), place.name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
        access.mode = existing.st_mode & 0777U;
        access.group = existing.st_gid;
        // Only root can give a file away; it does, so that a user's preferences stay the user's.
        access.owner = geteuid() == 0 ? existing.st_uid : static_cast<uid_t>(-1);
    } else {
        access.mode = kUserMode;
        access.owner =
            geteuid() == 0 && hasParent && !place.systemWide ? parent.st_uid : static_cast<uid_t>(-1);
    }
    if (place.systemWide) {
        // Also of a file that somebody has moved here, with a group of its own.
        access.mode |= kSystemWideMode;
        access.group = hasParent ? parent.st_gid : access.group;
    }
    return access;
}

FileResult DomainFile::Lock(bool makeFolder) {
    if (lock.IsOpen()) {
        return {};
    }
    const std::chrono::milliseconds patience = lockTimedOut ? std::chrono::milliseconds(0) : kLockPatience;
    FileResult failure = OpenFolder(place.folder, makeFolder && !place.systemWide, calls, folder);
    if (!failure) {
        failure = TakeLock(folder, place.name + ".lock", AccessOfNewFile(false), patience, lock);
        lockTimedOut = failure && failure->error == ETIMEDOUT;
    }
    return failure;
}

bool DomainFile::TrySetAside(const std::string& problem, FileResult& failure) {
    std::string newName;
    failure = SetAside(folder, place.name, newName);
    if (failure) {
        return false;
    }
    report("Preferences set aside: " + problem + ": " + place.folder + "/" + newName);
    Take(PropertyList(), {});
    return true;
}

// What is at the file's place cannot be used. Renames it, which only the holder of the lock may do; else the
// domain is blocked until what is there changes.
void DomainFile::SetBadFileAside(const std::string& problem, const Identity& identity, FileResult obstacle) {
    if (!obstacle && TrySetAside(problem, obstacle)) {
        return;
    }
    const bool known = blocked && seen && *seen == identity;
    Take(PropertyList(), identity);
    blocked = true;
    blockedProblem = problem;
    if (!known) {
        report("Preferences cannot be set aside: " + problem + ": " + obstacle->operation + ": " +
               ErrorText(obstacle->error) + ": " + path);
    }
}

bool DomainFile::Write() {
    if (const FileResult obstacle = Lock(true)) {
        return Fail("Cannot write preferences", *obstacle);
    }
    if (!Refresh()) {
        return false;
    }
    DropUnchanged();
    FileResult failure;
    // The reason of an earlier failure may be gone; if not, it has been reported.
    if (blocked && !TrySetAside(blockedProblem, failure)) {
        return false;
    }
    if (pending.empty()) {
        return true;
    }
    std::string problem;
    std::optional<PropertyList::Change> next = stored.Prepare(pending, problem);
    if (!next) {
        report("Cannot write preferences: " + problem + ": " + path);
        return false;
    }
    return Store(*next);
}

bool DomainFile::Store(const PropertyList::Change& change) {
    Descriptor file;
    if (const FileResult failure =
            ReplaceFile(folder, place.name, change.xml, AccessOfNewFile(true), calls, file)) {
        seen.reset();
        return Fail("Cannot write preferences", *failure);
    }
    struct stat status {};
    const bool known = fstat(file.Number(), &status) == 0;
    stored.Apply(change);
    seen = IdentityOf(status);
    blocked = false;
    seenFile = std::move(file);
    if (!known) {
        seen.reset();
    }
    return true;
}

}  // namespace vexil
