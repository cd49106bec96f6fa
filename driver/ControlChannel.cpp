#include "driver/ControlChannel.h"

#include <algorithm>

#include "driver/LittleEndian.h"

namespace vexil {

namespace {

constexpr std::uint32_t kMaxErrno = 4095;  // the highest that a Linux system call can return

std::vector<std::uint8_t> Pack(std::initializer_list<std::uint32_t> header,
                               std::span<const std::uint8_t> data) {
    std::vector<std::uint8_t> packet(4 * header.size());
    std::uint8_t* field = packet.data();
    for (const std::uint32_t value : header) {
        PutLittleEndian(field, value, 4);
        field += 4;
    }
    packet.insert(packet.end(), data.begin(), data.end());
    return packet;
}

bool IsKind(std::uint32_t kind) {
    return kind >= kControlAttach && kind <= kControlMonitor;
}

bool HasPayload(std::uint32_t kind) {
    return kind == kControlSetOption || kind == kControlNetwork || kind == kControlMonitor;
}

bool HasLength(std::uint32_t kind) {
    return kind != kControlAttach && kind != kControlReload && kind != kControlWatch && kind != kControlPanic;
}

}  // namespace

std::vector<std::uint8_t> PackControlRequest(const ControlRequest& request) {
    return Pack({request.sequence, request.kind, request.number, request.length}, request.payload);
}

std::vector<std::uint8_t> PackControlReply(const ControlReply& reply) {
    return Pack({reply.sequence, reply.error, static_cast<std::uint32_t>(reply.data.size())}, reply.data);
}

std::optional<ControlRequest> UnpackControlRequest(std::span<const std::uint8_t> packet) {
    if (packet.size() < kControlRequestHeaderSize) {
        return std::nullopt;
    }
    ControlRequest request;
    request.sequence = Uint32At(packet.data());
    request.kind = Uint32At(packet.data() + 4);
    request.number = Uint32At(packet.data() + 8);
    request.length = Uint32At(packet.data() + 12);
    request.payload = packet.subspan(kControlRequestHeaderSize);
    if (!IsKind(request.kind) || request.length > kMaxControlData) {
        return std::nullopt;
    }
    if (!HasLength(request.kind) && request.length != 0) {
        return std::nullopt;
    }
    if (request.payload.size() != (HasPayload(request.kind) ? request.length : 0)) {
        return std::nullopt;
    }
    return request;
}

std::optional<ControlReply> UnpackControlReply(std::span<const std::uint8_t> packet) {
    if (packet.size() < kControlReplyHeaderSize) {
        return std::nullopt;
    }
    ControlReply reply;
    reply.sequence = Uint32At(packet.data());
    reply.error = Uint32At(packet.data() + 4);
    reply.data = packet.subspan(kControlReplyHeaderSize);
    const std::uint32_t length = Uint32At(packet.data() + 8);
    if (length > kMaxControlData || reply.data.size() != length) {
        return std::nullopt;
    }
    if (reply.error > kMaxErrno || (reply.error != 0 && length != 0)) {
        return std::nullopt;
    }
    return reply;
}

std::optional<std::vector<std::uint8_t>> PackControlWords(const std::vector<std::string>& words) {
    std::vector<std::uint8_t> payload;
    for (const std::string& word : words) {
        payload.insert(payload.end(), word.begin(), word.end());
        payload.push_back(0);
    }
    return UnpackControlWords(payload) == words ? std::optional(std::move(payload)) : std::nullopt;
}

std::optional<std::vector<std::string>> UnpackControlWords(std::span<const std::uint8_t> payload) {
    if (payload.empty() || payload.size() > kMaxControlWordsSize || payload.back() != 0) {
        return std::nullopt;
    }
    std::vector<std::string> words;
    for (auto start = payload.begin(); start != payload.end();) {
        const auto end = std::find(start, payload.end(), 0);
        if (end == start) {
            return std::nullopt;
        }
        words.emplace_back(start, end);
        start = end + 1;
    }
    return words;
}

}  // namespace vexil
