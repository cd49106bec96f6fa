#include "platform/linux/desktop/LogindRestarter.h"

#include <systemd/sd-bus.h>

#include <cerrno>

namespace vexil {
namespace {

constexpr const char* kService = "org.freedesktop.login1";
constexpr const char* kObject = "/org/freedesktop/login1";
constexpr const char* kInterface = "org.freedesktop.login1.Manager";
// The panel asks once and does not prompt for a password: the request comes without a window of its own.
constexpr int kInteractive = 0;

// The library reports failures as negative errno values.
std::int32_t ErrorOf(int result) {
    return result < 0 ? -result : 0;
}

}  // namespace

void LogindRestarter::CloseBus::operator()(sd_bus* open) const {
    sd_bus_flush_close_unref(open);
}
void LogindRestarter::ReleaseMessage::operator()(sd_bus_message* message) const {
    sd_bus_message_unref(message);
}

LogindRestarter::LogindRestarter() = default;
// The message holds a reference to the connection, so it goes first.
LogindRestarter::~LogindRestarter() {
    event.reset();
}

std::int32_t LogindRestarter::MakeAddress() {
    event.reset();
    if (bus && sd_bus_is_open(bus.get()) > 0) {
        return 0;
    }
    bus.reset();
    sd_bus* opened = nullptr;
    const int result = sd_bus_open_system(&opened);
    if (result < 0) {
        return ErrorOf(result);
    }
    bus.reset(opened);
    return 0;
}

std::int32_t LogindRestarter::MakeEvent(std::uint32_t eventId) {
    event.reset();
    if (eventId != kAERestart) {
        return EINVAL;
    }
    if (!bus) {
        return ENOTCONN;
    }
    sd_bus_message* call = nullptr;
    int result = sd_bus_message_new_method_call(bus.get(), &call, kService, kObject, kInterface, "Reboot");
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
    if (!event) {
        return EINVAL;
    }
    const auto call = std::move(event);
    const int result = sd_bus_send(bus.get(), call.get(), nullptr);
    // The flush also finishes the connection's handshake, which is still under way when the call is queued.
    return ErrorOf(result < 0 ? result : sd_bus_flush(bus.get()));
}

}  // namespace vexil
