#include "platform/linux/preferences/FileReading.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace vexil {
namespace {

bool SameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

bool IsBefore(const timespec& left, const timespec& right) {
    return left.tv_sec != right.tv_sec ? left.tv_sec < right.tv_sec : left.tv_nsec < right.tv_nsec;
}

const char* KindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a folder";
        case S_IFLNK:
            return "a symbolic link, which is not followed in a shared folder";
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        default:
            return "a device";
    }
}

FileReading Changing() {
    FileReading reading;
    reading.result = FileReading::Result::Changing;
    return reading;
}

FileReading Bad(const char* problem) {
    FileReading reading;
    reading.result = FileReading::Result::Bad;
    reading.problem = problem;
    return reading;
}

FileReading Failed(const char* operation) {
    FileReading reading;
    reading.result = FileReading::Result::Failed;
    reading.failure = {operation, errno};
    return reading;
}

FileReading NotOpened() {
    switch (errno) {
        case EACCES:
        case EPERM:
            return Bad("not readable");
        case ENOENT:
        case ELOOP:
        case ENXIO:
            return Changing();
        default:
            return Failed("open");
    }
}

}  // namespace

bool FileIdentity::operator==(const FileIdentity& other) const {
    return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
           SameTime(modified, other.modified) && SameTime(changed, other.changed);
}

FileIdentity IdentityOf(const struct stat& status) {
    return {true, status.st_dev, status.st_ino, status.st_size, status.st_mtim, status.st_ctim};
}

bool MayChangeUnseen(const struct stat& status) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return !IsBefore(status.st_ctim, now);
}

FileReading ReadFile(const std::string& path, const struct stat& status, std::size_t limit) {
    if (!S_ISREG(status.st_mode)) {
        return Bad(KindOf(status.st_mode));
    }
    // O_NONBLOCK: what was a file a moment ago may be a pipe by now.
    Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return NotOpened();
    }
    struct stat opened {};
    if (fstat(file.Number(), &opened) != 0) {
        return Failed("fstat");
    }
    if (!(IdentityOf(opened) == IdentityOf(status))) {
        return Changing();
    }
    if (opened.st_size > static_cast<off_t>(limit)) {
        return Bad("too large");
    }
    FileReading reading;
    // One byte more than the file has tells one that has grown meanwhile.
    reading.bytes.resize(static_cast<std::size_t>(opened.st_size) + 1);
    std::size_t length = 0;
    while (length < reading.bytes.size()) {
        const ssize_t count =
            read(file.Number(), reading.bytes.data() + length, reading.bytes.size() - length);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return Failed("read");
        }
        if (count == 0) {
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    if (length == reading.bytes.size()) {
        return Changing();
    }
    reading.bytes.resize(length);
    reading.file = std::move(file);
    return reading;
}

}  // namespace vexil
