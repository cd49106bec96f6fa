#include "tests/service/network/Namespaces.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace vexil::test {

namespace {

Descriptor CurrentNetwork() {
    return Descriptor(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC));
}

bool Write(const char* path, const std::string& text) {
    const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    return write(file.Number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A user who is not root becomes root of a namespace of users first.
bool Unshare() {
    if (unshare(CLONE_NEWNET) == 0) {
        return true;
    }
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    return unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 && Write("/proc/self/setgroups", "deny") &&
           Write("/proc/self/uid_map", "0 " + user + " 1") &&
           Write("/proc/self/gid_map", "0 " + group + " 1");
}

// Until then the kernel drops what is sent there.
bool Runs(const char* name) {
    const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strncpy(request.ifr_name, name, sizeof request.ifr_name - 1);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (ioctl(socket.Number(), SIOCGIFFLAGS, &request) == 0 && std::chrono::steady_clock::now() < end) {
        if ((static_cast<unsigned>(request.ifr_flags) & IFF_RUNNING) != 0) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

std::string Enter() {
    if (!Unshare()) {
        return std::string("network namespaces are not allowed here: ") + std::strerror(errno);
    }
    return Ip("link show") ? "" : "the program \"ip\" (package iproute2) is missing";
}

}  // namespace

bool EnterOwnNetwork(std::string& reason) {
    static const std::string kResult = Enter();
    reason = kResult;
    return kResult.empty();
}

bool Ip(const std::string& arguments) {
    // The arguments are the tests' own.
    return std::system(("ip " + arguments + " >/dev/null 2>&1").c_str()) == 0;  // NOLINT(cert-env33-c)
}

TwoNetworks::TwoNetworks() {
    std::string reason;
    if (!EnterOwnNetwork(reason)) {
        return;
    }
    here = CurrentNetwork();
    if (unshare(CLONE_NEWNET) != 0) {
        return;
    }
    there = CurrentNetwork();
    const bool loopbackThere = Ip("link set lo up");
    EnterHere();
    const std::string target = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(there.Number());
    isThere = loopbackThere && Ip("link set lo up") && Ip("link add wire0 type veth peer name wire1") &&
              Ip("link set wire1 netns " + target) && Ip("address add 10.77.0.1/24 broadcast + dev wire0") &&
              Ip("link set wire0 up");
    EnterThere();
    isThere = isThere && Ip("address add 10.77.0.2/24 broadcast + dev wire1") && Ip("link set wire1 up") &&
              Runs("wire1");
    EnterHere();
    isThere = isThere && Runs("wire0");
}

TwoNetworks::~TwoNetworks() {
    if (there.IsOpen()) {
        EnterHere();
        Ip("link delete wire0");
    }
}

void TwoNetworks::EnterHere() const {
    static_cast<void>(!setns(here.Number(), CLONE_NEWNET));
}

void TwoNetworks::EnterThere() const {
    static_cast<void>(!setns(there.Number(), CLONE_NEWNET));
}

}  // namespace vexil::test
