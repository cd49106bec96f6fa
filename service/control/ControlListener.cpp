#include "service/control/ControlListener.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "driver/DriverOptions.h"

namespace vexil {

namespace {

constexpr const char* kLockName = "/vexil3d.lock";

bool Fail(std::string& problem, const std::string& text, int error) {
    problem = text + ": " + std::strerror(error) + ".";
    return false;
}

std::string FolderOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

// The path of a bound socket; empty when it is in no folder.
std::string PathOf(int socket) {
    sockaddr_un place{};
    socklen_t size = sizeof place;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&place), &size) != 0 || place.sun_path[0] != '/') {
        return "";
    }
    return {place.sun_path, strnlen(place.sun_path, sizeof place.sun_path)};
}

bool FillPlace(const std::string& path, sockaddr_un& place) {
    place = {};
    place.sun_family = AF_UNIX;
    if (path.size() >= sizeof place.sun_path) {
        return false;
    }
    std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Makes the folder of a user's own service, for that user alone.
bool PrepareOwnFolder(const std::string& folder, std::string& problem) {
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        return Fail(problem, "Cannot make the folder " + folder, errno);
    }
    struct stat status {};
    if (lstat(folder.c_str(), &status) != 0) {
        return Fail(problem, "Cannot look at the folder " + folder, errno);
    }
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid()) {
        problem = folder + " is no folder of this user.";
        return false;
    }
    if ((status.st_mode & 0777) != 0700 && chmod(folder.c_str(), 0700) != 0) {
        return Fail(problem, "Cannot close the folder " + folder + " to others", errno);
    }
    return true;
}

// The group of the folder of a system-wide service; null where anybody could put a socket there.
std::optional<gid_t> GroupOfSharedFolder(const std::string& folder, std::string& problem) {
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0) {
        Fail(problem, "Cannot look at the folder " + folder, errno);
        return std::nullopt;
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        problem = "Everybody may write to the folder " + folder + ".";
        return std::nullopt;
    }
    return status.st_gid;
}

std::string ReadLine(int file) {
    std::array<char, 32> text{};
    const ssize_t size = pread(file, text.data(), text.size() - 1, 0);
    return size > 0 ? std::string(text.data(), strcspn(text.data(), "\n")) : "";
}

std::string ServedBy(const std::string& process, const std::string& path) {
    return "Another vexil3d" + (process.empty() ? "" : " (process " + process + ")") + " is serving " + path +
           ".";
}

}  // namespace

std::unique_ptr<ControlListener> ControlListener::Open(const Paths& paths, std::string& problem) {
    std::unique_ptr<ControlListener> listener(new ControlListener);
    const int inherited = sd_listen_fds(1);
    if (inherited < 0) {
        Fail(problem, "Cannot take the socket of the service manager", -inherited);
        return nullptr;
    }
    const bool done =
        inherited > 0 ? listener->Adopt(inherited, paths, problem) : listener->Make(paths, problem);
    return done ? std::move(listener) : nullptr;
}

ControlListener::~ControlListener() {
    struct stat status {};
    if (ownsFile && lstat(path.c_str(), &status) == 0 && status.st_dev == fileDevice &&
        status.st_ino == fileNumber) {
        unlink(path.c_str());  // one that cannot be removed is replaced at the next start
    }
}

bool ControlListener::Adopt(int inherited, const Paths& paths, std::string& problem) {
    for (int descriptor = SD_LISTEN_FDS_START; descriptor < SD_LISTEN_FDS_START + inherited; ++descriptor) {
        Descriptor given(descriptor);
        if (!socket.IsOpen() && sd_is_socket_unix(descriptor, SOCK_SEQPACKET, 1, nullptr, 0) > 0) {
            socket = std::move(given);
        }
    }
    path = socket.IsOpen() ? PathOf(socket.Number()) : "";
    if (path.empty()) {
        problem = "The service manager has opened no packet socket for the control channel.";
        return false;
    }
    const int flags = fcntl(socket.Number(), F_GETFL);
    if (flags == -1 || fcntl(socket.Number(), F_SETFL, flags | O_NONBLOCK) != 0) {
        return Fail(problem, "Cannot use the socket of the service manager", errno);
    }
    if (paths.controlIsSystemWide && !(group = GroupOfSharedFolder(FolderOf(path), problem))) {
        return false;
    }
    return Lock(FolderOf(path), problem);
}

