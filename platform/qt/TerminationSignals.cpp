#include "platform/qt/TerminationSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include <QSocketNotifier>

namespace vexil {

namespace {

constexpr std::array<int, 3> kSignals = {SIGTERM, SIGINT, SIGHUP};

// The signal handler can reach nothing but this.
volatile sig_atomic_t writeEnd = -1;

void Wake(int /*signal*/) {
    const int savedErrno = errno;
    const char byte = 0;
    // A full pipe holds a request already.
    [[maybe_unused]] const ssize_t written = write(writeEnd, &byte, 1);
    errno = savedErrno;
}

void SetHandler(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int signal : kSignals) {
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

TerminationSignals::TerminationSignals(std::function<void()> requested) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    const int readEnd = ends[0];
    writeEnd = ends[1];
    notifier = std::make_unique<QSocketNotifier>(readEnd, QSocketNotifier::Read);
    QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(),
                     [readEnd, requested = std::move(requested)] {
                         std::array<char, 16> bytes{};
                         while (read(readEnd, bytes.data(), bytes.size()) > 0) {
                             continue;
                         }
                         requested();
                     });
    SetHandler(Wake);
}

TerminationSignals::~TerminationSignals() {
    if (!notifier) {
        return;
    }
    SetHandler(SIG_DFL);
    const int readEnd = static_cast<int>(notifier->socket());
    notifier.reset();
    close(readEnd);
    close(writeEnd);
    writeEnd = -1;
}

}  // namespace vexil
