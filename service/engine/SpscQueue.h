// A bounded queue between two threads, one that puts in and one that takes out. Neither waits for the other
// and nothing is allocated once it is made.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>

namespace vexil {

template <class T, std::size_t kCapacity>
class SpscQueue {
    static_assert((kCapacity & (kCapacity - 1)) == 0, "places are found by masking");

  public:
    // The thread that puts in. False when the queue is full.
    bool TryPush(const T& value) {
        const std::size_t at = tail.load(std::memory_order_relaxed);
        if (at - head.load(std::memory_order_acquire) == kCapacity) {
            return false;
        }
        places[at & (kCapacity - 1)] = value;
        tail.store(at + 1, std::memory_order_release);
        return true;
    }

    // The thread that takes out. The oldest value, which stays in its place until Pop; null when there is
    // none.
    T* Front() {
        const std::size_t at = head.load(std::memory_order_relaxed);
        return at == tail.load(std::memory_order_acquire) ? nullptr : &places[at & (kCapacity - 1)];
    }
    // After Front gave one.
    void Pop() { head.store(head.load(std::memory_order_relaxed) + 1, std::memory_order_release); }

  private:
    static constexpr std::size_t kCacheLine = 64;

    std::array<T, kCapacity> places{};
    alignas(kCacheLine) std::atomic<std::size_t> head{0};  // values taken out so far
    alignas(kCacheLine) std::atomic<std::size_t> tail{0};  // values put in so far
};

}  // namespace vexil
