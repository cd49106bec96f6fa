// The payloads of the driver's options as the driver reads them: the counterpart of what
// driver/DriverOptions.h and driver/MidiPacketList.h build. Every byte of a payload has its place; one that
// is a byte too short or too long is malformed.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "service/routes/RouteTable.h"

namespace vexil {

// A 32-bit value, 4 bytes.
std::optional<std::uint32_t> ReadUint32Payload(std::span<const std::uint8_t> payload);

// The record of option 192.
struct TestOutputPayload {
    int port = 0;  // 0 to 63
    TestOutputRecord record;
};
// None for a port above 63 and for names that do not fill the payload but for its meaningless last byte.
std::optional<TestOutputPayload> ReadTestOutputPayload(std::span<const std::uint8_t> payload);

// The data of all packets of a packet list, one behind the other; their times are not looked at.
std::optional<std::vector<std::uint8_t>> ReadPacketListPayload(std::span<const std::uint8_t> payload);

}  // namespace vexil
