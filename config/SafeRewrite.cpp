#include "config/SafeRewrite.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>

#include "config/RewriteCopy.h"
#include "config/RewriteFiles.h"
#include "shared/System/svLog.h"

namespace vexil {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kMaxSetAside = 99;
constexpr mode_t kCopyPermissions = S_IRUSR | S_IWUSR;
// The head line of a copy: its fixed part and a file name in hexadecimal.
constexpr std::size_t kMaxCopyBytes = kMaxRewriteBytes + 1024;

void LogFailure(const char* what, const char* path) {
    LogPrintf("SafeRewrite: %s (%s): %s\n", what, std::strerror(errno), path);
}

bool IsUnsupported(int error) {
    return error == EINVAL || error == ENOTSUP || error == ENOSYS;
}

// Whether a failure to make a copy means that the folder does not take one, as opposed to a lack of room or a
// fault of the disk, which would hit the file as well.
bool FolderTakesNoCopy(int error) {
    return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG ||
           IsUnsupported(error);
}

}  // namespace

const RewriteCalls kSystemRewriteCalls{::fdatasync,  ::fsync,     ::unlinkat,
                                       std::freopen, std::fwrite, std::fread};

bool SafeRewrite::Locate(const char* path, Place& place) {
    std::optional<std::string> real = RealPath(path);
    if (!real && errno == ENOENT) {
        // The file is missing; its folder may still be there.
        const std::string given(path);
        const std::size_t slash = given.rfind('/');
        const std::string name = slash == std::string::npos ? given : given.substr(slash + 1);
        real = RealPath(slash == std::string::npos ? "." : given.substr(0, slash + 1));
        if (!real || name.empty()) {
            return false;
        }
        *real += "/" + name;
    }
    if (!real) {
        return false;
    }
    const std::size_t slash = real->rfind('/');
    place.fileName = real->substr(slash + 1);
    place.copyName = RewriteCopyName(place.fileName);
    const std::string folder = real->substr(0, slash + 1);
    place.folder = Descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return place.folder.IsOpen();
}

