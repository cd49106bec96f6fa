#include "service/network/Interfaces.h"

#include <algorithm>

namespace vexil {

namespace {

template <class Test>
bool AnyAddress(const std::vector<NetworkInterface>& list, std::uint32_t index, const Test& test) {
    return std::any_of(list.begin(), list.end(), [&](const NetworkInterface& interface) {
        return (index == 0 || interface.index == index) &&
               std::any_of(interface.addresses.begin(), interface.addresses.end(), test);
    });
}

}  // namespace

const NetworkInterface* FindInterface(const std::vector<NetworkInterface>& list, std::uint32_t index) {
    const auto found = std::find_if(list.begin(), list.end(), [index](const NetworkInterface& interface) {
        return interface.index == index;
    });
    return found == list.end() ? nullptr : &*found;
}

const NetworkInterface* FindInterface(const std::vector<NetworkInterface>& list, const std::string& name) {
    const auto found = std::find_if(list.begin(), list.end(), [&name](const NetworkInterface& interface) {
        return interface.name == name;
    });
    return found == list.end() ? nullptr : &*found;
}

bool IsOwnAddress(const std::vector<NetworkInterface>& list, const NetworkAddress& address) {
    return AnyAddress(list, 0, [&address](const InterfaceAddress& own) {
        // Of 127.0.0.0/8 every address is this computer's.
        const bool isWholeNet = own.address.family == AddressFamily::V4 && own.address.IsLoopback();
        return own.address.IsSameHost(address) || (isWholeNet && address.IsWithin(own.address, own.prefix));
    });
}

bool IsOnLink(const std::vector<NetworkInterface>& list, const NetworkAddress& address) {
    return AnyAddress(list, address.interface, [&address](const InterfaceAddress& own) {
        return address.IsWithin(own.address, own.prefix);
    });
}

}  // namespace vexil
