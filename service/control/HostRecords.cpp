#include "service/control/HostRecords.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>

#include "driver/DriverOptions.h"
#include "shared/System/Descriptor.h"

namespace vexil {

namespace {

using Address = std::array<std::uint8_t, 4>;

struct FreeInterfaces {
    void operator()(ifaddrs* first) const { freeifaddrs(first); }
};

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    const bool has = gethostname(name.data(), name.size() - 1) == 0 && name[0] != '\0';
    return has ? name.data() : "localhost";
}

std::optional<Address> Ipv4(const sockaddr* address) {
    if (address == nullptr || address->sa_family != AF_INET) {
        return std::nullopt;
    }
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, address, sizeof ipv4);
    Address bytes{};
    std::memcpy(bytes.data(), &ipv4.sin_addr, bytes.size());
    return bytes;
}

// The address from which this computer would send to the world. Connecting a UDP socket sends nothing; the
// destination is of a block that is kept for documentation.
std::optional<Address> OutwardAddress() {
    const Descriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in world{};
    world.sin_family = AF_INET;
    world.sin_port = htons(9);
    world.sin_addr.s_addr = htonl(0xC0000201);  // 192.0.2.1
    if (!probe.IsOpen() ||
        connect(probe.Number(), reinterpret_cast<const sockaddr*>(&world), sizeof world) != 0) {
        return std::nullopt;
    }
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    if (getsockname(probe.Number(), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
        return std::nullopt;
    }
    return Ipv4(reinterpret_cast<const sockaddr*>(&own));
}

bool IsCandidate(const ifaddrs& interface) {
    constexpr unsigned kWanted = IFF_UP | IFF_RUNNING;
    return (interface.ifa_flags & kWanted) == kWanted && (interface.ifa_flags & IFF_LOOPBACK) == 0 &&
           Ipv4(interface.ifa_addr).has_value();
}

void TakeHardwareAddress(const ifaddrs* first, const char* name, HostRecord& host) {
    for (const ifaddrs* interface = first; interface != nullptr; interface = interface->ifa_next) {
        if (interface->ifa_addr == nullptr || interface->ifa_addr->sa_family != AF_PACKET ||
            std::strcmp(interface->ifa_name, name) != 0) {
            continue;
        }
        sockaddr_ll link{};
        std::memcpy(&link, interface->ifa_addr, sizeof link);
        if (link.sll_halen == host.hardware.size()) {
            std::copy_n(link.sll_addr, host.hardware.size(), host.hardware.begin());
        }
    }
}

template <class Value>
void Put(std::vector<std::uint8_t>& bytes, char tag, const Value& value) {
    bytes.push_back(static_cast<std::uint8_t>(tag));
    std::copy(value.begin(), value.end(), std::back_inserter(bytes));
}

bool IsControlByte(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

// In UTF-8 the second block of control characters is C2 80 to C2 9F.
bool HoldsControlCharacter(const std::string& name) {
    unsigned char before = 0;
    for (const char character : name) {
        const auto byte = static_cast<unsigned char>(character);
        if (IsControlByte(byte) || (before == 0xC2 && byte >= 0x80 && byte < 0xA0)) {
            return true;
        }
        before = byte;
    }
    return false;
}

}  // namespace

std::vector<std::uint8_t> MakeHostRecords(const std::vector<HostRecord>& hosts) {
    std::vector<std::uint8_t> list;
    for (const HostRecord& host : hosts) {
        if (HoldsControlCharacter(host.name)) {
            continue;
        }
        std::vector<std::uint8_t> record;
        Put(record, 'N', host.name);
        record.push_back(0);
        Put(record, 'A', host.address);
        record.push_back(static_cast<std::uint8_t>(host.port >> 8));
        record.push_back(static_cast<std::uint8_t>(host.port));
        Put(record, 'L', host.hardware);
        Put(record, 'E', std::array<std::uint8_t, 2>{static_cast<std::uint8_t>(host.enabled ? 1 : 0), 0});
        if (list.size() + record.size() + 1 <= kHostInfosSize) {
            list.insert(list.end(), record.begin(), record.end());
        }
    }
    list.push_back(0);
    return list;
}

HostRecord LookUpThisComputer() {
    HostRecord host;
    host.name = HostName();
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return host;  // its addresses are unknown
    }
    const std::unique_ptr<ifaddrs, FreeInterfaces> interfaces(list);
    const std::optional<Address> outward = OutwardAddress();
    const ifaddrs* chosen = nullptr;
    for (const ifaddrs* interface = list; interface != nullptr; interface = interface->ifa_next) {
        if (IsCandidate(*interface) && (chosen == nullptr || Ipv4(interface->ifa_addr) == outward)) {
            chosen = interface;
        }
    }
    if (chosen != nullptr) {
        host.address = *Ipv4(chosen->ifa_addr);
        TakeHardwareAddress(list, chosen->ifa_name, host);
    }
    return host;
}

std::string AddressText(const HostRecord& host) {
    std::array<char, INET_ADDRSTRLEN> text{};
    const bool isKnown = host.address != Address{};
    return isKnown && inet_ntop(AF_INET, host.address.data(), text.data(), text.size()) != nullptr
               ? text.data()
               : "";
}

std::string HardwareText(const HostRecord& host) {
    if (host.hardware == std::array<std::uint8_t, 6>{}) {
        return "";
    }
    std::array<char, 18> text{};
    const auto& bytes = host.hardware;
    std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    return text.data();
}

}  // namespace vexil
