#include "platform/linux/preferences/DomainFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <thread>
#include <utility>

#include "platform/linux/preferences/PropertyListCheck.h"
#include "shared/System/Deadline.h"

namespace vexil {
namespace {

constexpr std::chrono::milliseconds kLockPatience{2000};
// Where nothing may wait for long.
constexpr std::chrono::milliseconds kShortLockPatience{100};
constexpr std::chrono::milliseconds kSettlePoll{10};
constexpr mode_t kUserMode = 0600;
constexpr mode_t kSystemWideMode = 0660;

std::string ErrorText(int error) {
    std::array<char, 128> buffer{};
    // The GNU form returns the text, which may be elsewhere than in the buffer.
    return std::string(strerror_r(error, buffer.data(), buffer.size())) + " (" + std::to_string(error) + ")";
}

}  // namespace

DomainFile::DomainFile(DomainPlace domainPlace, const DurabilityCalls& durabilityCalls,
                       Unparsable whileUnparsable, Report reporter)
    : place(std::move(domainPlace)),
      path(place.folder + "/" + place.name),
      calls(durabilityCalls),
      unparsable(whileUnparsable),
      report(std::move(reporter)) {}

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

std::optional<std::chrono::milliseconds> DomainFile::LookAgainIn() const {
    if (!lookAgainAt) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(MillisecondsUntil(*lookAgainAt));
}

void DomainFile::Unlock() {
    lock.Close();
    fileFolder.Close();
    folder.Close();
}

void DomainFile::DropUnchanged() {
    std::erase_if(pending, [this](const auto& change) {
        return SameProperty(change.second, stored.Find(change.first));
    });
}

void DomainFile::Take(PropertyList list, const FileIdentity& identity) {
    stored = std::move(list);
    seen = identity;
    blocked = false;
    unparsableSince.reset();
    lookAgainAt.reset();
}

// Takes up what is at the file's place now, when it is not what was seen last. False when that cannot be
// told.
bool DomainFile::Refresh() {
    lookAgainAt.reset();  // until this look finds a reason anew
    // Another program may replace the file between two looks; each time round it has done so anew.
    for (int attempt = 0; attempt < 100; ++attempt) {
        const LinkedFile file =
            place.folder.empty() ? LinkedFile{} : FindLinkedFile(place.folder, place.name, !place.systemWide);
        path = file.path;
        if (file.state == LinkedFile::State::Missing || file.state == LinkedFile::State::Failed) {
            return TakeMissing(file);
        }
        const FileIdentity identity = IdentityOf(file.status);
        if (seen && *seen == identity) {
            unparsableSince.reset();
            return true;
        }
        if (file.state == LinkedFile::State::Refused) {
            LeaveBadFile(file.refusal, identity, "Preferences not used: " + file.refusal + ": " + path);
            return true;
        }
        std::string problem;
        switch (Load(file.status, problem)) {
            case Content::Read:
                return true;
            case Content::Failed:
                return false;
            case Content::Unparsable:
                if (MaySettle()) {
                    if (unparsable == Unparsable::GoOnWith) {
                        return true;
                    }
                    // How often it is looked at until then does not count.
                    attempt = 0;
                    break;
                }
                [[fallthrough]];
            case Content::Bad:
                if (TakeBad(file.status, problem)) {
                    return true;
                }
                break;
            case Content::Changing:
                break;
        }
    }
    return Fail("Cannot read preferences", {"open", EAGAIN});
}

bool DomainFile::TakeMissing(const LinkedFile& file) {
    if (file.state == LinkedFile::State::Missing) {
        unparsableSince.reset();
        if (!seen || seen->exists || blocked) {
            Take(PropertyList(), {});
        }
        return true;
    }
    if (file.error != EACCES) {
        return Fail("Cannot read preferences", {"lstat", file.error});
    }
    SetBadFileAside("folder not accessible", {}, FileFailure{"lstat", file.error});
    return true;
}

// Whether a file that cannot be parsed now may still be complete in a moment. Waits a part of that moment
// where that is wanted.
bool DomainFile::MaySettle() {
    const Clock::time_point now = Clock::now();
    if (place.keptAsItIs && unparsable == Unparsable::GoOnWith) {
        return false;  // nothing is told when that file changes, so nobody would look again
    }
    if (!unparsableSince) {
        unparsableSince = now;
    }
    const Clock::time_point end = *unparsableSince + kSettleTime;
    if (now >= end) {
        return false;
    }
    if (unparsable == Unparsable::Wait) {
        std::this_thread::sleep_for(kSettlePoll);
    } else {
        lookAgainAt = end;
    }
    return true;
}

// False when it is to be looked at again.
bool DomainFile::TakeBad(const struct stat& status, const std::string& problem) {
    const FileIdentity identity = IdentityOf(status);
    if (place.keptAsItIs) {
        LeaveBadFile(problem, identity, "Preferences not used: " + problem + ": " + path);
        return true;
    }
    const bool wasLocked = lock.IsOpen();
    const FileResult obstacle = Lock(false);
    // Once more, now that no other writer can be about to do the same.
    if (!wasLocked && !obstacle) {
        return false;
    }
    if (obstacle && obstacle->error == ETIMEDOUT && unparsable == Unparsable::GoOnWith && unparsableSince &&
        Clock::now() < *unparsableSince + kSettleTime + kLockPatience) {
        // Whoever holds the lock may be about to replace the file.
        lookAgainAt = Clock::now() + kSettleTime;
        return true;
    }
    SetBadFileAside(problem, identity, obstacle);
    return true;
}

DomainFile::Content DomainFile::Load(const struct stat& status, std::string& problem) {
    const bool unsettled = MayChangeUnseen(status);
    FileReading reading = ReadFile(path, status, kMaxPropertyListBytes);
    switch (reading.result) {
        case FileReading::Result::Read:
            break;
        case FileReading::Result::Changing:
            return Content::Changing;
        case FileReading::Result::Bad:
            problem = reading.problem;
            return Content::Bad;
        case FileReading::Result::Failed:
            Fail("Cannot read preferences", reading.failure);
            return Content::Failed;
    }
    std::optional<PropertyList> list = PropertyList::Read(reading.bytes, problem);
    if (!list) {
        return Content::Unparsable;
    }
    seenFile = std::move(reading.file);
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
    if (keepExisting && lstat(path.c_str(), &existing) == 0) {
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
    const std::chrono::milliseconds longest =
        unparsable == Unparsable::Wait ? kLockPatience : kShortLockPatience;
    const std::chrono::milliseconds patience = lockTimedOut ? std::chrono::milliseconds(0) : longest;
    FileResult failure = OpenFolder(place.folder, makeFolder && !place.systemWide, calls, folder);
    if (!failure) {
        failure = TakeLock(folder, place.name + ".lock", AccessOfNewFile(false), patience, lock);
        lockTimedOut = failure && failure->error == ETIMEDOUT;
    }
    return failure;
}

// The folder of the file itself, in which it is replaced or renamed.
FileResult DomainFile::OpenFileFolder() {
    return OpenFolder(FolderOf(path), false, calls, fileFolder);
}

bool DomainFile::TrySetAside(const std::string& problem, FileResult& failure) {
    std::string newName;
    failure = OpenFileFolder();
    if (!failure) {
        failure = SetAside(fileFolder, NameOf(path), newName);
    }
    if (failure) {
        return false;
    }
    report("Preferences set aside: " + problem + ": " + FolderOf(path) + "/" + newName);
    Take(PropertyList(), {});
    return true;
}

// What is at the file's place cannot be used and stays there: the domain is blocked until that changes.
void DomainFile::LeaveBadFile(const std::string& problem, const FileIdentity& identity,
                              const std::string& line) {
    const bool known = blocked && seen && *seen == identity;
    Take(PropertyList(), identity);
    blocked = true;
    mayBeSetAside = false;
    blockedProblem = problem;
    if (!known) {
        report(line);
    }
}

// What is at the file's place cannot be used. Renames it, which only the holder of the lock may do; else the
// domain is blocked.
void DomainFile::SetBadFileAside(const std::string& problem, const FileIdentity& identity,
                                 FileResult obstacle) {
    if (!obstacle && TrySetAside(problem, obstacle)) {
        return;
    }
    LeaveBadFile(problem, identity,
                 "Preferences cannot be set aside: " + problem + ": " + obstacle->operation + ": " +
                     ErrorText(obstacle->error) + ": " + path);
    mayBeSetAside = true;
}

bool DomainFile::Write() {
    if (const FileResult obstacle = Lock(true)) {
        return Fail("Cannot write preferences", *obstacle);
    }
    if (!Refresh()) {
        return false;
    }
    DropUnchanged();
    if (lookAgainAt) {
        report("Cannot write preferences while another program writes them: " + path);
        return false;
    }
    FileResult failure;
    // The reason of an earlier failure may be gone; if not, it has been reported.
    if (blocked && !(mayBeSetAside && TrySetAside(blockedProblem, failure))) {
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
    FileResult failure = OpenFileFolder();
    if (!failure) {
        failure = ReplaceFile(fileFolder, NameOf(path), change.xml, AccessOfNewFile(true), calls, file);
    }
    if (failure) {
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
