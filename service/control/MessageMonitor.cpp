#include "service/control/MessageMonitor.h"

#include <span>
#include <utility>

#include "shared/System/Deadline.h"

namespace vexil {

namespace {

std::uint8_t SideOf(TapSide side) {
    switch (side) {
        case TapSide::Input:
            return kMonitoredInput;
        case TapSide::Test:
            return kMonitoredTest;
        default:
            return kMonitoredOutput;
    }
}

}  // namespace

MessageMonitor::MessageMonitor(Engine& monitoredEngine, std::function<Clock::time_point()> clock)
    : engine(monitoredEngine), now(std::move(clock)) {
    engine.Tap().SetWaker(&event);
}

MessageMonitor::~MessageMonitor() {
    engine.Tap().Close();
    engine.Tap().SetWaker(nullptr);
}

void MessageMonitor::Set(bool on) {
    if (std::exchange(isOn, on) == on) {
        return;
    }
    if (on) {
        engine.Tap().Open();
        leftOut = engine.Tap().LeftOut();
    } else {
        engine.Tap().Close();
        lookAt.reset();
    }
}

int MessageMonitor::Timeout() const {
    return lookAt ? MillisecondsUntil(*lookAt, now()) : -1;
}

std::optional<MonitorBatch> MessageMonitor::Take() {
    event.Take();
    if (!isOn) {
        return std::nullopt;
    }
    if (!lookAt) {
        lookAt = now() + kGathering;
    }
    if (now() < *lookAt) {
        return std::nullopt;
    }
    lookAt.reset();
    MonitorBatch batch;
    const std::uint64_t leftOutNow = engine.Tap().LeftOut();
    batch.leftOut = leftOutNow - std::exchange(leftOut, leftOutNow);
    const auto lead = static_cast<std::uint64_t>(engine.ClockLead());
    std::vector<std::size_t> starts;
    TappedPiece piece;
    while (batch.bytes.size() < kMostBytes && engine.Tap().Take(piece)) {
        starts.push_back(batch.bytes.size());
        batch.bytes.insert(batch.bytes.end(), piece.bytes.begin(), piece.bytes.end());
        batch.pieces.push_back(
            {piece.time - lead, piece.port, SideOf(piece.side), piece.stream, piece.bytes});
    }
    if (batch.bytes.size() >= kMostBytes) {
        lookAt = now();
    }
    const std::span<const std::uint8_t> all(batch.bytes);
    for (std::size_t at = 0; at < starts.size(); ++at) {
        batch.pieces[at].bytes = all.subspan(starts[at], batch.pieces[at].bytes.size());
    }
    return batch.pieces.empty() && batch.leftOut == 0 ? std::nullopt : std::optional(std::move(batch));
}

}  // namespace vexil
