// What goes to other computers, from the engine's thread to the one that sends it.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "service/engine/ByteRing.h"
#include "service/engine/Engine.h"
#include "service/engine/EngineSink.h"
#include "service/engine/SourceNumbers.h"

namespace vexil {

class RemoteRing : public EngineSink {
  public:
    // One delivery, as EngineSink::Deliver has it.
    struct Delivery {
        Destination to;
        std::uint64_t time = 0;
        std::span<const std::uint8_t> bytes{};
    };

    // What one source may have on its way: in the ring, and with whoever took it out and could not pass it on
    // yet. So one that cannot be sent leaves room to the others.
    static constexpr std::size_t kSourceBytes = std::size_t{24} << 10;

    // `bytes` is what the ring holds, with 24 for each delivery. `reader` is woken, on the engine's thread,
    // at the end of a turn in which something came into a ring that was empty: it finds all of the turn
    // together. It must outlive this object.
    RemoteRing(std::size_t bytes, EngineWaker& reader);

    // The engine's thread.
    std::size_t Room(const Destination& to) const override;
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override;
    void EndTurn() override;

    // The reader's thread: takes the oldest delivery. False when the ring is empty. The bytes last until the
    // next call.
    bool Take(Delivery& delivery);
    // A delivery has gone on its way or was dropped: its source may deliver as much again.
    void PassedOn(const Destination& to, std::size_t bytes);

  private:
    // What a delivery counts for beside its bytes.
    static constexpr std::uint32_t kCostOfDelivery = 16;

    struct Head {
        std::uint64_t time = 0;
        Destination to;
    };

    EngineWaker& waker;
    ByteRing<Head> ring;
    bool isReaderAsleep = false;  // perhaps; engine thread
    // For each port and test output, what was delivered and what of it was passed on so far.
    std::array<std::uint32_t, kTakenSourceBase> delivered{};  // engine thread
    std::array<std::atomic<std::uint32_t>, kTakenSourceBase> passedOn{};
};

}  // namespace vexil