bool SafeRewrite::HasCopy(const char* path) {
    Place place;
    return Locate(path, place) &&
           ::faccessat(place.folder.Number(), place.copyName.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

PendingSave SafeRewrite::FinishPending(const char* path) {
    Place place;
    if (!Locate(path, place)) {
        // A folder that cannot be opened takes no copies either.
        return PendingSave::None;
    }
    const auto deadline = Clock::now() + kRewriteWait;
    for (;;) {
        const Descriptor copyFile(::openat(place.folder.Number(), place.copyName.c_str(),
                                           O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (!copyFile.IsOpen() && errno == ENOENT) {
            return PendingSave::None;
        }
        if (!copyFile.IsOpen()) {
            LogFailure("what lies at the place of the copy is left alone", path);
            return PendingSave::InTheWay;
        }
        if (!IsTrusted(copyFile, place.folder.Number(), place.fileName)) {
            LogPrintf("SafeRewrite: what lies at the place of the copy is left alone: %s\n", path);
            return PendingSave::InTheWay;
        }
        if (!LockCopy(copyFile, deadline)) {
            LogFailure("another save is under way", path);
            return PendingSave::Blocked;
        }
        if (IsStillNamed(copyFile, place.folder.Number(), place.copyName)) {
            return FinishAt(place, copyFile, path);
        }
        // That save ended while its lock was waited for.
        if (Clock::now() >= deadline) {
            LogPrintf("SafeRewrite: other saves are under way: %s\n", path);
            return PendingSave::Blocked;
        }
    }
}

PendingSave SafeRewrite::FinishAt(const Place& place, const Descriptor& copyFile, const char* path) {
    const std::optional<std::string> bytes = ReadWhole(copyFile.Number(), kMaxCopyBytes);
    if (!bytes) {
        LogFailure("the copy of an unfinished save cannot be read", path);
        return PendingSave::Blocked;
    }
    RewriteCopy copy;
    switch (DecodeRewriteCopy(*bytes, place.fileName, copy)) {
        case CopyState::Foreign:
            LogPrintf("SafeRewrite: what lies at the place of the copy is left alone: %s\n", path);
            return PendingSave::InTheWay;
        case CopyState::Incomplete:
            RemoveCopyAt(place);
            return PendingSave::None;
        case CopyState::Complete:
            break;
    }

    const Descriptor file(::openat(place.folder.Number(), place.fileName.c_str(),
                                   O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.IsOpen() && errno == ENOENT) {
        return SetAside(place, path);
    }
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Number(), &status) != 0) {
        LogFailure("an unfinished save cannot be completed", path);
        return PendingSave::Blocked;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(kMaxRewriteBytes)) {
        return SetAside(place, path);
    }
    const std::optional<std::string> current = ReadWhole(file.Number(), kMaxRewriteBytes);
    if (!current) {
        LogFailure("an unfinished save cannot be completed", path);
        return PendingSave::Blocked;
    }
    const RewriteState state = StateOfRewrite(*current, copy);
    if (state == RewriteState::Edited) {
        return SetAside(place, path);
    }
    const bool rewriting = state != RewriteState::Done;
    if (rewriting && (::ftruncate(file.Number(), 0) != 0 || ::lseek(file.Number(), 0, SEEK_SET) != 0 ||
                      !WriteWhole(file.Number(), copy.newText))) {
        LogFailure("an unfinished save cannot be completed", path);
        return PendingSave::Blocked;
    }
    // The text that is seen need not be on the disk yet.
    if (calls.syncData(file.Number()) != 0) {
        LogFailure("an unfinished save cannot be completed", path);
        return PendingSave::Blocked;
    }
    RemoveCopyAt(place);
    if (rewriting) {
        LogPrintf("SafeRewrite: an unfinished save has been completed: %s\n", path);
    }
    return PendingSave::None;
}

PendingSave SafeRewrite::SetAside(const Place& place, const char* path) const {
    const int folder = place.folder.Number();
    for (int number = 1; number <= kMaxSetAside; ++number) {
        const std::string name = place.fileName + ".unsaved-" + std::to_string(number);
        if (::renameat2(folder, place.copyName.c_str(), folder, name.c_str(), RENAME_NOREPLACE) == 0) {
            LogPrintf("SafeRewrite: the text of an unfinished save is now in %s, beside %s\n", name.c_str(),
                      path);
            return PendingSave::None;
        }
        if (errno != EEXIST) {
            break;
        }
    }
    // The file itself is as its last editor left it, so it may be used; the copy keeps its place.
    LogFailure("the copy of an unfinished save stays beside its file, which was edited since", path);
    return PendingSave::InTheWay;
}

bool SafeRewrite::Begin(const char* path, const std::string& newText) {
    if (newText.size() > kMaxRewriteBytes) {
        errno = EFBIG;
        LogFailure("not saved", path);
        return false;
    }
    const auto deadline = Clock::now() + kRewriteWait;
    for (;;) {
        const PendingSave pending = FinishPending(path);
        if (pending == PendingSave::Blocked) {
            return false;
        }
        if (!Locate(path, target) || pending == PendingSave::InTheWay) {
            LogPrintf("SafeRewrite: rewritten without a copy beside it: %s\n", path);
            return true;
        }
        const Attempt attempt = MakeCopy(newText, path);
        if (attempt != Attempt::Again) {
            return attempt == Attempt::Done;
        }
        // Another program made its copy, or is looking at the one made here, in this very moment.
        if (Clock::now() >= deadline) {
            LogPrintf("SafeRewrite: not saved, since other saves are under way: %s\n", path);
            return false;
        }
        std::this_thread::sleep_for(kRewritePause);
    }
}

SafeRewrite::Attempt SafeRewrite::MakeCopy(const std::string& newText, const char* path) {
    const int folder = target.folder.Number();
    RewriteCopy copy{target.fileName, {}, newText};
    struct stat status {};
    const Descriptor file(
        ::openat(folder, target.fileName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (file.IsOpen()) {
        const std::optional<std::string> old = ReadWhole(file.Number(), kMaxRewriteBytes);
        if (!old || ::fstat(file.Number(), &status) != 0) {
            LogFailure("not saved, since the present text cannot be read", path);
            return Attempt::Failed;
        }
        copy.oldText = DigestOf(*old);
    } else if (errno == ENOENT) {
        // Removed since it was opened: the rewrite makes it anew, from nothing.
        copy.oldText = DigestOf({});
        status.st_uid = ::geteuid();
        status.st_gid = ::getegid();
    } else {
        LogFailure("not saved, since the present text cannot be read", path);
        return Attempt::Failed;
    }

    copyDescriptor =
        Descriptor(::openat(folder, target.copyName.c_str(),
                            O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kCopyPermissions));
    if (!copyDescriptor.IsOpen()) {
        if (errno == EEXIST) {
            return Attempt::Again;
        }
        if (FolderTakesNoCopy(errno)) {
            LogFailure("rewritten without a copy beside it", path);
            return Attempt::Done;
        }
        LogFailure("not saved", path);
        return Attempt::Failed;
    }
    if (!LockCopy(copyDescriptor, Clock::now()) || !IsStillNamed(copyDescriptor, folder, target.copyName)) {
        copyDescriptor.Close();
        return Attempt::Again;
    }
    if (::geteuid() == 0 && ::fchown(copyDescriptor.Number(), status.st_uid, status.st_gid) != 0) {
        // The administrator's own copy serves as well; the owner of the file just cannot complete it.
        LogFailure("the copy could not be given to the owner of the file", path);
    }
    return FillCopy(EncodeRewriteCopy(copy), path);
}

SafeRewrite::Attempt SafeRewrite::FillCopy(const std::string& bytes, const char* path) {
    // The process's file mask may have taken the owner's own rights away.
    const bool copied = ::fchmod(copyDescriptor.Number(), kCopyPermissions) == 0 &&
                        WriteWhole(copyDescriptor.Number(), bytes) &&
                        calls.syncData(copyDescriptor.Number()) == 0;
    // File systems that cannot synchronise a folder order its entries by themselves or not at all.
    if (copied && (calls.syncFolder(target.folder.Number()) == 0 || IsUnsupported(errno))) {
        return Attempt::Done;
    }
    LogFailure("not saved", path);
    RemoveCopy();
    return Attempt::Failed;
}

void SafeRewrite::RemoveCopy() {
    if (copyDescriptor.IsOpen()) {
        RemoveCopyAt(target);
        copyDescriptor.Close();
    }
}

void SafeRewrite::RemoveCopyAt(const Place& place) const {
    // A copy that stays or comes back is found by the next opening, which sees that it is done with; so
    // neither result changes what happens.
    if (calls.remove(place.folder.Number(), place.copyName.c_str(), 0) == 0) {
        calls.syncFolder(place.folder.Number());
    }
}

}  // namespace vexil
