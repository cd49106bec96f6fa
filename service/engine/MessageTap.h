// What passes through the engine, for somebody who watches: a copy of each piece that outputs and test
// outputs are given, and of each that inputs hear. The engine never waits for the reader: what the reader
// leaves no room for is left out and counted. Nothing is kept in memory before somebody watches.
//
// Threads. The control thread opens, closes and reads; the engine thread puts in.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "service/engine/ByteRing.h"
#include "service/engine/Counter.h"

namespace vexil {

class EngineWaker;

// Where a piece was seen.
enum class TapSide : std::uint8_t {
    Output,  // a program wrote it to the output of a port
    Test,    // a panel plays it on the test output of a port
    Input,   // the input of a port hears it
};

// A piece that was seen. One that does not begin with a status byte, or with F7, goes on with the system
// exclusive of its stream.
struct TappedPiece {
    std::uint64_t time = 0;  // of the engine, nanoseconds: when it was written or is to be heard
    TapSide side = TapSide::Output;
    std::uint8_t port = 0;     // 0 to 63
    std::uint16_t stream = 0;  // of one side of a port, whose pieces stand in their order
    std::span<const std::uint8_t> bytes{};
};

class MessageTap {
  public:
    // Room for 19,000 short messages.
    static constexpr std::size_t kBytes = std::size_t{1} << 19;

    // Who is woken, on the engine thread, when something comes for a reader that had read everything; null,
    // as at first: nobody. Set while no thread drives the engine.
    void SetWaker(EngineWaker* reader) { waker = reader; }

    // Control thread.

    // Somebody watches from now on; what came before is not seen.
    void Open();
    // Nobody watches.
    void Close() { isOpen.store(false, std::memory_order_release); }
    // The oldest piece that is there; its bytes last until the next call. False when none is.
    bool Take(TappedPiece& piece);
    // Pieces that were left out so far.
    std::uint64_t LeftOut() const { return leftOut.Read(); }

    // Engine thread.

    bool IsOpen() const { return isOpen.load(std::memory_order_acquire); }
    // Only while it is open.
    void Put(const TappedPiece& piece);

  private:
    struct Head {
        std::uint64_t time = 0;
        std::uint16_t stream = 0;
        std::uint8_t port = 0;
        TapSide side = TapSide::Output;
    };

    std::atomic<bool> isOpen{false};
    std::unique_ptr<ByteRing<Head>> ring;  // made before it is first open, and kept
    EngineWaker* waker = nullptr;
    Counter leftOut;
};

}  // namespace vexil
