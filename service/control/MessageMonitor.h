// Reads the engine's tap while somebody watches: all that has come, a moment after the first of it, so that
// many messages cost one look. Idle, it has no time of its own.
//
// One thread, the control thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "driver/MonitorPackets.h"
#include "service/control/EngineEvent.h"
#include "service/engine/Engine.h"

namespace vexil {

// Pieces that came together.
struct MonitorBatch {
    std::uint64_t leftOut = 0;  // by the engine, in front of or among these
    std::vector<MonitoredPiece> pieces;
    std::vector<std::uint8_t> bytes;  // what the pieces point into
};

class MessageMonitor {
  public:
    using Clock = std::chrono::steady_clock;

    // From the first piece that comes to the look at it and all that came behind it.
    static constexpr std::chrono::milliseconds kGathering{20};
    // Bytes that are read at a time; what is left is read in the next round.
    static constexpr std::size_t kMostBytes = std::size_t{1} << 18;

    // Made and unmade while no thread drives the engine, which must outlive this object.
    MessageMonitor(Engine& monitoredEngine, std::function<Clock::time_point()> clock);
    ~MessageMonitor();
    MessageMonitor(const MessageMonitor&) = delete;
    MessageMonitor& operator=(const MessageMonitor&) = delete;

    // Somebody watches from now on, or nobody any longer.
    void Set(bool on);

    // Readable when Take is to be called.
    int EventDescriptor() const { return event.EventDescriptor(); }
    // Milliseconds until Take is to be called although the descriptor is not readable; -1: never.
    int Timeout() const;
    // What has come, once it is time to look; null before that. For when the descriptor is readable or the
    // time is over.
    std::optional<MonitorBatch> Take();

  private:
    Engine& engine;
    const std::function<Clock::time_point()> now;
    EngineEvent event;
    bool isOn = false;
    std::optional<Clock::time_point> lookAt;
    std::uint64_t leftOut = 0;  // as was told so far
};

}  // namespace vexil
