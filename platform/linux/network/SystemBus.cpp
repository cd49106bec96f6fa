#include "platform/linux/network/SystemBus.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace vexil {

namespace {

// Whoever sends without end does not keep this thread from everything else.
constexpr int kMostAtOnce = 64;
// An answer that never comes costs nothing, and one that comes late is still good.
constexpr std::uint64_t kNoTimeout = UINT64_MAX;
constexpr std::uint64_t kMicrosecondsPerSecond = 1'000'000;

}  // namespace

// What the library calls.
struct BusCallbacks {
    static int TakeMessage(sd_bus_message* message, void* bus, sd_bus_error* /*error*/) {
        std::uint8_t type = 0;
        if (sd_bus_message_get_type(message, &type) >= 0 && type == SD_BUS_MESSAGE_SIGNAL) {
            static_cast<const SystemBus*>(bus)->handler(message);
        }
        return 0;
    }
    static int TakeAnswer(sd_bus_message* message, void* call, sd_bus_error* /*error*/) {
        auto* const calling = static_cast<SystemBus::Calling*>(call);
        const SystemBus::Handler answered = std::move(calling->answered);
        sd_bus_slot_unref(calling->slot);
        calling->owner->calls.erase(calling->place);
        answered(message);
        return 0;
    }
};

void ReleaseBusMessage::operator()(sd_bus_message* message) const {
    sd_bus_message_unref(message);
}

// What is still to be sent is dropped: flushing would wait for the bus.
void SystemBus::CloseBus::operator()(sd_bus* open) const {
    sd_bus_close_unref(open);
}

SystemBus::SystemBus(Handler signalHandler)
    : handler(std::move(signalHandler)),
      events(epoll_create1(EPOLL_CLOEXEC)),
      timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(events.Number(), EPOLL_CTL_ADD, timer.Number(), &event);
}

SystemBus::~SystemBus() {
    Close();
}

bool SystemBus::Open() {
    Close();
    sd_bus* opened = nullptr;
    if (sd_bus_open_system(&opened) < 0) {
        return false;
    }
    bus.reset(opened);
    epoll_event event{};
    const bool isWatched = sd_bus_add_filter(opened, nullptr, BusCallbacks::TakeMessage, this) >= 0 &&
                           epoll_ctl(events.Number(), EPOLL_CTL_ADD, sd_bus_get_fd(opened), &event) == 0;
    if (!isWatched) {
        Close();
        return false;
    }
    Arm();
    return true;
}

void SystemBus::Close() {
    ForgetCalls();
    if (bus) {
        epoll_ctl(events.Number(), EPOLL_CTL_DEL, sd_bus_get_fd(bus.get()), nullptr);
        bus.reset();
    }
    const itimerspec never{};
    timerfd_settime(timer.Number(), 0, &never, nullptr);
}

// Has the descriptor tell of what the library waits for.
void SystemBus::Arm() {
    epoll_event event{};
    event.events = static_cast<std::uint32_t>(std::max(sd_bus_get_events(bus.get()), 0));
    epoll_ctl(events.Number(), EPOLL_CTL_MOD, sd_bus_get_fd(bus.get()), &event);
    itimerspec when{};
    std::uint64_t at = 0;
    if (sd_bus_get_timeout(bus.get(), &at) > 0 && at != UINT64_MAX) {
        const std::uint64_t time = std::max<std::uint64_t>(at, 1);  // 0 would stop the timer
        when.it_value.tv_sec = static_cast<time_t>(time / kMicrosecondsPerSecond);
        when.it_value.tv_nsec = static_cast<long>(time % kMicrosecondsPerSecond * 1000);
    }
    timerfd_settime(timer.Number(), TFD_TIMER_ABSTIME, &when, nullptr);
}

bool SystemBus::Serve() {
    for (int count = 0; bus && count < kMostAtOnce; ++count) {
        // The connection is held until the library has done with it, whatever a handler does.
        sd_bus* const served = sd_bus_ref(bus.get());
        const int result = sd_bus_process(served, nullptr);
        const bool hasEnded = result < 0 || sd_bus_is_open(served) <= 0;
        const bool isCurrent = bus.get() == served;
        sd_bus_unref(served);
        if (hasEnded && isCurrent) {
            Close();
            return false;
        }
        if (result == 0) {
            break;
        }
    }
    if (bus) {
        Arm();
    }
    return true;
}

BusMessage SystemBus::MakeCall(const char* service, const char* path, const char* interface,
                               const char* member) {
    sd_bus_message* call = nullptr;
    if (!bus || sd_bus_message_new_method_call(bus.get(), &call, service, path, interface, member) < 0) {
        return nullptr;
    }
    // A service that its user has switched off stays so.
    sd_bus_message_set_auto_start(call, 0);
    return BusMessage(call);
}

void SystemBus::Call(BusMessage call, Handler answered) {
    if (!bus || !call) {
        return;
    }
    calls.push_back({this, nullptr, std::move(answered), Clock::now(), {}});
    Calling& calling = calls.back();
    calling.place = std::prev(calls.end());
    if (sd_bus_call_async(bus.get(), &calling.slot, call.get(), BusCallbacks::TakeAnswer, &calling,
                          kNoTimeout) < 0) {
        calls.pop_back();
    }
    Arm();
}

void SystemBus::ForgetCalls() {
    for (const Calling& calling : calls) {
        sd_bus_slot_unref(calling.slot);
    }
    calls.clear();
}

std::optional<std::chrono::milliseconds> SystemBus::Waiting() const {
    if (calls.empty()) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - calls.front().since);
}

}  // namespace vexil
