#include "ctl/StandardConsole.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <vector>

#include "shared/System/Deadline.h"

namespace vexil {

namespace {

constexpr std::size_t kLongestLine = 65536;

sigset_t SetOf(const std::vector<int>& signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int each : signals) {
        sigaddset(&set, each);
    }
    return set;
}

// While it exists, a terminal does not show what is typed, and no signal ends or stops the program: a
// terminal that was left like this would hide what its user types next.
class HiddenTyping {
  public:
    explicit HiddenTyping(int inputTerminal) : terminal(inputTerminal) {
        const sigset_t held = SetOf({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP});
        pthread_sigmask(SIG_BLOCK, &held, &formerMask);
        signals = Descriptor(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
        isHidden = tcgetattr(terminal, &former) == 0;
        if (isHidden) {
            termios hidden = former;
            hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK);
            hidden.c_lflag |= ECHONL;
            isHidden = tcsetattr(terminal, TCSAFLUSH, &hidden) == 0;
        }
    }
    ~HiddenTyping() {
        if (isHidden) {
            tcsetattr(terminal, TCSAFLUSH, &former);
        }
        pthread_sigmask(SIG_SETMASK, &formerMask, nullptr);  // a signal that waits takes effect here
    }
    HiddenTyping(const HiddenTyping&) = delete;
    HiddenTyping& operator=(const HiddenTyping&) = delete;

    bool IsHidden() const { return isHidden; }

    // Waits for a line; false when a signal came instead.
    bool Await() const {
        pollfd states[] = {{terminal, POLLIN, 0}, {signals.Number(), POLLIN, 0}};
        while (poll(states, 2, -1) == -1 && errno == EINTR) {
        }
        return (states[1].revents & POLLIN) == 0;
    }

  private:
    const int terminal;
    Descriptor signals;
    sigset_t formerMask{};
    termios former{};
    bool isHidden = false;
};

}  // namespace

int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(descriptor, text.data(), text.size());
        if (count == -1 && errno != EINTR) {
            return errno;
        }
        if (count > 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        }
    }
    return 0;
}

bool StandardConsole::CanRedraw() const {
    return isatty(output) == 1;
}

int StandardConsole::Show(const std::string& text) {
    return WriteAll(output, text);
}

void StandardConsole::HoldInterrupts() {
    const sigset_t interrupt = SetOf({SIGINT});
    interrupts = Descriptor(signalfd(-1, &interrupt, SFD_CLOEXEC | SFD_NONBLOCK));
    // Without a descriptor Ctrl-C goes on ending the program.
    if (interrupts.IsOpen()) {
        pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    }
}

bool StandardConsole::Wait(std::chrono::milliseconds time) {
    const Deadline end = Clock::now() + time;
    pollfd state{interrupts.IsOpen() ? interrupts.Number() : -1, POLLIN, 0};
    for (;;) {
        const int result = poll(&state, 1, MillisecondsUntil(end));
        if (result > 0) {
            return false;
        }
        if (result == 0 && Clock::now() >= end) {
            return true;
        }
    }
}

Console::Woken StandardConsole::WaitFor(int descriptor, std::optional<std::chrono::milliseconds> time) {
    const Deadline end = Clock::now() + time.value_or(std::chrono::milliseconds(0));
    pollfd states[] = {{interrupts.IsOpen() ? interrupts.Number() : -1, POLLIN, 0}, {descriptor, POLLIN, 0}};
    for (;;) {
        const int result = poll(states, 2, time ? MillisecondsUntil(end) : -1);
        if (result > 0) {
            return states[0].revents != 0 ? Woken::Interrupt : Woken::Ready;
        }
        if (result == 0 && time && Clock::now() >= end) {
            return Woken::Time;
        }
    }
}

bool StandardConsole::IsTyped() const {
    return isatty(input) == 1;
}

std::optional<std::string> StandardConsole::ReadAll(std::size_t most) {
    std::string text;
    std::array<char, 65536> buffer{};
    while (text.size() <= most) {
        const ssize_t count = read(input, buffer.data(), buffer.size());
        if (count == 0) {
            return text;
        }
        if (count > 0) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            break;
        }
    }
    return std::nullopt;
}

std::optional<std::string> StandardConsole::ReadHiddenLine(const std::string& prompt) {
    if (!IsTyped()) {
        return ReadLine();
    }
    const HiddenTyping typing(input);
    // A terminal that would show it is not asked at all. The prompt goes where the person types.
    if (!typing.IsHidden() || WriteAll(input, prompt) != 0 || !typing.Await()) {
        return std::nullopt;
    }
    return ReadLine();
}

// Byte by byte: what is behind the line is left to whoever reads next.
std::optional<std::string> StandardConsole::ReadLine() {
    std::string line;
    for (;;) {
        char byte = 0;
        const ssize_t count = read(input, &byte, 1);
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count != 1) {
            return count == 0 && !line.empty() ? std::optional(line) : std::nullopt;
        }
        if (byte == '\n') {
            return line;
        }
        if (line.size() == kLongestLine) {
            return std::nullopt;
        }
        line += byte;
    }
}

}  // namespace vexil
