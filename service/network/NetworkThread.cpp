#include "service/network/NetworkThread.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <ctime>
#include <mutex>

namespace vexil {

namespace {

constexpr int kPriority = 55;  // below the MIDI thread's
constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;
// So often Read is called before anything else is done: more datagrams than a socket keeps.
constexpr int kMostParts = 64;

std::uint64_t Nanoseconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(time.tv_nsec);
}

void Drain(int descriptor) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t ignored = read(descriptor, &count, sizeof count);
}

void Raise(int descriptor) {
    const std::uint64_t one = 1;
    // A counter that is full is readable as well.
    [[maybe_unused]] const ssize_t ignored = write(descriptor, &one, sizeof one);
}

}  // namespace

std::uint64_t BootMicroseconds() {
    return Nanoseconds(CLOCK_BOOTTIME) / 1000;
}

std::int64_t SteadyLeadNanoseconds() {
    return static_cast<std::int64_t>(Nanoseconds(CLOCK_MONOTONIC) - Nanoseconds(CLOCK_BOOTTIME));
}

NetworkThread::NetworkThread(NetworkWork& networkWork, NetworkDriver& engineDriver)
    : work(networkWork),
      driver(engineDriver),
      wakeEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      timer(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK)),
      news(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    // Signals are the control thread's.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { Main(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_setname_np(thread.native_handle(), "network");
    sched_param parameter{};
    parameter.sched_priority = kPriority;
    if (const int error = pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &parameter); error != 0) {
        realtimeProblem =
            std::string("The network thread has no realtime priority: ") + std::strerror(error) + ".";
    }
    driver.SetThread(this);
}

NetworkThread::~NetworkThread() {
    driver.SetThread(nullptr);
    ending.store(true);
    Wake();
    thread.join();
}

void NetworkThread::Wake() {
    woken.store(true);
    if (sleeps.exchange(false)) {
        Raise(wakeEvent.Number());
    }
}

void NetworkThread::TakeEvent() const {
    Drain(news.Number());
}

void NetworkThread::Arm(std::optional<std::uint64_t> time) {
    const std::uint64_t at = time ? std::max<std::uint64_t>(*time, 1) : 0;
    if (at == armedAt) {
        return;
    }
    armedAt = at;
    itimerspec when{};
    when.it_value.tv_sec = static_cast<time_t>(at / kMicrosecondsPerSecond);
    when.it_value.tv_nsec = static_cast<long>(at % kMicrosecondsPerSecond * 1000);
    timerfd_settime(timer.Number(), TFD_TIMER_ABSTIME, &when, nullptr);
}

void NetworkThread::Main() {
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    for (bool hasArrived = true;; hasArrived = Sleep()) {
        // Whoever wakes it from here on has it go round once more.
        woken.store(false);
        if (ending.load()) {
            return;
        }
        Round(hasArrived);
    }
}

// Whether datagrams may have arrived.
bool NetworkThread::Sleep() {
    sleeps.store(true);
    pollfd waited[] = {
        {work.EventDescriptor(), POLLIN, 0}, {wakeEvent.Number(), POLLIN, 0}, {timer.Number(), POLLIN, 0}};
    poll(waited, 3, woken.load() ? 0 : -1);
    // Who has taken the mark away raises the event, perhaps in a moment.
    if (!sleeps.exchange(false) || waited[1].revents != 0) {
        Drain(wakeEvent.Number());
    }
    if (waited[2].revents != 0) {
        Drain(timer.Number());
        armedAt = 0;
    }
    return waited[0].revents != 0;
}

// Turns the engine, if no MIDI system does. Microseconds at which it is to be turned again; null: not before
// something happens.
std::optional<std::uint64_t> NetworkThread::Turn() {
    const std::optional<std::chrono::nanoseconds> turn = driver.TurnOfThread();
    work.Deliver();
    if (!turn) {
        return std::nullopt;
    }
    return BootMicroseconds() +
           static_cast<std::uint64_t>(std::chrono::ceil<std::chrono::microseconds>(*turn).count());
}

void NetworkThread::Round(bool reads) {
    const std::lock_guard lock(mutex);
    // What the engine has delivered is what the thread is woken for most often.
    work.Deliver();
    std::optional<std::uint64_t> turn;
    // What arrives is heard soon, also while very much does.
    for (int part = 0; part < kMostParts; ++part) {
        reads = reads && work.Read();
        turn = Turn();
        if (!reads) {
            break;
        }
    }
    std::optional<std::uint64_t> next = work.NextTime();
    if (next && *next <= BootMicroseconds()) {
        work.Act();
        turn = Turn();
        next = work.NextTime();
    }
    if (turn) {
        next = next ? std::min(*next, *turn) : turn;
    }
    Arm(next);
    if (work.TakeChanged()) {
        Raise(news.Number());
    }
}

}  // namespace vexil
