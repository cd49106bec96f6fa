#include "driver/DriverOptions.h"

#include <cstring>

#include "driver/LittleEndian.h"

namespace vexil {

namespace {

constexpr std::uint8_t kAfSystem = 32;       // AF_SYSTEM
constexpr std::uint8_t kAfSysControl = 2;    // AF_SYS_CONTROL
constexpr std::size_t kCtlNameOffset = 4;    // ctl_info
constexpr std::size_t kControlIdOffset = 4;  // sockaddr_ctl
constexpr std::size_t kUnitOffset = 8;       // sockaddr_ctl

// Copies a name and its terminating zero; returns the place behind it.
std::uint8_t* PutName(std::uint8_t* bytes, const svString& name) {
    const auto length = static_cast<std::size_t>(name.GetLength()) + 1;
    std::memcpy(bytes, name.c_str(), length);
    return bytes + length;
}

}  // namespace

std::array<std::uint8_t, kCtlInfoSize> MakeCtlInfo(const char* controlName) {
    std::array<std::uint8_t, kCtlInfoSize> info{};
    std::memcpy(info.data() + kCtlNameOffset, controlName, strnlen(controlName, kCtlNameSize));
    return info;
}

std::uint32_t CtlInfoId(const std::array<std::uint8_t, kCtlInfoSize>& info) {
    return Uint32At(info.data());
}

std::array<std::uint8_t, kSockaddrCtlSize> MakeSockaddrCtl(std::uint32_t controlId, std::uint32_t unit) {
    std::array<std::uint8_t, kSockaddrCtlSize> address{};
    address[0] = kSockaddrCtlSize;
    address[1] = kAfSystem;
    address[2] = kAfSysControl;
    PutLittleEndian(address.data() + kControlIdOffset, controlId, 4);
    PutLittleEndian(address.data() + kUnitOffset, unit, 4);
    return address;
}

std::array<std::uint8_t, 4> MakeUint32(std::uint32_t value) {
    std::array<std::uint8_t, 4> bytes{};
    PutLittleEndian(bytes.data(), value, 4);
    return bytes;
}

std::uint32_t TestOutputRecordLength(const PortHosts& hosts) {
    return static_cast<std::uint32_t>(hosts.DstHost.GetLength()) +
           static_cast<std::uint32_t>(hosts.SrcHost.GetLength()) + 7;
}

void PutTestOutputRecord(std::uint8_t* record, int port, const PortEntry& entry, const PortHosts& hosts) {
    record[0] = entry.flags;
    record[1] = static_cast<std::uint8_t>(port);
    record[2] = entry.sourcePort;
    record[3] = entry.targetPort;
    std::uint8_t* end = PutName(PutName(record + 4, hosts.DstHost), hosts.SrcHost);
    // The record is one byte longer than its content; the driver ignores that byte. Cleared, so that no byte
    // of the heap leaves the program.
    *end = 0;
}

}  // namespace vexil
