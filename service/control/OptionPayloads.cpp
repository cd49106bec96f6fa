#include "service/control/OptionPayloads.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "driver/LittleEndian.h"
#include "driver/MidiPacketList.h"

namespace vexil {

namespace {

constexpr std::size_t kEntrySize = 4;
constexpr std::size_t kTrailingSize = 1;  // the record's last byte, which carries no meaning
constexpr std::size_t kLengthOffset = 8;  // in a packet's header, behind its time

// A zero-terminated name at the front of `bytes`, which is moved behind it; null where there is no zero.
std::optional<std::string> TakeName(std::span<const std::uint8_t>& bytes) {
    const auto end = std::find(bytes.begin(), bytes.end(), std::uint8_t{0});
    if (end == bytes.end()) {
        return std::nullopt;
    }
    std::string name(bytes.begin(), end);
    bytes = bytes.subspan(name.size() + 1);
    return name;
}

}  // namespace

std::optional<std::uint32_t> ReadUint32Payload(std::span<const std::uint8_t> payload) {
    return payload.size() == 4 ? std::optional(Uint32At(payload.data())) : std::nullopt;
}

std::optional<TestOutputPayload> ReadTestOutputPayload(std::span<const std::uint8_t> payload) {
    if (payload.size() < kEntrySize || payload[1] >= kMaxPorts) {
        return std::nullopt;
    }
    TestOutputPayload test;
    test.port = payload[1];
    test.record.entry.flags = payload[0];
    test.record.entry.sourcePort = payload[2];
    test.record.entry.targetPort = payload[3];
    std::span<const std::uint8_t> names = payload.subspan(kEntrySize);
    std::optional<std::string> target = TakeName(names);
    std::optional<std::string> source = target ? TakeName(names) : std::nullopt;
    if (!source || names.size() != kTrailingSize) {
        return std::nullopt;
    }
    test.record.targetComputer = std::move(*target);
    test.record.sourceComputer = std::move(*source);
    return test;
}

std::optional<std::vector<std::uint8_t>> ReadPacketListPayload(std::span<const std::uint8_t> payload) {
    if (payload.size() < kPacketListHeaderSize) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> data;
    std::span<const std::uint8_t> rest = payload.subspan(kPacketListHeaderSize);
    for (std::uint32_t count = Uint32At(payload.data()); count > 0; --count) {
        if (rest.size() < kPacketHeaderSize) {
            return std::nullopt;
        }
        const std::size_t length = Uint16At(rest.data() + kLengthOffset);
        rest = rest.subspan(kPacketHeaderSize);
        if (rest.size() < length) {
            return std::nullopt;
        }
        data.insert(data.end(), rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(length));
        rest = rest.subspan(length);
    }
    return rest.empty() ? std::optional(std::move(data)) : std::nullopt;
}

}  // namespace vexil
