#include "platform/linux/preferences/DurableFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <thread>

namespace vexil {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLockPoll{5};

FileFailure Failure(const char* operation) {
    return {operation, errno};
}

FileResult SetAccess(const Descriptor& file, const FileAccess& access) {
    const bool keepsOwner = access.owner == static_cast<uid_t>(-1) && access.group == static_cast<gid_t>(-1);
    if (!keepsOwner && fchown(file.Number(), access.owner, access.group) != 0) {
        return Failure("fchown");
    }
    return fchmod(file.Number(), access.mode) == 0 ? FileResult() : Failure("fchmod");
}

// Makes a folder and its missing parents.
FileResult MakeFolders(const std::string& path, const DurabilityCalls& calls) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0700) == 0) {
            Descriptor parent(open((part + "/..").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (!parent.IsOpen()) {
                return Failure("open");
            }
            if (calls.fsync(parent.Number()) != 0) {
                const FileFailure failure = Failure("fsync");
                // Made anew by the next attempt, which would not make an existing one permanent.
                rmdir(part.c_str());
                return failure;
            }
        } else if (errno != EEXIST) {
            return Failure("mkdir");
        }
        if (end == std::string::npos) {
            return {};
        }
    }
}

FileResult WriteAll(const Descriptor& file, std::string_view content, const DurabilityCalls& calls) {
    while (!content.empty()) {
        const ssize_t count = calls.write(file.Number(), content.data(), content.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 ? Failure("write") : FileFailure{"write", EIO};
        }
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return {};
}

// Opens a new file, in place of what a killed writer left under the name.
FileResult MakeTemporary(const Descriptor& folder, const std::string& name, Descriptor& file) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file = Descriptor(openat(folder.Number(), name.c_str(), kFlags, 0600));
    if (!file.IsOpen() && errno == EEXIST) {
        if (unlinkat(folder.Number(), name.c_str(), 0) != 0) {
            return Failure("unlink");
        }
        file = Descriptor(openat(folder.Number(), name.c_str(), kFlags, 0600));
    }
    return file.IsOpen() ? FileResult() : Failure("open");
}

enum class OldFile { Missing, Kept, NotKept };

// Gives the file a second name, so that a replaced one can be put back. NotKept: the file system knows no
// links.
FileResult KeepOld(const Descriptor& folder, const std::string& name, const std::string& oldName,
                   OldFile& old) {
    const auto tryLink = [&] {
        return linkat(folder.Number(), name.c_str(), folder.Number(), oldName.c_str(), 0) == 0;
    };
    bool linked = tryLink();
    if (!linked && errno == EEXIST) {
        if (unlinkat(folder.Number(), oldName.c_str(), 0) != 0) {
            return Failure("unlink");
        }
        linked = tryLink();
    }
    if (linked) {
        old = OldFile::Kept;
        return {};
    }
    old = errno == ENOENT ? OldFile::Missing : OldFile::NotKept;
    const bool expected = errno == ENOENT || errno == EPERM || errno == EOPNOTSUPP || errno == EMLINK;
    return expected ? FileResult() : Failure("link");
}

// After the new file took the name: puts the old state back. Errors are not reported, as the failure that
// leads here is.
void PutBack(const Descriptor& folder, const std::string& name, const std::string& oldName, OldFile old,
             const DurabilityCalls& calls) {
    if (old == OldFile::Kept) {
        calls.rename(folder.Number(), oldName.c_str(), folder.Number(), name.c_str());
    } else if (old == OldFile::Missing) {
        unlinkat(folder.Number(), name.c_str(), 0);
    }
}

FileResult WriteTemporary(Descriptor& file, std::string_view content, const FileAccess& access,
                          const DurabilityCalls& calls) {
    if (const FileResult failure = SetAccess(file, access)) {
        return failure;
    }
    if (const FileResult failure = WriteAll(file, content, calls)) {
        return failure;
    }
    return calls.fdatasync(file.Number()) == 0 ? FileResult() : Failure("fdatasync");
}

