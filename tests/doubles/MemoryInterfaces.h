// Interfaces in memory: Set stands for what happens to cables and addresses.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "service/network/Interfaces.h"
#include "shared/System/Descriptor.h"

namespace vexil {

// An interface with one address, as tests need it: "192.168.1.5" with 24.
inline NetworkInterface MakeInterface(std::uint32_t index, const std::string& name,
                                      const std::string& address, std::uint8_t prefix) {
    NetworkInterface interface;
    interface.index = index;
    interface.name = name;
    interface.broadcasts = true;
    interface.multicasts = true;
    interface.hardware = {2, 0, 0, 0, 0, static_cast<std::uint8_t>(index)};
    InterfaceAddress own;
    own.address = ParseAddress(address).value_or(NetworkAddress()).WithInterface(index);
    own.prefix = prefix;
    interface.loopback = own.address.IsLoopback();
    interface.addresses.push_back(own);
    return interface;
}

class MemoryInterfaces : public Interfaces {
  public:
    explicit MemoryInterfaces(std::vector<NetworkInterface> first = {})
        : actual(first), list(std::move(first)) {
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
            reading = Descriptor(ends[0]);
            writing = Descriptor(ends[1]);
        }
    }

    // The interfaces are these from now on. A full pipe has told of it already.
    void Set(std::vector<NetworkInterface> now) {
        actual = std::move(now);
        static_cast<void>(!write(writing.Number(), "x", 1));
    }
    const std::vector<NetworkInterface>& Actual() const { return actual; }

    int EventDescriptor() const override { return reading.Number(); }
    bool Take() override {
        std::array<char, 64> buffer{};
        while (read(reading.Number(), buffer.data(), buffer.size()) > 0) {
        }
        const std::vector<NetworkInterface> before = std::exchange(list, actual);
        return before != list;
    }
    const std::vector<NetworkInterface>& List() const override { return list; }

  private:
    std::vector<NetworkInterface> actual;
    std::vector<NetworkInterface> list;
    Descriptor reading;
    Descriptor writing;
};

}  // namespace vexil
