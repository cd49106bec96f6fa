#include "platform/linux/desktop/SessionInstance.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace vexil {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kName = "com.sonavert.vexil3";
constexpr const char* kObject = "/com/sonavert/vexil3";
// Of the interface by which desktops talk to programs, the one method that a program without arguments needs.
constexpr const char* kInterface = "org.freedesktop.Application";
constexpr const char* kMethod = "Activate";
constexpr const char* kStartupIdKey = "desktop-startup-id";
constexpr const char* kActivationKey = "activation-token";

// Between two questions to a panel that is just starting or ending.
constexpr milliseconds kPause{20};

std::string Variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::uint64_t Microseconds(steady_clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline - steady_clock::now()).count();
    // The library takes 0 for its own, long time.
    return static_cast<std::uint64_t>(std::max<std::int64_t>(left, 1));
}

int AppendText(sd_bus_message* call, const char* key, const std::string& text) {
    return text.empty() ? 0 : sd_bus_message_append(call, "{sv}", key, "s", text.c_str());
}

int AppendTokens(sd_bus_message* call, const LaunchTokens& tokens) {
    int result = sd_bus_message_open_container(call, SD_BUS_TYPE_ARRAY, "{sv}");
    if (result >= 0) {
        result = AppendText(call, kStartupIdKey, tokens.startupId);
    }
    if (result >= 0) {
        result = AppendText(call, kActivationKey, tokens.activation);
    }
    return result < 0 ? result : sd_bus_message_close_container(call);
}

int ReadToken(sd_bus_message* call, LaunchTokens& tokens) {
    const char* key = nullptr;
    int result = sd_bus_message_read_basic(call, SD_BUS_TYPE_STRING, &key);
    if (result < 0) {
        return result;
    }
    std::string* token = nullptr;
    if (std::strcmp(key, kStartupIdKey) == 0) {
        token = &tokens.startupId;
    } else if (std::strcmp(key, kActivationKey) == 0) {
        token = &tokens.activation;
    }
    const char* type = nullptr;
    result = sd_bus_message_peek_type(call, nullptr, &type);
    if (result < 0) {
        return result;
    }
    if (token == nullptr || std::strcmp(type, "s") != 0) {
        return sd_bus_message_skip(call, "v");
    }
    const char* text = nullptr;
    result = sd_bus_message_read(call, "v", "s", &text);
    if (result >= 0) {
        *token = text;
    }
    return result;
}

int ReadTokens(sd_bus_message* call, LaunchTokens& tokens) {
    int result = sd_bus_message_enter_container(call, SD_BUS_TYPE_ARRAY, "{sv}");
    while (result >= 0) {
        result = sd_bus_message_enter_container(call, SD_BUS_TYPE_DICT_ENTRY, "sv");
        if (result <= 0) {
            return result;
        }
        result = ReadToken(call, tokens);
        if (result >= 0) {
            result = sd_bus_message_exit_container(call);
        }
    }
    return result;
}

}  // namespace

LaunchTokens CurrentLaunchTokens() {
    return {Variable("DESKTOP_STARTUP_ID"), Variable("XDG_ACTIVATION_TOKEN")};
}

struct SessionInstance::Object {
    static int Activate(sd_bus_message* call, void* self, sd_bus_error* error) {
        const auto& instance = *static_cast<SessionInstance*>(self);
        LaunchTokens tokens;
        const int result = ReadTokens(call, tokens);
        if (result < 0) {
            return result;  // the library answers with it
        }
        if (instance.asked == nullptr || !(*instance.asked)(tokens)) {
            return sd_bus_error_set(error, SD_BUS_ERROR_NOT_SUPPORTED, "There is no window now.");
        }
        return sd_bus_reply_method_return(call, "");
    }

    static constexpr sd_bus_vtable kMethods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD(kMethod, "a{sv}", "", Activate, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
    };
};

void SessionInstance::CloseBus::operator()(sd_bus* open) const {
    sd_bus_close_unref(open);
}
void SessionInstance::FreeSlot::operator()(sd_bus_slot* slot) const {
    sd_bus_slot_unref(slot);
}

SessionInstance::SessionInstance() = default;
SessionInstance::~SessionInstance() = default;

SessionInstance::Start SessionInstance::Enter(const LaunchTokens& tokens, milliseconds patience) {
    const Deadline deadline = steady_clock::now() + patience;
    if (!Connect(deadline)) {
        return Start::Alone;
    }
    // A panel that is ending loses the name, one that is starting answers in a moment: both are asked again.
    while (!TakeName(false)) {
        if (Ask(tokens, deadline)) {
            return Start::Second;
        }
        if (steady_clock::now() >= deadline) {
            TakeName(true);
            break;
        }
        std::this_thread::sleep_for(kPause);
    }
    return Start::Alone;
}

// The library's own connecting waits for a minute and a half where something listens but does not answer.
bool SessionInstance::Connect(Deadline deadline) {
    sd_bus* opened = nullptr;
    if (sd_bus_open_user(&opened) < 0) {
        return false;
    }
    bus.reset(opened);
    while (sd_bus_is_ready(opened) == 0) {
        int result = sd_bus_process(opened, nullptr);
        if (result == 0) {
            result = sd_bus_wait(opened, Microseconds(deadline));
        }
        if (result < 0 && result != -EINTR) {
            break;
        }
        if (steady_clock::now() >= deadline) {
            busIsSilent = sd_bus_is_ready(opened) == 0;
            break;
        }
    }
    sd_bus_slot* slot = nullptr;
    if (sd_bus_is_ready(opened) > 0 && sd_bus_set_method_call_timeout(opened, Microseconds(deadline)) >= 0 &&
        sd_bus_add_object_vtable(opened, &slot, kObject, kInterface, Object::kMethods, this) >= 0) {
        object.reset(slot);
        return true;
    }
    bus.reset();
    return false;
}

// Every panel lets the next one take the name from it, which happens only when it has not answered.
bool SessionInstance::TakeName(bool fromAnother) {
    const std::uint64_t flags =
        SD_BUS_NAME_ALLOW_REPLACEMENT | (fromAnother ? SD_BUS_NAME_REPLACE_EXISTING : 0);
    const int result = sd_bus_request_name(bus.get(), kName, flags);
    return result >= 0 || result == -EALREADY;
}

bool SessionInstance::Ask(const LaunchTokens& tokens, Deadline deadline) {
    sd_bus_message* call = nullptr;
    if (sd_bus_message_new_method_call(bus.get(), &call, kName, kObject, kInterface, kMethod) < 0) {
        return false;
    }
    const std::unique_ptr<sd_bus_message, decltype(&sd_bus_message_unref)> owned(call, sd_bus_message_unref);
    return sd_bus_message_set_auto_start(call, 0) >= 0 && AppendTokens(call, tokens) >= 0 &&
           sd_bus_call(bus.get(), call, Microseconds(deadline), nullptr, nullptr) >= 0;
}

int SessionInstance::Descriptor() const {
    return bus ? sd_bus_get_fd(bus.get()) : -1;
}

bool SessionInstance::Dispatch(const std::function<bool(const LaunchTokens&)>& comeToFront) {
    if (!bus) {
        return false;
    }
    asked = &comeToFront;
    int result = 0;
    do {
        result = sd_bus_process(bus.get(), nullptr);
    } while (result > 0);
    asked = nullptr;
    return result >= 0;
}

}  // namespace vexil