// Renames without replacing; by a second name where the file system cannot do it in one step.
bool RenameToFreeName(const Descriptor& folder, const char* name, const char* newName) {
    if (renameat2(folder.Number(), name, folder.Number(), newName, RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    return linkat(folder.Number(), name, folder.Number(), newName, 0) == 0 &&
           unlinkat(folder.Number(), name, 0) == 0;
}

}  // namespace

DurabilityCalls SystemDurabilityCalls() {
    return {::write, ::fdatasync, ::renameat, ::fsync};
}

FileResult OpenFolder(const std::string& path, bool make, const DurabilityCalls& calls, Descriptor& folder) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    folder = Descriptor(open(path.c_str(), kFlags));
    if (!folder.IsOpen() && errno == ENOENT && make && !path.empty()) {
        if (const FileResult failure = MakeFolders(path, calls)) {
            return failure;
        }
        folder = Descriptor(open(path.c_str(), kFlags));
    }
    return folder.IsOpen() ? FileResult() : Failure("open folder");
}

FileResult TakeLock(const Descriptor& folder, const std::string& name, const FileAccess& access,
                    std::chrono::milliseconds patience, Descriptor& lock) {
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    Descriptor file(openat(folder.Number(), name.c_str(), kFlags));
    if (!file.IsOpen() && errno == ENOENT) {
        file = Descriptor(openat(folder.Number(), name.c_str(), kFlags | O_CREAT | O_EXCL, 0600));
        if (file.IsOpen()) {
            if (const FileResult failure = SetAccess(file, access)) {
                return failure;
            }
        } else if (errno == EEXIST) {
            file = Descriptor(openat(folder.Number(), name.c_str(), kFlags));
        }
    }
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Number(), &status) != 0) {
        return Failure("open lock");
    }
    if (!S_ISREG(status.st_mode)) {
        return FileFailure{"open lock", EINVAL};
    }
    // Polled, as flock itself waits without end.
    const Clock::time_point deadline = Clock::now() + patience;
    while (flock(file.Number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return Failure("lock");
        }
        if (Clock::now() >= deadline) {
            return FileFailure{"lock", ETIMEDOUT};
        }
        std::this_thread::sleep_for(kLockPoll);
    }
    lock = std::move(file);
    return {};
}

FileResult ReplaceFile(const Descriptor& folder, const std::string& name, std::string_view content,
                       const FileAccess& access, const DurabilityCalls& calls, Descriptor& file) {
    const std::string newName = name + ".new";
    const std::string oldName = name + ".old";
    Descriptor made;
    if (const FileResult failure = MakeTemporary(folder, newName, made)) {
        return failure;
    }
    OldFile old = OldFile::Missing;
    FileResult failure = WriteTemporary(made, content, access, calls);
    if (!failure) {
        failure = KeepOld(folder, name, oldName, old);
    }
    if (!failure && calls.rename(folder.Number(), newName.c_str(), folder.Number(), name.c_str()) != 0) {
        failure = Failure("rename");
    }
    if (failure) {
        unlinkat(folder.Number(), newName.c_str(), 0);
    } else if (calls.fsync(folder.Number()) != 0) {
        failure = Failure("fsync folder");
        PutBack(folder, name, oldName, old, calls);
    }
    // The second name may have been put back already. One that stays is harmless: the next writer removes it.
    if (old == OldFile::Kept) {
        unlinkat(folder.Number(), oldName.c_str(), 0);
    }
    if (!failure) {
        file = std::move(made);
    }
    return failure;
}

FileResult SetAside(const Descriptor& folder, const std::string& name, std::string& newName) {
    constexpr int kMostNames = 1000;
    const time_t now = time(nullptr);
    tm parts{};
    gmtime_r(&now, &parts);
    std::array<char, 32> stamp{};
    std::strftime(stamp.data(), stamp.size(), ".damaged-%Y%m%d-%H%M%S", &parts);
    for (int number = 1; number <= kMostNames; ++number) {
        newName = name + stamp.data() + (number == 1 ? "" : "-" + std::to_string(number));
        if (RenameToFreeName(folder, name.c_str(), newName.c_str())) {
            return {};
        }
        if (errno != EEXIST) {
            break;
        }
    }
    return Failure("rename");
}

}  // namespace vexil