bool ControlListener::Make(const Paths& paths, std::string& problem) {
    path = paths.control + "/" + kControlName;
    if (paths.controlIsSystemWide) {
        group = GroupOfSharedFolder(paths.control, problem);
        if (!group) {
            return false;
        }
    } else if ((!paths.standInRuntime.empty() && !PrepareOwnFolder(paths.standInRuntime, problem)) ||
               !PrepareOwnFolder(paths.control, problem)) {
        return false;
    }
    return Lock(paths.control, problem) && RemoveStaleSocket(problem) &&
           Bind(paths.controlIsSystemWide, problem);
}

// The lock goes with the process, however that ends.
bool ControlListener::Lock(const std::string& folder, std::string& problem) {
    const std::string file = folder + kLockName;
    lock = Descriptor(open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600));
    if (!lock.IsOpen()) {
        return Fail(problem, "Cannot open the lock file " + file, errno);
    }
    if (flock(lock.Number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            return Fail(problem, "Cannot lock the file " + file, errno);
        }
        problem = ServedBy(ReadLine(lock.Number()), path);
        return false;
    }
    // For whoever finds it locked; without the number it is as good a lock.
    const std::string process = std::to_string(getpid()) + "\n";
    [[maybe_unused]] const bool isNamed =
        ftruncate(lock.Number(), 0) == 0 && pwrite(lock.Number(), process.data(), process.size(), 0) >= 0;
    return true;
}

// A socket that nobody listens at was left by a service that has died. One that somebody listens at may be
// the service manager's, who starts a service for whoever connects.
bool ControlListener::RemoveStaleSocket(std::string& problem) const {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT || Fail(problem, "Cannot look at " + path, errno);
    }
    if (!S_ISSOCK(status.st_mode)) {
        problem = path + " is no socket; it is left alone.";
        return false;
    }
    sockaddr_un place{};
    if (!FillPlace(path, place)) {
        return Fail(problem, "Cannot serve " + path, ENAMETOOLONG);
    }
    const Descriptor probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!probe.IsOpen()) {
        return Fail(problem, "Cannot make a socket", errno);
    }
    if (connect(probe.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 ||
        errno == EAGAIN) {
        problem = ServedBy("", path);
        return false;
    }
    if (errno != ECONNREFUSED) {
        return Fail(problem, "Cannot tell who serves " + path, errno);
    }
    return unlink(path.c_str()) == 0 || errno == ENOENT || Fail(problem, "Cannot remove " + path, errno);
}

bool ControlListener::Bind(bool systemWide, std::string& problem) {
    sockaddr_un place{};
    if (!FillPlace(path, place)) {
        return Fail(problem, "Cannot serve " + path, ENAMETOOLONG);
    }
    socket = Descriptor(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen()) {
        return Fail(problem, "Cannot make a socket", errno);
    }
    // The file has its mode from its first moment; nobody can connect before listen.
    const mode_t before = umask(systemWide ? 0117 : 0177);
    const int bound = bind(socket.Number(), reinterpret_cast<const sockaddr*>(&place), sizeof place);
    const int bindError = errno;
    umask(before);
    if (bound != 0) {
        return Fail(problem, "Cannot serve " + path, bindError);
    }
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) {
        return Fail(problem, "Cannot look at " + path, errno);
    }
    ownsFile = true;
    fileDevice = status.st_dev;
    fileNumber = status.st_ino;
    if (group && chown(path.c_str(), static_cast<uid_t>(-1), *group) != 0) {
        return Fail(problem, "Cannot give " + path + " to the group of its folder", errno);
    }
    if (listen(socket.Number(), SOMAXCONN) != 0) {
        return Fail(problem, "Cannot listen at " + path, errno);
    }
    return true;
}

}  // namespace vexil
