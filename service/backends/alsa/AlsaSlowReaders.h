// Tells in the log of programs that read too slowly: when one is left behind, and what it has missed when it
// hears again. One that does so again and again is told of once in ten seconds. The control thread's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "service/backends/LossSum.h"
#include "service/backends/alsa/AlsaLateness.h"

namespace vexil {

class AlsaSlowReaders {
  public:
    using Clock = LossSum::Clock;
    using NameOf = std::function<std::string(int client)>;

    // Tells of what has changed since the last call.
    void Look(const AlsaLateness& lateness, const NameOf& nameOf, Clock::time_point now);
    // When to look again though nothing has changed; null when that would tell nothing.
    std::optional<Clock::time_point> DueAt() const;
    // What Look has told of belongs to clients that are no longer there.
    void Forget() { readers.clear(); }

    // What status says of a program that is left behind, beside others.
    static std::string Sentence(const std::string& name, std::uint64_t missed, std::size_t others);

  private:
    struct Reader {
        std::string name;
        bool isLeftBehind = false;
        std::uint64_t missed = 0;  // of those, as many are in the sum
        LossSum left;              // how often it was left behind
        LossSum lost;
    };

    std::map<std::size_t, Reader> readers;  // that were left behind at any time
};

}  // namespace vexil
