#include "service/network/AccessRules.h"

#include <algorithm>

#include "service/network/PlainDatagram.h"
#include "service/routes/HostNames.h"

namespace vexil {

namespace {

constexpr std::size_t kShortKey = 8;

struct Network {
    std::array<std::uint8_t, 4> address;
    unsigned prefix;
};
// RFC 1918, and RFC 6598 for what a provider shares among its customers.
constexpr std::array<Network, 4> kPrivate = {
    {{{10, 0, 0, 0}, 8}, {{172, 16, 0, 0}, 12}, {{192, 168, 0, 0}, 16}, {{100, 64, 0, 0}, 10}}};

bool IsPrivate(const NetworkAddress& address) {
    if (address.family == AddressFamily::V6) {
        return (address.bytes[0] & 0xFE) == 0xFC;  // RFC 4193
    }
    return std::any_of(kPrivate.begin(), kPrivate.end(), [&address](const Network& network) {
        return address.IsWithin(NetworkAddress::V4(network.address), network.prefix);
    });
}

}  // namespace

std::string ShortKeyText(const KeyHash& key) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (std::size_t place = 0; place < kShortKey; ++place) {
        text += kDigits[key[place] >> 4];
        text += kDigits[key[place] & 0xF];
    }
    return text;
}

bool AccessRules::AdmitsAddress(const NetworkAddress& from) const {
    return from.IsThere() && !from.IsForMany() &&
           (from.IsLoopback() || from.IsLinkLocal() || IsPrivate(from) || IsOnLink(interfaces, from));
}

Refusal AccessRules::JudgeKey(const KeyHash& key) const {
    if (key == ownKey) {
        return Refusal::SameKey;
    }
    const bool isKnown = std::any_of(list.pins.begin(), list.pins.end(),
                                     [&key](const RememberedKey& pin) { return pin.key == key; });
    if (IsBlocked(key) || (list.allowed == Allowed::Known && !isKnown)) {
        return Refusal::NotAllowed;
    }
    return list.allowed == Allowed::Secret && !hasSecret ? Refusal::SecretNeeded : Refusal::None;
}

Refusal AccessRules::JudgeName(std::string_view name, const KeyHash& key) const {
    return HasPin(name) && !IsPinned(name, ComputerIdOf(key)) ? Refusal::OtherKey : Refusal::None;
}

bool AccessRules::IsPinned(std::string_view name, const ComputerId& id) const {
    const std::string folded = FoldHostName(name);
    return std::any_of(list.pins.begin(), list.pins.end(), [&](const RememberedKey& pin) {
        return ComputerIdOf(pin.key) == id && FoldHostName(pin.name) == folded;
    });
}

bool AccessRules::HasPin(std::string_view name) const {
    const std::string folded = FoldHostName(name);
    return std::any_of(list.pins.begin(), list.pins.end(),
                       [&folded](const RememberedKey& pin) { return FoldHostName(pin.name) == folded; });
}

bool AccessRules::IsBlocked(const KeyHash& key) const {
    return std::any_of(list.blocked.begin(), list.blocked.end(),
                       [&key](const RememberedKey& blocked) { return blocked.key == key; });
}

bool AccessRules::PinFirst(std::string_view name, const KeyHash& key, std::uint64_t since) {
    return !HasPin(name) && Pin(name, key, since);
}

bool AccessRules::Pin(std::string_view name, const KeyHash& key, std::uint64_t since) {
    if (!IsComputerName(name) || IsPinned(name, ComputerIdOf(key)) ||
        list.pins.size() >= kMostRememberedKeys) {
        return false;
    }
    list.pins.push_back({key, std::string(name), since});
    return true;
}

bool AccessRules::Forget(std::string_view name) {
    const std::string folded = FoldHostName(name);
    return std::erase_if(list.pins, [&folded](const RememberedKey& pin) {
               return FoldHostName(pin.name) == folded;
           }) > 0;
}

bool AccessRules::Block(std::string_view name, const KeyHash& key, std::uint64_t since) {
    if (!IsComputerName(name) || IsBlocked(key) || list.blocked.size() >= kMostRememberedKeys) {
        return false;
    }
    list.blocked.push_back({key, std::string(name), since});
    std::erase_if(list.pins, [&key](const RememberedKey& pin) { return pin.key == key; });
    return true;
}

bool AccessRules::Unblock(const KeyHash& key) {
    return std::erase_if(list.blocked, [&key](const RememberedKey& blocked) { return blocked.key == key; }) >
           0;
}

}  // namespace vexil
