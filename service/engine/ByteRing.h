// Deliveries of any length between two threads, one that puts in and one that takes out. Neither waits for
// the other, and nothing is allocated once the ring is made.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

namespace vexil {

// What is known of each delivery beside its bytes stands in its head: plain data.
template <class Head>
class ByteRing {
    static_assert(std::is_trivially_copyable_v<Head>);

  public:
    // `bytes` is what the ring holds, with sizeof(Head) + 4 for each delivery.
    explicit ByteRing(std::size_t bytes) : taken(bytes), ring(bytes) {}

    // The thread that puts in. Bytes that one delivery may have at this moment; 0 also when not even an empty
    // one fits.
    std::size_t Room() const { return ring.size() - std::min(ring.size(), Used() + sizeof(Place)); }
    // Whether a delivery of so many bytes fits, which may be 0.
    bool Fits(std::size_t bytes) const { return Used() + sizeof(Place) + bytes <= ring.size(); }
    // Only what Fits. Returns whether the ring was empty: whoever takes out may have gone to sleep.
    bool Put(const Head& head, std::span<const std::uint8_t> bytes) {
        const std::size_t at = end.load(std::memory_order_relaxed);
        const Place place{head, static_cast<std::uint32_t>(bytes.size())};
        Write(at, &place, sizeof place);
        Write(at + sizeof place, bytes.data(), bytes.size());
        // In one order with the other's: either it sees this delivery, or this sees that it has emptied the
        // ring.
        end.store(at + sizeof place + bytes.size(), std::memory_order_seq_cst);
        return begin.load(std::memory_order_seq_cst) == at;
    }

    // The thread that takes out.
    bool IsEmpty() const {
        return begin.load(std::memory_order_relaxed) == end.load(std::memory_order_acquire);
    }
    // The thread that takes out: the oldest delivery. False when the ring is empty. The bytes last until the
    // next call.
    bool Take(Head& head, std::span<const std::uint8_t>& bytes) {
        const std::size_t at = begin.load(std::memory_order_relaxed);
        if (at == end.load(std::memory_order_seq_cst)) {
            return false;
        }
        Place place;
        Read(at, &place, sizeof place);
        Read(at + sizeof place, taken.data(), place.length);
        head = place.head;
        bytes = std::span<const std::uint8_t>(taken).first(place.length);
        begin.store(at + sizeof place + place.length, std::memory_order_seq_cst);
        return true;
    }

  private:
    struct Place {
        Head head;
        std::uint32_t length = 0;
    };

    std::size_t Used() const {
        return end.load(std::memory_order_relaxed) - begin.load(std::memory_order_acquire);
    }
    void Write(std::size_t at, const void* from, std::size_t count) {
        const std::size_t place = at % ring.size();
        const std::size_t first = std::min(count, ring.size() - place);
        if (count != 0) {
            std::memcpy(&ring[place], from, first);
            std::memcpy(ring.data(), static_cast<const std::uint8_t*>(from) + first, count - first);
        }
    }
    void Read(std::size_t at, void* to, std::size_t count) const {
        const std::size_t place = at % ring.size();
        const std::size_t first = std::min(count, ring.size() - place);
        std::memcpy(to, &ring[place], first);
        std::memcpy(static_cast<std::uint8_t*>(to) + first, ring.data(), count - first);
    }

    // A line of the cache each for what one of the two threads changes.
    alignas(64) std::atomic<std::size_t> begin{0};  // bytes taken out so far
    std::vector<std::uint8_t> taken;                // those of the delivery that Take gave
    alignas(64) std::atomic<std::size_t> end{0};    // bytes put in so far
    std::vector<std::uint8_t> ring;
};

}  // namespace vexil
