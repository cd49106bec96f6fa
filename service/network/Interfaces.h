// Seam: the network interfaces of this computer that are up, and their addresses.
//
// One thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "service/network/NetworkAddress.h"

namespace vexil {

using HardwareAddress = std::array<std::uint8_t, 6>;

struct InterfaceAddress {
    NetworkAddress address;    // with the interface's index, without a port
    std::uint8_t prefix = 0;   // bits of the network
    NetworkAddress broadcast;  // IPv4 on a network that has one; else no address
    bool operator==(const InterfaceAddress&) const = default;
};

struct NetworkInterface {
    std::uint32_t index = 0;  // not 0; the system uses none twice while it runs
    std::string name;
    bool loopback = false;
    bool wireless = false;
    bool broadcasts = false;     // carries broadcasts; loopback does so for 127.255.255.255 alone
    bool multicasts = false;     // carries multicast
    HardwareAddress hardware{};  // zeros: it has none of this form
    std::vector<InterfaceAddress> addresses;  // those in use, in the order of the system
    bool operator==(const NetworkInterface&) const = default;
};

class Interfaces {
  public:
    virtual ~Interfaces() = default;

    // Readable when Take has something to take. -1 where the system cannot tell of changes: then the list
    // stays as it is.
    virtual int EventDescriptor() const = 0;

    // Takes what has happened since the last call; true when List has changed by it. Does not wait.
    virtual bool Take() = 0;

    // The interfaces that are up and carry (a cable without its other end does not count), in the order of
    // their indices; an interface without an address is among them. As of the making or of the last Take.
    virtual const std::vector<NetworkInterface>& List() const = 0;
};

// The interface with this index; null when it is not in the list.
const NetworkInterface* FindInterface(const std::vector<NetworkInterface>& list, std::uint32_t index);
const NetworkInterface* FindInterface(const std::vector<NetworkInterface>& list, const std::string& name);

// Whether an address is one of this computer's.
bool IsOwnAddress(const std::vector<NetworkInterface>& list, const NetworkAddress& address);

// Whether an address is on a network of one of these interfaces (of its own interface where it names one).
bool IsOnLink(const std::vector<NetworkInterface>& list, const NetworkAddress& address);

}  // namespace vexil
