#include "service/MemoryLock.h"

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace vexil {

namespace {

// What a MIDI system's library may still allocate: its shared memory and the stacks of its threads.
constexpr std::uint64_t kStillToCome = std::uint64_t{256} << 20;

std::uint64_t ProcessBytes() {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    return pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// The effective capabilities of this process include CAP_IPC_LOCK, which has no limit.
bool IsAboveLimits() {
    constexpr int kIpcLock = 14;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        std::uint64_t capabilities = 0;
        if (word == "CapEff:" && status >> std::hex >> capabilities) {
            return (capabilities >> kIpcLock & 1) != 0;
        }
    }
    return false;
}

std::optional<std::uint64_t> RaisedLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_MEMLOCK, &limit) != 0) {
        return 0;
    }
    if (limit.rlim_cur != limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_MEMLOCK, &limit);
        getrlimit(RLIMIT_MEMLOCK, &limit);  // what it has become, raised or not
    }
    return limit.rlim_cur == RLIM_INFINITY ? std::nullopt : std::optional<std::uint64_t>(limit.rlim_cur);
}

}  // namespace

bool FitsMemoryLimit(std::uint64_t processBytes, std::optional<std::uint64_t> limit) {
    return !limit || (*limit > kStillToCome && processBytes <= *limit - kStillToCome);
}

std::string LockMemory() {
    const std::optional<std::uint64_t> limit = IsAboveLimits() ? std::nullopt : RaisedLimit();
    if (!FitsMemoryLimit(ProcessBytes(), limit)) {
        return "The limit of locked memory (RLIMIT_MEMLOCK) is " + std::to_string(*limit >> 20) +
               " MiB, which is too little.";
    }
    if (mlockall(MCL_CURRENT | MCL_FUTURE) != 0) {
        return std::string("The system refuses to lock memory: ") + std::strerror(errno) + ".";
    }
    return "locked";
}

}  // namespace vexil
