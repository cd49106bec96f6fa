#include "tests/service/network/FakeAvahi.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <algorithm>
#include <string_view>

namespace vexil {

namespace {

constexpr const char* kName = "org.freedesktop.Avahi";
constexpr const char* kServer = "org.freedesktop.Avahi.Server";
constexpr const char* kGroup = "org.freedesktop.Avahi.EntryGroup";
constexpr const char* kBrowser = "org.freedesktop.Avahi.ServiceBrowser";
constexpr const char* kGroupPath = "/Client0/EntryGroup1";
constexpr const char* kBrowserPath = "/Client0/ServiceBrowser1";
constexpr int kIp4 = 0;
constexpr int kIp6 = 1;
constexpr int kAny = -1;
constexpr std::uint32_t kLocalAndOurOwn = 8 | 16;

bool Is(sd_bus_message* message, const char* interface, const char* member) {
    return sd_bus_message_is_method_call(message, interface, member) > 0;
}

}  // namespace

struct FakeAvahiCallbacks {
    static int Take(sd_bus_message* message, void* fake, sd_bus_error* /*error*/) {
        return static_cast<FakeAvahi*>(fake)->Take(message);
    }
};

FakeAvahi::FakeAvahi() {
    EXPECT_GE(sd_bus_open_system(&bus), 0);
    EXPECT_GE(sd_bus_add_filter(bus, nullptr, FakeAvahiCallbacks::Take, this), 0);
    // Who published withdraws it by going.
    EXPECT_GE(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "AddMatch", nullptr, nullptr, "s",
                                 "type='signal',member='NameOwnerChanged',arg2=''"),
              0);
    Come();
}

FakeAvahi::~FakeAvahi() {
    sd_bus_close_unref(bus);
}

void FakeAvahi::Work() {
    while (sd_bus_process(bus, nullptr) > 0) {
    }
}

void FakeAvahi::Come() {
    EXPECT_GE(sd_bus_request_name(bus, kName, 0), 0);
}

void FakeAvahi::Go() {
    client.clear();
    browsed.clear();
    added.reset();
    published.reset();
    EXPECT_GE(sd_bus_release_name(bus, kName), 0);
}

void FakeAvahi::Offer(const std::string& name, const NetworkAddress& address) {
    offers[name] = address;
    SayItem("ItemNew", name, static_cast<int>(address.interface));
}

void FakeAvahi::Withdraw(const std::string& name) {
    SayItem("ItemRemove", name, static_cast<int>(offers[name].interface));
    offers.erase(name);
}

void FakeAvahi::ChangeState(int next) {
    state = next;
    added.reset();
    EXPECT_GE(sd_bus_emit_signal(bus, "/", kServer, "StateChanged", "is", next, ""), 0);
}

void FakeAvahi::SayItem(const char* member, const std::string& name, int interface) const {
    for (const int each : browsed) {
        if (each == kAny || each == interface) {
            sd_bus_message* signal = nullptr;
            const int protocol =
                offers.contains(name) && offers.at(name).family == AddressFamily::V6 ? kIp6 : kIp4;
            EXPECT_GE(sd_bus_message_new_signal(bus, &signal, kBrowserPath, kBrowser, member), 0);
            EXPECT_GE(sd_bus_message_append(signal, "iisssu", interface, protocol, name.c_str(),
                                            browsedType.c_str(), "local", 0U),
                      0);
            EXPECT_GE(sd_bus_send_to(bus, signal, client.c_str(), nullptr), 0);
            sd_bus_message_unref(signal);
        }
    }
}

void FakeAvahi::SayNew(const std::string& name, int interface, const char* type, std::uint32_t flags) {
    Say(bus, name, interface, type, flags);
}

