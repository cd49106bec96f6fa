#include "platform/linux/network/AvahiDiscovery.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "shared/System/Utf8.h"

namespace vexil {

namespace {

constexpr const char* kBusService = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kAvahi = "org.freedesktop.Avahi";
constexpr const char* kServerPath = "/";
constexpr const char* kServer = "org.freedesktop.Avahi.Server";
constexpr const char* kGroup = "org.freedesktop.Avahi.EntryGroup";
constexpr const char* kBrowser = "org.freedesktop.Avahi.ServiceBrowser";
constexpr const char* kCollision = "org.freedesktop.Avahi.CollisionError";

constexpr const char* kNotAnnounced = "Avahi does not announce this computer";
constexpr const char* kNotBrowsed = "Avahi does not look for other computers";

constexpr std::int32_t kAny = -1;  // interface or protocol
constexpr std::int32_t kServerRunning = 2;
constexpr std::int32_t kGroupCollision = 3;
constexpr std::int32_t kGroupFailure = 4;
constexpr std::uint32_t kLookUpNoText = 4;
constexpr std::uint32_t kResultIsLocal = 8;
constexpr std::uint32_t kResultIsOurOwn = 16;

constexpr std::size_t kLongestLabel = 63;
constexpr int kMostNames = 64;
// At once: the bus lets a client have so many calls and more.
constexpr int kMostLookUps = 16;

std::string_view TextOf(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

// The error of an answer; empty when the answer is good.
std::string ErrorOf(sd_bus_message* answer) {
    if (sd_bus_message_is_method_error(answer, nullptr) <= 0) {
        return "";
    }
    const sd_bus_error* const error = sd_bus_message_get_error(answer);
    const std::string_view text = TextOf(error == nullptr ? nullptr : error->message);
    return text.empty() ? "an error without a name" : std::string(text);
}

}  // namespace

AvahiDiscovery::AvahiDiscovery(std::chrono::milliseconds longestAnswer)
    : patience(longestAnswer), bus([this](sd_bus_message* signal) { TakeSignal(signal); }) {}

void AvahiDiscovery::Set(const std::optional<ServiceWish>& wanted) {
    if (wish == wanted) {
        return;
    }
    wish = wanted;
    // Avahi withdraws what a connection published when it ends.
    bus.Close();
    SetOwner("");
    SetState(State::Off);
    if (wish) {
        Connect();
    }
}

void AvahiDiscovery::Connect() {
    SetState(State::Waiting);
    if (!bus.Open()) {
        SetState(State::Missing);
        return;
    }
    for (const char* rule : {"type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
                             "member='NameOwnerChanged',arg0='org.freedesktop.Avahi'",
                             "type='signal',sender='org.freedesktop.Avahi',"
                             "interface='org.freedesktop.Avahi.Server',member='StateChanged'"}) {
        BusMessage call = bus.MakeCall(kBusService, kBusPath, kBusService, "AddMatch");
        if (call && sd_bus_message_append(call.get(), "s", rule) >= 0) {
            bus.Call(std::move(call), [](sd_bus_message* /*answer*/) {});
        }
    }
    BusMessage call = bus.MakeCall(kBusService, kBusPath, kBusService, "GetNameOwner");
    if (call && sd_bus_message_append(call.get(), "s", kAvahi) >= 0) {
        bus.Call(std::move(call), [this](sd_bus_message* answer) {
            const char* name = "";
            if (owner.empty() && sd_bus_message_is_method_error(answer, nullptr) <= 0 &&
                sd_bus_message_read(answer, "s", &name) >= 0) {
                SetOwner(name);
            } else if (owner.empty()) {
                SetState(State::Missing);
            }
        });
    }
}

void AvahiDiscovery::SetState(State next) {
    hasChanged = hasChanged || state != next;
    state = next;
}

void AvahiDiscovery::SetOwner(const std::string& name) {
    bus.ForgetCalls();
    owner = name;
    serverState = -1;
    group.clear();
    isGroupAsked = false;
    ++publishTurn;
    nameAttempt = 1;
    publishProblem.clear();
    browseProblem.clear();
    hasChanged = hasChanged || !items.empty();
    items.clear();
    toLookUp.clear();
    lookUps = 0;
    if (owner.empty()) {
        SetState(State::Missing);
        return;
    }
    SetState(State::Waiting);
    Browse();
    AskServerState();
}

BusMessage AvahiDiscovery::MakeServerCall(const char* member) {
    return bus.MakeCall(owner.c_str(), kServerPath, kServer, member);
}

BusMessage AvahiDiscovery::MakeGroupCall(const char* member) {
    return bus.MakeCall(owner.c_str(), group.c_str(), kGroup, member);
}

std::vector<std::int32_t> AvahiDiscovery::Interfaces() const {
    std::vector<std::int32_t> indices(wish->interfaces.begin(), wish->interfaces.end());
    if (indices.empty()) {
        indices.push_back(kAny);
    }
    return indices;
}

void AvahiDiscovery::Fail(std::string& problem, const char* what, const std::string& why) {
    problem = std::string(what) + ": " + why + ".";
    hasChanged = true;
}

void AvahiDiscovery::Browse() {
    for (const std::int32_t interface : Interfaces()) {
        BusMessage call = MakeServerCall("ServiceBrowserNew");
        if (!call || sd_bus_message_append(call.get(), "iissu", interface, kAny, wish->type.c_str(), "",
                                           std::uint32_t{0}) < 0) {
            return;
        }
        bus.Call(std::move(call), [this](sd_bus_message* answer) {
            const std::string error = ErrorOf(answer);
            if (error.empty()) {
                SetState(State::On);
            } else {
                Fail(browseProblem, kNotBrowsed, error);
            }
        });
    }
}

void AvahiDiscovery::AskServerState() {
    bus.Call(MakeServerCall("GetState"), [this](sd_bus_message* answer) {
        std::int32_t told = 0;
        if (sd_bus_message_is_method_error(answer, nullptr) <= 0 &&
            sd_bus_message_read(answer, "i", &told) >= 0) {
            TakeServerState(told);
        }
    });
}

// Until Avahi has a name for the computer, nothing can be published.
void AvahiDiscovery::TakeServerState(std::int32_t told) {
    if (std::exchange(serverState, told) == told) {
        return;
    }
    Withdraw();
    if (told == kServerRunning && !wish->name.empty()) {
        Publish();
    }
}

void AvahiDiscovery::Withdraw() {
    ++publishTurn;
    if (!group.empty()) {
        bus.Call(MakeGroupCall("Reset"), [](sd_bus_message* /*answer*/) {});
    }
}

void AvahiDiscovery::Publish() {
    if (!group.empty()) {
        FillGroup();
        return;
    }
    if (std::exchange(isGroupAsked, true)) {
        return;
    }
    bus.Call(MakeServerCall("EntryGroupNew"), [this](sd_bus_message* answer) {
        isGroupAsked = false;
        const char* path = "";
        const std::string error = ErrorOf(answer);
        if (!error.empty() || sd_bus_message_read(answer, "o", &path) < 0) {
            Fail(publishProblem, kNotAnnounced, error);
            return;
        }
        group = path;
        if (serverState == kServerRunning) {
            FillGroup();
        }
    });
}

void AvahiDiscovery::FillGroup() {
    const int turn = ++publishTurn;
    for (const std::int32_t interface : Interfaces()) {
        AddService(turn, interface, {wish->name, wish->port});
        for (const OfferedService& service : wish->further) {
            AddService(turn, interface, service);
        }
    }
    bus.Call(MakeGroupCall("Commit"), [](sd_bus_message* /*answer*/) {});
}

void AvahiDiscovery::AddService(int turn, std::int32_t interface, const OfferedService& service) {
    BusMessage call = MakeGroupCall("AddService");
    const std::string name = PublishedName(service.name);
    const std::string_view text = "txtvers=1";
    const bool isFilled =
        call &&
        sd_bus_message_append(call.get(), "iiussssq", interface, kAny, std::uint32_t{0}, name.c_str(),
                              wish->type.c_str(), "", "", service.port) >= 0 &&
        sd_bus_message_open_container(call.get(), 'a', "ay") >= 0 &&
        sd_bus_message_append_array(call.get(), 'y', text.data(), text.size()) >= 0 &&
        sd_bus_message_close_container(call.get()) >= 0;
    if (!isFilled) {
        // A name that is no text.
        Fail(publishProblem, kNotAnnounced, "its name cannot be told");
        return;
    }
    bus.Call(std::move(call), [this, turn](sd_bus_message* answer) {
        if (turn != publishTurn) {
            return;
        }
        if (sd_bus_message_is_method_error(answer, kCollision) > 0) {
            PublishAsAnother();
        } else if (const std::string error = ErrorOf(answer); !error.empty()) {
            Fail(publishProblem, kNotAnnounced, error);
        }
    });
}

// Two computers with one name: that of the service only shows, and one of them gets a number.
void AvahiDiscovery::PublishAsAnother() {
    Withdraw();
    if (nameAttempt == kMostNames) {
        Fail(publishProblem, kNotAnnounced, "its name is taken");
        return;
    }
    ++nameAttempt;
    Publish();
}

std::string AvahiDiscovery::PublishedName(const std::string& asWished) const {
    const std::string behind = nameAttempt == 1 ? "" : " #" + std::to_string(nameAttempt);
    std::string name;
    for (std::string_view left = asWished; !left.empty();) {
        std::string character = "?";  // the bus ends a connection that sends bytes that are no text
        if (const std::optional<char32_t> taken = TakeUtf8(left)) {
            character.clear();
            AppendUtf8(character, *taken);
        } else {
            left.remove_prefix(1);
        }
        if (name.size() + character.size() + behind.size() > kLongestLabel) {
            break;
        }
        name += character;
    }
    return name + behind;
}

void AvahiDiscovery::TakeSignal(sd_bus_message* signal) {
    if (sd_bus_message_is_signal(signal, kBusService, "NameOwnerChanged") > 0 &&
        TextOf(sd_bus_message_get_sender(signal)) == kBusService) {
        const char* name = "";
        const char* before = "";
        const char* now = "";
        if (sd_bus_message_read(signal, "sss", &name, &before, &now) >= 0 && TextOf(name) == kAvahi &&
            owner != now) {
            SetOwner(now);
        }
        return;
    }
    // Others may send signals, too.
    if (owner.empty() || TextOf(sd_bus_message_get_sender(signal)) != owner) {
        return;
    }
    std::int32_t told = 0;
    const char* why = "";
    if (sd_bus_message_is_signal(signal, kServer, "StateChanged") > 0) {
        if (sd_bus_message_read(signal, "is", &told, &why) >= 0) {
            TakeServerState(told);
        }
    } else if (sd_bus_message_is_signal(signal, kGroup, "StateChanged") > 0) {
        if (group != TextOf(sd_bus_message_get_path(signal)) ||
            sd_bus_message_read(signal, "is", &told, &why) < 0) {
            return;
        }
        if (told == kGroupCollision) {
            PublishAsAnother();
        } else if (told == kGroupFailure) {
            Fail(publishProblem, kNotAnnounced, why);
        }
    } else if (sd_bus_message_is_signal(signal, kBrowser, "ItemNew") > 0) {
        TakeItem(signal, true);
    } else if (sd_bus_message_is_signal(signal, kBrowser, "ItemRemove") > 0) {
        TakeItem(signal, false);
    } else if (sd_bus_message_is_signal(signal, kBrowser, "Failure") > 0) {
        if (sd_bus_message_read(signal, "s", &why) >= 0) {
            Fail(browseProblem, kNotBrowsed, why);
        }
    }
}

void AvahiDiscovery::TakeItem(sd_bus_message* signal, bool isNew) {
    Item item;
    const char* name = "";
    const char* type = "";
    const char* domain = "";
    if (sd_bus_message_read(signal, "iisss", &item.interface, &item.protocol, &name, &type, &domain) < 0 ||
        !wish || TextOf(type) != wish->type) {
        return;
    }
    item.name = name;
    item.domain = domain;
    if (!isNew) {
        const auto known = items.find(item);
        if (known != items.end()) {
            hasChanged = hasChanged || known->second.address.IsThere();
            items.erase(known);
        }
        return;
    }
    if (items.size() < kMostHints && items.emplace(item, Place{{}, true}).second) {
        toLookUp.push_back(std::move(item));
        LookUpNext();
    }
}

void AvahiDiscovery::LookUpNext() {
    while (!toLookUp.empty() && lookUps < kMostLookUps) {
        const Item item = std::move(toLookUp.front());
        toLookUp.pop_front();
        const auto known = items.find(item);
        if (known == items.end() || !known->second.waits) {
            continue;
        }
        BusMessage call = MakeServerCall("ResolveService");
        if (!call || sd_bus_message_append(call.get(), "iisssiu", item.interface, item.protocol,
                                           item.name.c_str(), wish->type.c_str(), item.domain.c_str(),
                                           item.protocol, kLookUpNoText) < 0) {
            continue;
        }
        ++lookUps;
        bus.Call(std::move(call), [this, item](sd_bus_message* answer) {
            --lookUps;
            TakeAddress(item, answer);
            LookUpNext();
        });
    }
}

void AvahiDiscovery::TakeAddress(const Item& item, sd_bus_message* answer) {
    const auto known = items.find(item);
    if (known == items.end()) {
        return;
    }
    known->second.waits = false;
    NetworkAddress next;
    std::int32_t interface = 0;
    const char* address = "";
    std::uint16_t port = 0;
    std::uint32_t flags = 0;
    // Who has a name may change while the browser goes on showing it, so only the look-up tells whose it is.
    if (sd_bus_message_is_method_error(answer, nullptr) <= 0 &&
        sd_bus_message_read(answer, "iissssisq", &interface, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, &address, &port) >= 0 &&
        sd_bus_message_skip(answer, "aay") >= 0 && sd_bus_message_read(answer, "u", &flags) >= 0 &&
        (flags & (kResultIsLocal | kResultIsOurOwn)) == 0) {
        const std::optional<NetworkAddress> read = ParseAddress(address);
        if (read && port != 0 && interface > 0) {
            next = read->WithPort(port).WithInterface(static_cast<std::uint32_t>(interface));
        }
    }
    hasChanged = hasChanged || known->second.address != next;
    known->second.address = next;
}

void AvahiDiscovery::LookAgain() {
    if (!wish) {
        return;
    }
    if (!bus.IsOpen()) {
        Connect();
        return;
    }
    if (owner.empty() || bus.Waiting()) {
        return;
    }
    // An answer, or that no answer comes, tells how it is.
    AskServerState();
    for (auto& [item, place] : items) {
        place.waits = true;
        toLookUp.push_back(item);
    }
    LookUpNext();
}

bool AvahiDiscovery::Serve() {
    if (bus.IsOpen() && !bus.Serve()) {
        SetOwner("");
    }
    return std::exchange(hasChanged, false);
}

std::vector<NetworkAddress> AvahiDiscovery::Hints() const {
    std::vector<NetworkAddress> hints;
    for (const auto& [item, place] : items) {
        if (place.address.IsThere()) {
            hints.push_back(place.address);
        }
    }
    std::sort(hints.begin(), hints.end());
    hints.erase(std::unique(hints.begin(), hints.end()), hints.end());
    return hints;
}

std::vector<FoundService> AvahiDiscovery::Found() const {
    std::vector<FoundService> found;
    for (const auto& [item, place] : items) {
        if (place.address.IsThere()) {
            found.push_back({item.name, place.address});
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

std::string AvahiDiscovery::Problem() const {
    if (state == State::Off) {
        return "";
    }
    if (state == State::Missing) {
        return "No Avahi; the driver's own questions find other computers.";
    }
    if (const auto waiting = bus.Waiting(); waiting && *waiting >= patience) {
        return "Avahi does not answer; the driver's own questions find other computers.";
    }
    return browseProblem.empty() ? publishProblem : browseProblem;
}

}  // namespace vexil
