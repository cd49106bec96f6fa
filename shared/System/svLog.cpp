#include "shared/System/svLog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include "shared/System/svLogFilter.h"

namespace vexil {

namespace {

constexpr std::size_t kLineSize = 259;  // of a line, of its format and of the path, terminator included
constexpr std::size_t kTimeTextSize = 64;

// How long opening the log waits for others who have it locked.
constexpr std::chrono::milliseconds kLockPatience{250};
constexpr std::chrono::milliseconds kLockPoll{5};

#if defined(__x86_64__)
constexpr const char* kArchText = "arch=x86_64; ";
#elif defined(__i386__)
constexpr const char* kArchText = "arch=i386; ";
#elif defined(__aarch64__)
constexpr const char* kArchText = "arch=aarch64; ";
#elif defined(__arm__)
constexpr const char* kArchText = "arch=arm; ";
#elif defined(__riscv) && __riscv_xlen == 64
constexpr const char* kArchText = "arch=riscv64; ";
#elif defined(__powerpc64__)
constexpr const char* kArchText = "arch=ppc64; ";
#elif defined(__s390x__)
constexpr const char* kArchText = "arch=s390x; ";
#else
constexpr const char* kArchText = "arch=unknown; ";
#endif

// What a log without a prefix puts in front of its lines. Recognised by its address; never freed.
char emptyPrefix[] = "";

struct LogFile {
    int descriptor;        // 0 unopened, 1 standard output, -1 closed, else the file's
    char* prefix;          // owned, or emptyPrefix, or null while unopened
    bool open;             // lines have a place to go to, until CloseLog
    bool closeRegistered;  // CloseLog is set to run when the program ends
};
LogFile logFile = {};
LogFilter lineFilter = nullptr;

void FreePrefix() {
    if (logFile.prefix != emptyPrefix) {
        std::free(logFile.prefix);
    }
    logFile.prefix = emptyPrefix;
}

void SetPrefix(const char* prefix) {
    FreePrefix();
    if (prefix == nullptr || *prefix == '\0') {
        return;
    }
    if (char* const copy = strdup(prefix)) {
        logFile.prefix = copy;
    }
}

// One line, one write. A failed or short write is ignored: there is nowhere to report it. errno stays the
// caller's, who logs a failure before acting on it.
int WriteLine(int descriptor, const char* format, va_list arguments) {
    const int callersErrno = errno;
    char line[kLineSize] = "";
    std::vsnprintf(line, sizeof line, format, arguments);
    std::size_t length = std::strlen(line);
    std::string filtered;
    if (lineFilter != nullptr) {
        filtered = lineFilter({line, length});
        length = filtered.size();
    }
    const char* const text = lineFilter != nullptr ? filtered.data() : line;
    const int result =
        descriptor == -1 ? static_cast<int>(length) : static_cast<int>(::write(descriptor, text, length));
    errno = callersErrno;
    return result;
}

int WritePrefixedLine(const char* format, va_list arguments) {
    // The prefix becomes a part of the format.
    char lineFormat[kLineSize];
    std::snprintf(lineFormat, sizeof lineFormat, "%s%s", logFile.prefix == nullptr ? "" : logFile.prefix,
                  format);
    return WriteLine(logFile.descriptor, lineFormat, arguments);
}

// The current local time without the line end of ctime's form; empty when it cannot be told.
void FormatTime(char (&text)[kTimeTextSize]) {
    const std::time_t now = std::time(nullptr);
    tzset();
    if (ctime_r(&now, text) == nullptr) {
        text[0] = '\0';
    } else {
        text[std::strlen(text) - 1] = '\0';
    }
}

// Calls again what somebody else's lock prevents. Its result, which is -1 when the deadline came
// first.
template <class Call>
int TryUntil(std::chrono::steady_clock::time_point deadline, const Call& call) {
    for (;;) {
        const bool last = std::chrono::steady_clock::now() >= deadline;
        const int result = call();
        if (result != -1 || last || (errno != EWOULDBLOCK && errno != EINTR)) {
            return result;
        }
        std::this_thread::sleep_for(kLockPoll);
    }
}

// Opens and locks the file, with a descriptor above the standard streams' even when one of theirs is free. -1
// on failure. Polled, since both calls would themselves wait without end, the first one for a lease.
int OpenLockedFile(const char* path, int mode) {
    const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
    const bool create = (mode & kLogCreate) != 0;
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | (create ? 0 : O_APPEND);
    int descriptor = TryUntil(deadline, [&] { return ::open(path, flags, 0666); });
    if (descriptor >= 0 && descriptor <= STDERR_FILENO) {
        const int low = descriptor;
        descriptor = ::fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        ::close(low);
    }
    if (descriptor == -1) {
        return -1;
    }
    const int locked = TryUntil(deadline, [descriptor] { return ::flock(descriptor, LOCK_SH | LOCK_NB); });
    // Emptied only now: what somebody has locked stays as it is. No regular file is not emptied either.
    if (locked == -1 || (create && ::ftruncate(descriptor, 0) != 0 && errno != EINVAL)) {
        ::close(descriptor);
        return -1;
    }
    return descriptor;
}

}  // namespace

int OpenLog(const char* prefix, const char* versionText, int mode, const char* fileName) {
    if ((mode & kLogDisabled) != 0) {
        return 1;
    }
    if (!logFile.closeRegistered) {
        logFile.closeRegistered = std::atexit(CloseLog) == 0;
    }
    SetPrefix(prefix);
    if ((mode & (kLogCreate | kLogAppend)) == 0) {
        return 1;
    }

    char path[kLineSize];
    std::snprintf(path, sizeof path, "%s%s", (mode & kLogInTmp) != 0 ? "/tmp/" : "",
                  fileName == nullptr ? "" : fileName);
    const int descriptor = OpenLockedFile(path, mode);
    logFile.descriptor = descriptor == -1 ? STDOUT_FILENO : descriptor;
    logFile.open = true;
    if (descriptor == -1) {
        return 1;
    }
    // Writable for every user whatever the file mask. Refused for a file of another user, which then has this
    // mode from its maker.
    static_cast<void>(::fchmod(descriptor, 0666));

    char timeText[kTimeTextSize];
    FormatTime(timeText);
    if (versionText != nullptr && *versionText != '\0') {
        LogPrintf("%s; %sloaded at %s.\n", versionText, kArchText, timeText);
    } else {
        LogPrintf("%sloaded at %s.\n", kArchText, timeText);
    }
    return 1;
}

int LogPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = WritePrefixedLine(format, arguments);
    va_end(arguments);
    return result;
}

