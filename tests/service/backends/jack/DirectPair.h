// Two programs that are connected to each other and to nothing else, one of which plays in every cycle what
// follows on the last. What the other one misses or hears twice, the MIDI system has lost or repeated: the
// service has no part in it.
#pragma once

#include <jack/jack.h>

#include <atomic>
#include <cstdint>
#include <optional>

namespace vexil {

class DirectPair {
  public:
    DirectPair();
    // Also when the server has gone.
    ~DirectPair();
    DirectPair(const DirectPair&) = delete;
    DirectPair& operator=(const DirectPair&) = delete;

    // Whether faults are counted; they are at first.
    void Watch(bool watch) { watches = watch; }
    // How often any pair of this process was not heard in a cycle, or not as it played.
    static unsigned Faults() { return faults; }

  private:
    static constexpr unsigned kNumbers = 1U << 14;

    static int Play(jack_nframes_t frames, void* pair);
    static int Hear(jack_nframes_t frames, void* pair);

    jack_client_t* player = nullptr;
    jack_client_t* listener = nullptr;
    jack_port_t* out = nullptr;
    jack_port_t* in = nullptr;
    std::atomic<bool> watches{true};
    unsigned played = 0;            // the player's thread's
    std::optional<unsigned> heard;  // the listener's thread's; the last

    static inline std::atomic<unsigned> faults{0};
};

}  // namespace vexil
