#include "driver/MonitorPackets.h"

#include <array>

#include "config/DriverConfiguration.h"
#include "driver/ControlChannel.h"
#include "driver/LittleEndian.h"

namespace vexil {

namespace {

constexpr std::size_t kCountSize = 4;
constexpr std::size_t kPieceHeaderSize = 16;

}  // namespace

MonitorPacket::MonitorPacket(std::uint32_t leftOut) : data(kCountSize) {
    PutLittleEndian(data.data(), leftOut, kCountSize);
}

bool MonitorPacket::Add(const MonitoredPiece& piece) {
    if (data.size() + kPieceHeaderSize + piece.bytes.size() > kMaxControlData) {
        return false;
    }
    std::array<std::uint8_t, kPieceHeaderSize> header{};
    PutLittleEndian(header.data(), piece.time, 8);
    header[8] = piece.port;
    header[9] = piece.side;
    PutLittleEndian(&header[10], piece.stream, 2);
    PutLittleEndian(&header[12], piece.bytes.size(), 4);
    data.insert(data.end(), header.begin(), header.end());
    data.insert(data.end(), piece.bytes.begin(), piece.bytes.end());
    ++count;
    return true;
}

std::optional<MonitoredPieces> UnpackMonitoredPieces(std::span<const std::uint8_t> data) {
    if (data.size() < kCountSize) {
        return std::nullopt;
    }
    MonitoredPieces read{Uint32At(data.data()), {}};
    for (auto rest = data.subspan(kCountSize); !rest.empty();) {
        if (rest.size() < kPieceHeaderSize) {
            return std::nullopt;
        }
        const std::uint8_t* header = rest.data();
        const std::size_t length = Uint32At(header + 12);
        rest = rest.subspan(kPieceHeaderSize);
        if (header[8] >= kMaxPorts || header[9] > kMonitoredTest || length == 0 || length > rest.size()) {
            return std::nullopt;
        }
        const std::uint64_t time = Uint32At(header) | std::uint64_t{Uint32At(header + 4)} << 32;
        read.pieces.push_back({time, header[8], header[9], Uint16At(header + 10), rest.first(length)});
        rest = rest.subspan(length);
    }
    return read;
}

}  // namespace vexil
