#include "config/RewriteFiles.h"

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <thread>

namespace vexil {

std::optional<std::string> ReadWhole(int descriptor, std::size_t limit) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode) || status.st_size > static_cast<off_t>(limit)) {
        errno = EFBIG;
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t got = ::read(descriptor, text.data() + length, text.size() - length);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            break;
        }
        length += static_cast<std::size_t>(got);
    }
    text.resize(length);
    return text;
}

bool WriteWhole(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = ::write(descriptor, text.data(), text.size());
        if (put < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(put, 0)));
    }
    return true;
}

bool LockCopy(const Descriptor& file, std::chrono::steady_clock::time_point deadline) {
    while (::flock(file.Number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            errno = ETIMEDOUT;
            return false;
        }
        std::this_thread::sleep_for(kRewritePause);
    }
    return true;
}

bool IsStillNamed(const Descriptor& file, int folder, const std::string& name) {
    struct stat open {};
    struct stat named {};
    return ::fstat(file.Number(), &open) == 0 &&
           ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

bool IsTrusted(const Descriptor& copy, int folder, const std::string& fileName) {
    struct stat status {};
    if (::fstat(copy.Number(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_nlink > 1) {
        return false;
    }
    struct stat file {};
    const bool hasFile = ::fstatat(folder, fileName.c_str(), &file, AT_SYMLINK_NOFOLLOW) == 0;
    return status.st_uid == ::geteuid() || status.st_uid == 0 || (hasFile && status.st_uid == file.st_uid);
}

std::optional<std::string> RealPath(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
    if (real == nullptr) {
        return std::nullopt;
    }
    return std::string(real.get());
}

}  // namespace vexil
