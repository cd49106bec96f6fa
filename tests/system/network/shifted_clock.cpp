// A library to preload: a program that runs with it has the time of day of a clock that somebody sets. By how
// many seconds it is set forward, or back, stands as 8 bytes in the file that SHIFTED_CLOCK names, and may
// change at any time. Clocks that cannot be set go as always.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

namespace {

const volatile std::int64_t* Map() {
    const char* path = std::getenv("SHIFTED_CLOCK");
    const int file = path == nullptr ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    void* bytes = file < 0 ? MAP_FAILED : mmap(nullptr, sizeof(std::int64_t), PROT_READ, MAP_SHARED, file, 0);
    if (file >= 0) {
        close(file);
    }
    return bytes == MAP_FAILED ? nullptr : static_cast<const std::int64_t*>(bytes);
}

std::int64_t Shift() {
    static const volatile std::int64_t* const kMapped = Map();
    return kMapped == nullptr ? 0 : *kMapped;
}

int Read(clockid_t clock, timespec* into) {
    const long result = syscall(SYS_clock_gettime, clock, into);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) {
        into->tv_sec += Shift();
    }
    return static_cast<int>(result);
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* into) noexcept {
    return Read(clock, into);
}

int gettimeofday(timeval* into, void*) noexcept {
    timespec now{};
    Read(CLOCK_REALTIME, &now);
    *into = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}

time_t time(time_t* into) noexcept {
    timespec now{};
    Read(CLOCK_REALTIME, &now);
    if (into != nullptr) {
        *into = now.tv_sec;
    }
    return now.tv_sec;
}

}  // extern "C"
