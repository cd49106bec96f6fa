// What programs have written to outputs and what has to wait, in the order in which it came. One store that
// is made once; one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "config/DriverConfiguration.h"

namespace vexil {

// The address of a port of another client.
struct WriterAddress {
    std::uint8_t client = 0;
    std::uint8_t port = 0;

    bool operator==(const WriterAddress&) const = default;
};

struct HeldMessage {
    WriterAddress writer;
    bool exclusive = false;  // bytes of system exclusive; else whole messages
    std::span<const std::uint8_t> bytes{};
};

class AlsaHeldMessages {
  public:
    using Place = std::size_t;
    static constexpr Place kEnd = static_cast<Place>(-1);

    explicit AlsaHeldMessages(std::size_t bytes) : storage(bytes / sizeof(std::uint64_t)) {}

    bool IsEmpty() const { return waiting == 0; }
    bool IsEmpty(int port) const { return counts[static_cast<std::size_t>(port)] == 0; }

    // False when there is no room for it. Places are no longer good.
    bool Add(int port, const HeldMessage& message);
    // The oldest of an output, and the next behind a place; kEnd when there is none.
    Place First(int port) { return Find(port, 0); }
    Place Next(int port, Place place) { return Find(port, place + At(place).size); }
    // Its bytes last until something is added.
    HeldMessage Get(Place place);
    void Take(Place place);
    // Takes those of an output for whose writer `which` is true.
    template <class Which>
    void TakeAll(int port, Which which) {
        for (Place place = First(port); place != kEnd; place = Next(port, place)) {
            if (which(At(place).writer)) {
                Take(place);
            }
        }
    }

  private:
    // In front of the bytes.
    struct Header {
        std::uint32_t size = 0;  // with this header, padded
        std::uint32_t length = 0;
        std::int16_t port = -1;  // -1: taken
        WriterAddress writer;
        bool exclusive = false;
    };

    Header& At(Place place) {
        return *static_cast<Header*>(static_cast<void*>(&storage[place / sizeof(std::uint64_t)]));
    }
    std::uint8_t* BytesOf(Place place);
    Place Find(int port, Place from);
    void Compact();

    std::vector<std::uint64_t> storage;
    std::size_t used = 0;     // bytes of it
    std::size_t waiting = 0;  // messages in it
    std::array<std::size_t, kMaxPorts> counts{};
};

}  // namespace vexil
