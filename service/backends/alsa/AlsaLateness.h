// Which programs are left behind for they read too slowly, and what they have missed. The engine thread
// writes, any thread reads.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "service/backends/alsa/AlsaAddress.h"
#include "service/engine/Counter.h"

namespace vexil {

class AlsaLateness {
  public:
    void Leave(std::size_t client) {
        Of(client).missedBefore.store(Of(client).missed.Read(), std::memory_order_relaxed);
        Of(client).isLeftBehind.store(true, std::memory_order_release);
    }
    void TakeUp(std::size_t client) { Of(client).isLeftBehind.store(false, std::memory_order_release); }
    // A program that is left behind does not hear a message.
    void Miss(std::size_t client) { Of(client).missed.Add(1); }

    bool IsLeftBehind(std::size_t client) const {
        return Of(client).isLeftBehind.load(std::memory_order_acquire);
    }
    // Messages that the client of that number has missed in all, and since it was left behind.
    std::uint64_t Missed(std::size_t client) const { return Of(client).missed.Read(); }
    std::uint64_t MissedNow(std::size_t client) const {
        return Missed(client) - Of(client).missedBefore.load(std::memory_order_relaxed);
    }

  private:
    struct Entry {
        std::atomic<bool> isLeftBehind{false};
        Counter missed;
        std::atomic<std::uint64_t> missedBefore{0};
    };

    Entry& Of(std::size_t client) { return entries[client]; }
    const Entry& Of(std::size_t client) const { return entries[client]; }

    std::array<Entry, kAlsaClients> entries;
};

}  // namespace vexil
