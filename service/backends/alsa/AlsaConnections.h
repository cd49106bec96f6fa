// The connections of the service's ports: remembered, and made again when the service or the sequencer has
// come anew, unless somebody has disconnected them meanwhile. After an unclean end of the service before, it
// tells which inputs have their first readers: what sounds there nobody has released.
//
// The control thread's.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "service/backends/ConnectionMemory.h"
#include "service/backends/RuntimeState.h"
#include "service/backends/alsa/AlsaClient.h"

namespace vexil {

class AlsaConnections {
  public:
    using Clock = ConnectionMemory::Clock;

    explicit AlsaConnections(const RuntimeState& state);

    // The port of that number comes or goes: whatever it lacks, nobody has disconnected.
    void Renew(int number);
    // All ports have gone.
    void RenewAll();
    // Looks at these ports of the client, all that there are, and connects what they were connected to.
    void Look(AlsaClient& client, const std::vector<int>& numbers, Clock::time_point now);
    // Bit p: the first readers of input p are to be silenced now. Each comes once.
    std::uint64_t TakeUnsilenced(Clock::time_point now);
    // When to call both again although nothing has changed; null when that would tell nothing.
    std::optional<Clock::time_point> DueAt() const;

  private:
    ConnectionMemory memory;
    std::uint64_t unreleased;                    // bit p: what sounds at the readers of input p
    std::map<int, Clock::time_point> silenceAt;  // by input
};

}  // namespace vexil
