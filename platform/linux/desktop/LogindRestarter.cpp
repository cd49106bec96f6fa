#include "platform/linux/desktop/LogindRestarter.h"

#include <poll.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <utility>

namespace vexil {
namespace {

constexpr const char* kLogindService = "org.freedesktop.login1";
constexpr const char* kLogindObject = "/org/freedesktop/login1";
constexpr const char* kLogindInterface = "org.freedesktop.login1.Manager";
// The panel asks once and does not prompt for a password: the request comes without a window of its own.
constexpr int kInteractive = 0;
constexpr std::chrono::milliseconds kPatience{2000};

// The library reports failures as negative errno values.
std::int32_t ErrorOf(int result) {
    return result < 0 ? -result : 0;
}

}  // namespace

void PollDescriptor(int descriptor, short events, std::chrono::milliseconds atMost) {
    pollfd waiting{descriptor, events, 0};
    poll(&waiting, 1, static_cast<int>(atMost.count()));
}

// What is still to be sent is dropped: flushing would wait for the bus, and it was given up.
void LogindRestarter::CloseBus::operator()(sd_bus* open) const {
    sd_bus_close_unref(open);
}
void LogindRestarter::ReleaseMessage::operator()(sd_bus_message* message) const {
    sd_bus_message_unref(message);
}

LogindRestarter::LogindRestarter(DescriptorWait waitFor) : wait(std::move(waitFor)) {}
// The message holds a reference to the connection, so it goes first.
LogindRestarter::~LogindRestarter() {
    event.reset();
}

std::int32_t LogindRestarter::MakeAddress() {
    if (waiting) {
        return EALREADY;
    }
    event.reset();
    deadline = std::chrono::steady_clock::now() + kPatience;
    if (bus && sd_bus_is_ready(bus.get()) > 0) {
        return 0;
    }
    sd_bus* opened = nullptr;
    std::int32_t error = ErrorOf(sd_bus_open_system(&opened));
    bus.reset(opened);
    if (error == 0) {
        error = AwaitBus([this] { return sd_bus_is_ready(bus.get()) > 0; });
    }
    if (error != 0) {
        bus.reset();
    }
    return error;
}

std::int32_t LogindRestarter::MakeEvent(std::uint32_t eventId) {
    if (waiting) {
        return EALREADY;
    }
    event.reset();
    if (eventId != kAERestart) {
        return EINVAL;
    }
    if (!bus) {
        return ENOTCONN;
    }
    sd_bus_message* call = nullptr;
    int result = sd_bus_message_new_method_call(bus.get(), &call, kLogindService, kLogindObject,
                                                kLogindInterface, "Reboot");
    if (result < 0) {
        return ErrorOf(result);
    }
    event.reset(call);
    result = sd_bus_message_append(call, "b", kInteractive);
    if (result >= 0) {
        result = sd_bus_message_set_expect_reply(call, 0);
    }
    if (result < 0) {
        event.reset();
    }
    return ErrorOf(result);
}

std::int32_t LogindRestarter::SendEvent() {
    if (waiting) {
        return EALREADY;
    }
    if (!event) {
        return EINVAL;
    }
    const int result = sd_bus_send(bus.get(), event.get(), nullptr);
    event.reset();
    const std::int32_t error = result < 0 ? ErrorOf(result) : AwaitBus([this] {
        std::uint64_t unsent = 0;
        return sd_bus_get_n_queued_write(bus.get(), &unsent) >= 0 && unsent == 0;
    });
    if (error != 0) {
        bus.reset();  // or a request that was reported as failed could go out later
    }
    return error;
}

// Lets the connection work until `done`, or the request's time is over.
std::int32_t LogindRestarter::AwaitBus(const std::function<bool()>& done) {
    while (!done()) {
        const int result = sd_bus_process(bus.get(), nullptr);
        if (result < 0) {
            return ErrorOf(result);
        }
        if (result > 0) {
            continue;
        }
        const std::chrono::milliseconds left(MillisecondsUntil(deadline));
        const int events = sd_bus_get_events(bus.get());
        if (left.count() == 0 || events < 0) {
            return left.count() == 0 ? ETIMEDOUT : ErrorOf(events);
        }
        waiting = true;
        wait(sd_bus_get_fd(bus.get()), static_cast<short>(events), left);
        waiting = false;
    }
    return 0;
}

}  // namespace vexil
