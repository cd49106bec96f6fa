#include "service/backends/jack/NotificationGate.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <string>
#include <string_view>

#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int kTries = 3;
constexpr milliseconds kLongestWait{50};   // for a callback to come
constexpr milliseconds kLongestAsked{20};  // before the call
constexpr milliseconds kLongestCall{200};
constexpr milliseconds kLook{1};

// Whether a thread of this process waits in the kernel; false where that is not known.
bool Sleeps(pid_t thread) {
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/stat";
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 128> text{};
    const ssize_t length = ::read(file.Number(), text.data(), text.size());
    const std::string_view begin(text.data(), length < 0 ? 0 : static_cast<std::size_t>(length));
    return begin.find(") S ") != std::string_view::npos;  // behind the thread's name
}

}  // namespace

void NotificationGate::Pass() {
    std::unique_lock lock(mutex);
    if (state == State::Open) {
        return;
    }
    isHeld = true;
    changed.notify_all();
    const auto begin = Clock::now();
    while (state != State::Open) {
        const auto passed = Clock::now() - begin;
        if (state == State::Asked ? passed > kLongestAsked : passed > kLongestCall || Sleeps(caller)) {
            break;
        }
        changed.wait_for(lock, kLook);
    }
    isHeld = false;
}

int NotificationGate::Hold(const std::function<void()>& cause, const std::function<int()>& call) {
    caller = ::gettid();
    bool held = false;
    for (int tries = 0; !held && tries < kTries; ++tries) {
        Set(State::Asked);
        cause();
        held = WaitUntilHeld();
    }
    missed += held ? 0 : 1;
    const int result = call();
    Set(State::Open);
    return result;
}

bool NotificationGate::WaitUntilHeld() {
    std::unique_lock lock(mutex);
    const bool held = changed.wait_for(lock, kLongestWait, [this] { return isHeld; });
    if (held) {
        // Without a wake-up: this thread must not sleep from here on before it is inside the call.
        state = State::Calling;
    }
    return held;
}

void NotificationGate::Set(State next) {
    const std::lock_guard lock(mutex);
    state = next;
    changed.notify_all();
}

}  // namespace vexil
