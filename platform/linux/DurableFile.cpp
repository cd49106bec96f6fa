#include "platform/linux/DurableFile.h"

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

FileResult SetAccess(const FileDescriptor& file, const FileAccess& access) {
    const bool keepsOwner = access.owner == static_cast<uid_t>(-1) && access.group == static_cast<gid_t>(-1);
    if (!keepsOwner && fchown(file.Get(), access.owner, access.group) != 0) {
        return Failure("fchown");
    }
    return fchmod(file.Get(), access.mode) == 0 ? FileResult() : Failure("fchmod");
}

// Makes a folder and its missing parents.
FileResult MakeFolders(const std::string& path, const DurabilityCalls& calls) {
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string part = path.substr(0, end);
        if (mkdir(part.c_str(), 0700) == 0) {
            FileDescriptor parent(open((part + "/..").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
            if (!parent) {
                return Failure("open");
            }
            if (calls.fsync(parent.Get()) != 0) {
                return Failure("fsync");
            }
        } else if (errno != EEXIST) {
            return Failure("mkdir");
        }
        if (end == std::string::npos) {
            return {};
        }
    }
}

FileResult WriteAll(const FileDescriptor& file, std::string_view content, const DurabilityCalls& calls) {
    while (!content.empty()) {
        const ssize_t count = calls.write(file.Get(), content.data(), content.size());
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
FileResult MakeTemporary(const FileDescriptor& folder, const std::string& name, FileDescriptor& file) {
    constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
    file = FileDescriptor(openat(folder.Get(), name.c_str(), kFlags, 0600));
    if (!file && errno == EEXIST) {
        if (unlinkat(folder.Get(), name.c_str(), 0) != 0) {
            return Failure("unlink");
        }
        file = FileDescriptor(openat(folder.Get(), name.c_str(), kFlags, 0600));
    }
    return file ? FileResult() : Failure("open");
}

enum class OldFile { Missing, Kept, NotKept };

// Gives the file a second name, so that a replaced one can be put back. NotKept: the file system knows no
// links.
FileResult KeepOld(const FileDescriptor& folder, const std::string& name, const std::string& oldName,
                   OldFile& old) {
    const auto tryLink = [&] {
        return linkat(folder.Get(), name.c_str(), folder.Get(), oldName.c_str(), 0) == 0;
    };
    bool linked = tryLink();
    if (!linked && errno == EEXIST) {
        if (unlinkat(folder.Get(), oldName.c_str(), 0) != 0) {
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
void PutBack(const FileDescriptor& folder, const std::string& name, const std::string& oldName, OldFile old,
             const DurabilityCalls& calls) {
    if (old == OldFile::Kept) {
        calls.rename(folder.Get(), oldName.c_str(), folder.Get(), name.c_str());
    } else if (old == OldFile::Missing) {
        unlinkat(folder.Get(), name.c_str(), 0);
    }
}

FileResult WriteTemporary(FileDescriptor& file, std::string_view content, const FileAccess& access,
                          const DurabilityCalls& calls) {
    if (const FileResult failure = SetAccess(file, access)) {
        return failure;
    }
    if (const FileResult failure = WriteAll(file, content, calls)) {
        return failure;
    }
    return calls.fdatasync(file.Get()) == 0 ? FileResult() : Failure("fdatasync");
}

// Renames without replacing; by a second name where the file system cannot do it in one step.
bool RenameToFreeName(const FileDescriptor& folder, const char* name, const char* newName) {
    if (renameat2(folder.Get(), name, folder.Get(), newName, RENAME_NOREPLACE) == 0) {
        return true;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    return linkat(folder.Get(), name, folder.Get(), newName, 0) == 0 && unlinkat(folder.Get(), name, 0) == 0;
}

}  // namespace

DurabilityCalls SystemDurabilityCalls() {
    return {::write, ::fdatasync, ::renameat, ::fsync};
}

FileResult OpenFolder(const std::string& path, bool make, const DurabilityCalls& calls,
                      FileDescriptor& folder) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    folder = FileDescriptor(open(path.c_str(), kFlags));
    if (!folder && errno == ENOENT && make && !path.empty()) {
        if (const FileResult failure = MakeFolders(path, calls)) {
            return failure;
        }
        folder = FileDescriptor(open(path.c_str(), kFlags));
    }
    return folder ? FileResult() : Failure("open folder");
}

FileResult TakeLock(const FileDescriptor& folder, const std::string& name, const FileAccess& access,
                    std::chrono::milliseconds patience, FileDescriptor& lock) {
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    FileDescriptor file(openat(folder.Get(), name.c_str(), kFlags));
    if (!file && errno == ENOENT) {
        file = FileDescriptor(openat(folder.Get(), name.c_str(), kFlags | O_CREAT | O_EXCL, 0600));
        if (file) {
            if (const FileResult failure = SetAccess(file, access)) {
                return failure;
            }
        } else if (errno == EEXIST) {
            file = FileDescriptor(openat(folder.Get(), name.c_str(), kFlags));
        }
    }
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        return Failure("open lock");
    }
    if (!S_ISREG(status.st_mode)) {
        return FileFailure{"open lock", EINVAL};
    }
    // Polled, as flock itself waits without end.
    const Clock::time_point deadline = Clock::now() + patience;
    while (flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
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

FileResult ReplaceFile(const FileDescriptor& folder, const std::string& name, std::string_view content,
                       const FileAccess& access, const DurabilityCalls& calls, FileDescriptor& file) {
    const std::string newName = name + ".new";
    const std::string oldName = name + ".old";
    FileDescriptor made;
    if (const FileResult failure = MakeTemporary(folder, newName, made)) {
        return failure;
    }
    OldFile old = OldFile::Missing;
    FileResult failure = WriteTemporary(made, content, access, calls);
    if (!failure) {
        failure = KeepOld(folder, name, oldName, old);
    }
    if (!failure && calls.rename(folder.Get(), newName.c_str(), folder.Get(), name.c_str()) != 0) {
        failure = Failure("rename");
    }
    if (failure) {
        unlinkat(folder.Get(), newName.c_str(), 0);
    } else if (calls.fsync(folder.Get()) != 0) {
        failure = Failure("fsync folder");
        PutBack(folder, name, oldName, old, calls);
    }
    // The second name may have been put back already. One that stays is harmless: the next writer removes it.
    if (old == OldFile::Kept) {
        unlinkat(folder.Get(), oldName.c_str(), 0);
    }
    if (!failure) {
        file = std::move(made);
    }
    return failure;
}

FileResult SetAside(const FileDescriptor& folder, const std::string& name, std::string& newName) {
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
