#include "client/MonitoredMessages.h"

namespace vexil {

namespace {

constexpr std::uint8_t kStartOfExclusive = 0xF0;
constexpr std::uint8_t kEndOfExclusive = 0xF7;
constexpr std::uint8_t kFirstRealtime = 0xF8;

bool GoesOn(std::uint8_t first) {
    return first < 0x80 || first == kEndOfExclusive;
}

}  // namespace

void MonitoredMessages::Put(const MonitoredPiece& piece,
                            const std::function<void(const MonitoredMessage&)>& each) {
    const std::uint8_t first = piece.bytes.front();
    const MonitoredMessage message{
        piece.time, piece.port, piece.side, {piece.bytes.begin(), piece.bytes.end()}};
    // A realtime message may stand between two parts of another.
    if (first >= kFirstRealtime) {
        each(message);
        return;
    }
    const Stream stream{piece.side, piece.port, piece.stream};
    auto open = begun.find(stream);
    if (open != begun.end() && !GoesOn(first)) {
        each(open->second);
        begun.erase(open);
        open = begun.end();
    }
    if (!GoesOn(first) && first != kStartOfExclusive) {
        each(message);
        return;
    }
    if (open == begun.end()) {
        open = begun.emplace(stream, message).first;
    } else {
        open->second.bytes.insert(open->second.bytes.end(), piece.bytes.begin(), piece.bytes.end());
    }
    if (piece.bytes.back() == kEndOfExclusive || open->second.bytes.size() >= kLongest) {
        each(open->second);
        begun.erase(open);
    }
}

}  // namespace vexil
