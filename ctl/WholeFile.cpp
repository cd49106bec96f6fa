#include "ctl/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "config/SafeRewrite.h"
#include "shared/System/Descriptor.h"

namespace vexil {

std::string FileObstacle(const std::string& path, int flags) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno != ENOENT || (flags & O_CREAT) == 0) {
            return std::strerror(errno);
        }
        const std::size_t slash = path.rfind('/');
        const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
        return faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ? "" : std::strerror(errno);
    }
    if (S_ISDIR(status.st_mode)) {
        return std::strerror(EISDIR);
    }
    if (!S_ISREG(status.st_mode)) {
        return "it is no plain file";
    }
    if (status.st_size > static_cast<off_t>(kMaxRewriteBytes)) {
        return "it is too large";
    }
    // The file is there, so nothing is made even where the flags allow it.
    const Descriptor file(open(path.c_str(), (flags & ~O_CREAT) | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    return file.IsOpen() ? "" : std::strerror(errno);
}

std::string ReadWholeFile(const std::string& path, std::string& text) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (!file.IsOpen()) {
        return std::strerror(errno);
    }
    std::array<char, 65536> buffer{};
    for (;;) {
        const ssize_t count = read(file.Number(), buffer.data(), buffer.size());
        if (count == 0) {
            return "";
        }
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            return std::strerror(errno);
        }
        if (text.size() > kMaxRewriteBytes) {
            return "it is too large";
        }
    }
}

}  // namespace vexil
