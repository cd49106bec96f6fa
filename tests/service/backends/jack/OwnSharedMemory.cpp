#include "tests/service/backends/jack/OwnSharedMemory.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <string>

#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

bool hasOwn = false;

bool Write(const char* path, const std::string& text) {
    const Descriptor file(::open(path, O_WRONLY | O_CLOEXEC));
    return ::write(file.Number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A user who may not do that may in a namespace of users, as the same user.
bool Unshare() {
    if (::unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    const std::string user = std::to_string(::getuid());
    const std::string group = std::to_string(::getgid());
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && Write("/proc/self/setgroups", "deny") &&
           Write("/proc/self/uid_map", user + " " + user + " 1") &&
           Write("/proc/self/gid_map", group + " " + group + " 1");
}

}  // namespace

bool TakeOwnSharedMemory() {
    // What is mounted here must not be seen elsewhere.
    hasOwn = Unshare() && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
             ::mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") == 0;
    return hasOwn;
}

bool HasOwnSharedMemory() {
    return hasOwn;
}

}  // namespace vexil