int LogPrintfIf(unsigned char enabled, const char* format, ...) {
    if (enabled == 0) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = WritePrefixedLine(format, arguments);
    va_end(arguments);
    return result;
}

int LogPrintfRaw(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = WriteLine(logFile.descriptor, format, arguments);
    va_end(arguments);
    return result;
}

int LogPrintfRawIf(unsigned char enabled, const char* format, ...) {
    if (enabled == 0) {
        return 0;
    }
    va_list arguments;
    va_start(arguments, format);
    const int result = WriteLine(logFile.descriptor, format, arguments);
    va_end(arguments);
    return result;
}

int LogPrintfTo(const int* descriptor, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = WriteLine(*descriptor, format, arguments);
    va_end(arguments);
    return result;
}

void SetLogFilter(LogFilter filter) {
    lineFilter = filter;
}

void CloseLog() {
    if (logFile.descriptor == -1) {
        return;
    }
    if (logFile.descriptor > STDOUT_FILENO) {
        char timeText[kTimeTextSize];
        FormatTime(timeText);
        LogPrintf("Unloaded at %s.\n", timeText);
        ::close(logFile.descriptor);
        logFile.descriptor = -1;
    }
    FreePrefix();
    logFile.open = false;
}

bool LogIsOpen() {
    return logFile.open;
}

void AssertionFailed(const char* format, const char* file, unsigned line, const char* expression) {
    std::fprintf(stderr, format, file, line, expression);
    std::fflush(stderr);
    std::abort();
}

}  // namespace vexil