void FakeAvahi::SayNewAsAnother(const std::string& name, int interface) {
    sd_bus* another = nullptr;
    EXPECT_GE(sd_bus_open_system(&another), 0);
    Say(another, name, interface, kServiceType, 0);
    // Its answer comes after the bus has passed that on.
    EXPECT_GE(sd_bus_call_method(another, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
              0);
    sd_bus_close_unref(another);
}

void FakeAvahi::Say(sd_bus* speaker, const std::string& name, int interface, const char* type,
                    std::uint32_t flags) const {
    sd_bus_message* signal = nullptr;
    EXPECT_GE(sd_bus_message_new_signal(speaker, &signal, kBrowserPath, kBrowser, "ItemNew"), 0);
    EXPECT_GE(sd_bus_message_append(signal, "iisssu", interface, kIp4, name.c_str(), type, "local", flags),
              0);
    EXPECT_GE(sd_bus_send_to(speaker, signal, client.c_str(), nullptr), 0);
    sd_bus_message_unref(signal);
}

int FakeAvahi::TakeService(sd_bus_message* message) {
    int interface = 0;
    int protocol = 0;
    std::uint32_t flags = 0;
    const char* name = "";
    const char* type = "";
    const char* domain = "";
    const char* host = "";
    std::uint16_t port = 0;
    EXPECT_GE(sd_bus_message_read(message, "iiussssq", &interface, &protocol, &flags, &name, &type, &domain,
                                  &host, &port),
              0);
    EXPECT_EQ(type, browsedType);
    if (std::count(taken.begin(), taken.end(), name) > 0) {
        return sd_bus_reply_method_errorf(message, "org.freedesktop.Avahi.CollisionError",
                                          "Local name collision");
    }
    if (!added) {
        added = {name, port, {}, type, {}};
    } else if (added->name != name) {
        added->further.push_back({name, port});
    }
    if (interface != kAny && added->name == name) {
        added->interfaces.push_back(static_cast<std::uint32_t>(interface));
    }
    return sd_bus_reply_method_return(message, "");
}

int FakeAvahi::Resolve(sd_bus_message* message) const {
    int interface = 0;
    int protocol = 0;
    const char* name = "";
    ++resolved;
    EXPECT_GE(sd_bus_message_read(message, "iis", &interface, &protocol, &name), 0);
    const bool isOwn = published && published->name == name;
    const auto offer = offers.find(name);
    if (!isOwn && (offer == offers.end() || findsNothing)) {
        return sd_bus_reply_method_errorf(message, "org.freedesktop.Avahi.TimeoutError", "Timeout reached");
    }
    const NetworkAddress address = isOwn ? NetworkAddress::V4({10, 0, 0, 1}, published->port) : offer->second;
    const std::uint32_t flags = isOwn ? kLocalAndOurOwn : 0;
    sd_bus_message* answer = nullptr;
    EXPECT_GE(sd_bus_message_new_method_return(message, &answer), 0);
    EXPECT_GE(sd_bus_message_append(answer, "iissssisqaayu", interface, protocol, name, browsedType.c_str(),
                                    "local", "host.local", protocol, address.Text().c_str(), address.port, 0,
                                    flags),
              0);
    const int sent = sd_bus_send(bus, answer, nullptr);
    sd_bus_message_unref(answer);
    return sent < 0 ? sent : 1;
}

int FakeAvahi::Take(sd_bus_message* message) {
    if (sd_bus_message_is_signal(message, "org.freedesktop.DBus", "NameOwnerChanged") > 0) {
        const char* name = "";
        if (sd_bus_message_read(message, "s", &name) >= 0 && client == name) {
            client.clear();
            browsed.clear();
            added.reset();
            published.reset();
        }
        return 0;
    }
    std::uint8_t type = 0;
    sd_bus_message_get_type(message, &type);
    if (type != SD_BUS_MESSAGE_METHOD_CALL) {
        return 0;
    }
    const char* const sender = sd_bus_message_get_sender(message);
    if (Is(message, kServer, "ServiceBrowserNew")) {
        int interface = 0;
        int protocol = 0;
        const char* browsedFor = "";
        EXPECT_GE(sd_bus_message_read(message, "iis", &interface, &protocol, &browsedFor), 0);
        browsedType = browsedFor;
        client = sender;
        browsed.push_back(interface);
        const int sent = sd_bus_reply_method_return(message, "o", kBrowserPath);
        for (const auto& [name, address] : offers) {
            if (interface == kAny || interface == static_cast<int>(address.interface)) {
                const std::vector<int> before = browsed;
                browsed = {interface};
                SayItem("ItemNew", name, static_cast<int>(address.interface));
                browsed = before;
            }
        }
        return sent;
    }
    if (Is(message, kServer, "GetState")) {
        return sd_bus_reply_method_return(message, "i", state);
    }
    if (Is(message, kServer, "EntryGroupNew")) {
        return sd_bus_reply_method_return(message, "o", kGroupPath);
    }
    if (Is(message, kServer, "ResolveService")) {
        return Resolve(message);
    }
    if (Is(message, kGroup, "AddService")) {
        return TakeService(message);
    }
    if (Is(message, kGroup, "Commit")) {
        published = added;
        SayNew(published->name, 2, browsedType.c_str(), kLocalAndOurOwn);
        return sd_bus_reply_method_return(message, "");
    }
    if (Is(message, kGroup, "Reset")) {
        added.reset();
        published.reset();
        return sd_bus_reply_method_return(message, "");
    }
    return 0;
}

}  // namespace vexil
