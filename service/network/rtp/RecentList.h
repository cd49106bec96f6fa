// A set of small numbers in the order in which they were touched last, each with the number of the packet
// that did so. Everything takes constant time but dropping, which takes it for each that goes. Nothing is
// allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexil {

// Of the numbers 0 to kSize - 1.
template <std::size_t kSize>
class RecentList {
    static_assert(kSize < 255);

  public:
    static constexpr std::size_t kEnd = kSize;

    RecentList() { Clear(); }

    bool IsEmpty() const { return First() == kEnd; }
    bool Contains(std::size_t index) const { return next[index] != kOutside; }
    // The packet that touched it last; of one that is contained.
    std::uint64_t PacketOf(std::size_t index) const { return packets[index]; }
    // From the one touched longest ago to the newest; kEnd behind that.
    std::size_t First() const { return next[kEnd]; }
    std::size_t Next(std::size_t index) const { return next[index]; }

    void Touch(std::size_t index, std::uint64_t packet) {
        if (Contains(index)) {
            Remove(index);
        }
        const std::uint8_t newest = previous[kEnd];
        previous[index] = newest;
        next[index] = kEnd;
        next[newest] = static_cast<std::uint8_t>(index);
        previous[kEnd] = static_cast<std::uint8_t>(index);
        packets[index] = packet;
    }
    void Remove(std::size_t index) {
        next[previous[index]] = next[index];
        previous[next[index]] = previous[index];
        next[index] = kOutside;
    }
    // What was touched last by a packet before this one goes.
    void DropBefore(std::uint64_t packet) {
        while (!IsEmpty() && packets[First()] < packet) {
            Remove(First());
        }
    }
    void Clear() {
        next.fill(kOutside);
        next[kEnd] = kEnd;
        previous[kEnd] = kEnd;
    }

  private:
    static constexpr std::uint8_t kOutside = 255;

    std::array<std::uint8_t, kSize + 1> next{};
    std::array<std::uint8_t, kSize + 1> previous{};
    std::array<std::uint64_t, kSize> packets{};
};

}  // namespace vexil
