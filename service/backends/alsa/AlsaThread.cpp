#include "service/backends/alsa/AlsaThread.h"

#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <utility>

namespace vexil {

namespace {

constexpr int kPriority = 60;  // between what serves the hardware and what makes sound
constexpr std::uint64_t kSecond = 1'000'000'000;
// How often a reader without room is looked at: at first, and at last.
constexpr std::uint64_t kFirstRetry = 500'000;
constexpr std::uint64_t kLastRetry = 10'000'000;
constexpr std::int64_t kNoTimeout = -1;

std::uint64_t TimeOf(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * kSecond + static_cast<std::uint64_t>(time.tv_nsec);
}

std::uint64_t Now() {
    return TimeOf(CLOCK_MONOTONIC);
}

std::uint64_t WorkOfThread() {
    return TimeOf(CLOCK_THREAD_CPUTIME_ID);
}

bool IsInputPort(int number) {
    return number >= kFirstInputPort && number < kFirstInputPort + kMaxPorts;
}

}  // namespace

AlsaThread::AlsaThread(Engine& served, AlsaClient& opened, int changed)
    : engine(served),
      client(opened),
      changedEvent(changed),
      writers(served),
      delivery(opened, changed),
      limit(Now, WorkOfThread) {
    // Programs may have connected since the ports were made.
    for (int port = 0; port < kMaxPorts; ++port) {
        delivery.AskForReaders(port);
    }
    engine.SetWaker(this);
    // Signals are for the threads of the program that asked for them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    thread = std::thread([this] { Main(); });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ::pthread_setname_np(thread.native_handle(), "alsa");
    sched_param parameter{};
    parameter.sched_priority = kPriority;
    if (const int error = ::pthread_setschedparam(thread.native_handle(), SCHED_FIFO, &parameter);
        error != 0) {
        realtimeProblem =
            std::string("The MIDI thread has no realtime priority: ") + std::strerror(error) + ".";
    }
}

AlsaThread::~AlsaThread() {
    engine.SetWaker(nullptr);
    ending.store(true, std::memory_order_release);
    Wake();
    thread.join();
}

void AlsaThread::Silence(int port) {
    delivery.Silence(port);
    Wake();
}

void AlsaThread::WaitForCycle() const {
    const std::uint64_t present = cycles.load(std::memory_order_acquire);
    const std::uint64_t end = Now() + kSecond;
    while (present % 2 != 0 && cycles.load(std::memory_order_acquire) == present && Now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

void AlsaThread::Wake() {
    wakes.fetch_add(1);
    if (isWaiting.exchange(false)) {
        client.WakeReader();
    }
}

void AlsaThread::Main() {
    // Precise waiting also without realtime priority.
    ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    while (!ending.load(std::memory_order_acquire) && Failure() == 0) {
        seenWakes = wakes.load();
        limit.Begin();
        Cycle();
        Wait();
    }
}

void AlsaThread::Cycle() {
    cycles.fetch_add(1, std::memory_order_acq_rel);
    cycleTime = Now();
    takenUntil = cycleTime;
    TakeEvents();
    engine.TakeCommands(cycleTime);
    engine.TakeArrivals(0);
    delivery.BeginCycle(cycleTime);
    // What is due at this very moment as well.
    engine.Run(takenUntil + 1, delivery, &limit);
    client.Flush();
    cycles.fetch_add(1, std::memory_order_acq_rel);
}

// Each event a nanosecond later than the one before: what several programs write is heard in the order in
// which it was written.
void AlsaThread::TakeEvents() {
    if (std::exchange(lostEvents, false)) {
        // Note-offs and notices perhaps among them.
        NoteConnections();
        writers.AllGone(takenUntil);
        for (int port = 0; port < kMaxPorts; ++port) {
            delivery.AskForReaders(port);
        }
    }
    while (const snd_seq_event_t* event = client.NextEvent()) {
        TakeEvent(*event, takenUntil++);
    }
}

void AlsaThread::TakeEvent(const snd_seq_event_t& event, std::uint64_t now) {
    if (event.source.client == SND_SEQ_CLIENT_SYSTEM) {
        TakeNotice(event, now);
        return;
    }
    if (event.dest.port >= kMaxPorts) {
        return;
    }
    const AlsaAddress writer{event.source.client, event.source.port};
    const AlsaBytes written = codec.Decode(event);
    if (written.systemExclusive) {
        writers.HearExclusive(event.dest.port, writer, now, written.bytes);
    } else {
        writers.Hear(event.dest.port, writer, now, written.bytes);
    }
}

// What the kernel tells: an output's port of its own connections, in their order with what was written; the
// announcements' port of all connections and of programs that close.
void AlsaThread::TakeNotice(const snd_seq_event_t& event, std::uint64_t now) {
    const snd_seq_connect_t& connection = event.data.connect;
    if (event.dest.port < kMaxPorts) {
        if (event.type == SND_SEQ_EVENT_PORT_UNSUBSCRIBED && connection.dest.client == client.Id() &&
            connection.dest.port == event.dest.port) {
            writers.Gone(event.dest.port, {connection.sender.client, connection.sender.port}, now);
        }
        return;
    }
    if (event.dest.port != kAnnouncePort) {
        return;
    }
    NoteConnections();
    switch (event.type) {
        case SND_SEQ_EVENT_PORT_SUBSCRIBED:
        case SND_SEQ_EVENT_PORT_UNSUBSCRIBED:
            if (connection.sender.client == client.Id() && IsInputPort(connection.sender.port)) {
                delivery.AskForReaders(connection.sender.port - kFirstInputPort);
            }
            break;
        case SND_SEQ_EVENT_PORT_EXIT:
        case SND_SEQ_EVENT_CLIENT_EXIT:
            if (event.type == SND_SEQ_EVENT_CLIENT_EXIT) {
                writers.ClientGone(event.data.addr.client, now);
            } else if (event.data.addr.client == client.Id()) {
                PortGone(event.data.addr.port, now);
            } else {
                writers.PortGone({event.data.addr.client, event.data.addr.port}, now);
            }
            for (int port = 0; port < kMaxPorts; ++port) {
                if (delivery.Reads(port, event.data.addr.client)) {
                    delivery.AskForReaders(port);
                }
            }
            break;
        default:
            break;
    }
}

// One of our own; its connections went with it.
void AlsaThread::PortGone(int number, std::uint64_t now) {
    if (IsInputPort(number)) {
        delivery.AskForReaders(number - kFirstInputPort);
    } else if (number < kMaxPorts) {
        writers.OutputGone(number, now);
    }
}

// Nanoseconds until something is to be done; kNoTimeout: only when something happens.
std::int64_t AlsaThread::NextTimeout() {
    if (limit.HasStopped()) {
        return 0;
    }
    std::optional<std::uint64_t> due = engine.NextDue();
    const std::uint64_t now = Now();
    if (due && *due <= takenUntil) {
        // A reader has no room; it does not say when it has.
        waitForRoom =
            delivery.HasDelivered() ? kFirstRetry : std::clamp(waitForRoom * 2, kFirstRetry, kLastRetry);
        due = now + waitForRoom;
    }
    if (const std::optional<std::uint64_t> look = delivery.NextLook()) {
        due = std::min(due.value_or(*look), *look);
    }
    if (!due) {
        return kNoTimeout;
    }
    return *due > now ? static_cast<std::int64_t>(*due - now) : 0;
}

// Whatever was posted since the cycle has begun is taken up before anything is waited for.
void AlsaThread::Wait() {
    const std::int64_t timeout = NextTimeout();
    if (const std::uint64_t rest = limit.End(); rest != 0) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(rest));
    }
    isWaiting.store(true);
    if (wakes.load() != seenWakes) {
        Poll(0);
    } else if (timeout != kNoTimeout) {
        Poll(timeout);
    } else {
        Read();
    }
    isWaiting.store(false);
}

void AlsaThread::Poll(std::int64_t timeout) {
    pollfd waited{client.Descriptor(), POLLIN, 0};
    timespec time{};
    time.tv_sec = timeout / static_cast<std::int64_t>(kSecond);
    time.tv_nsec = timeout % static_cast<std::int64_t>(kSecond);
    if (::ppoll(&waited, 1, &time, nullptr) > 0) {
        if ((waited.revents & POLLIN) != 0) {
            Read();
        } else {
            GiveUp(-EIO);
        }
    }
}

void AlsaThread::Read() {
    const int error = client.Read(lostEvents);
    if (error == -ENOSPC) {
        overflows.Add(1);
        RaiseChanged();
    } else if (error != 0 && error != -EINTR) {
        GiveUp(error);
    }
}

void AlsaThread::GiveUp(int error) {
    failure.store(error, std::memory_order_release);
    RaiseChanged();
}

void AlsaThread::NoteConnections() {
    if (!connectionsChanged.exchange(true)) {
        RaiseChanged();
    }
}

void AlsaThread::RaiseChanged() const {
    // A counter that is full is readable already.
    static_cast<void>(::eventfd_write(changedEvent, 1));
}

}  // namespace vexil
