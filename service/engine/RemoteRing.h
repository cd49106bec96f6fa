// What goes to other computers, from the engine's thread to the one that sends it. Neither waits for the
// other, and nothing is allocated once the ring is made.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "service/engine/Engine.h"
#include "service/engine/EngineSink.h"

namespace vexil {

class RemoteRing : public EngineSink {
  public:
    // One delivery, as EngineSink::Deliver has it.
    struct Delivery {
        Destination to;
        std::uint64_t time = 0;
        std::span<const std::uint8_t> bytes{};
    };

    // `bytes` is what the ring holds, with 24 for each delivery. `reader` is woken, on the engine's thread,
    // when something comes into a ring that was empty; it must outlive this object.
    RemoteRing(std::size_t bytes, EngineWaker& reader);

    // The engine's thread.
    std::size_t Room(const Destination& to) const override;
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override;

    // The reader's thread: takes the oldest delivery. False when the ring is empty. The bytes last until the
    // next call.
    bool Take(Delivery& delivery);

  private:
    struct Header {
        std::uint64_t time = 0;
        Destination to;
        std::uint32_t length = 0;
    };

    void Put(std::size_t at, const void* from, std::size_t count);
    void Get(std::size_t at, void* to, std::size_t count) const;

    EngineWaker& waker;
    std::vector<std::uint8_t> ring;
    std::vector<std::uint8_t> taken;  // the bytes of the delivery that Take gave
    // Bytes put in and taken out so far.
    alignas(64) std::atomic<std::size_t> head{0};
    alignas(64) std::atomic<std::size_t> tail{0};
};

}  // namespace vexil
