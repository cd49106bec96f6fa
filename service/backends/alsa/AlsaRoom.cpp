#include "service/backends/alsa/AlsaRoom.h"

// The kernel's own words for the sequencer: the library asks for its own client only. The two cannot be
// included together.
#include <sound/asequencer.h>
#include <sys/ioctl.h>

namespace vexil {

std::optional<AlsaRoom> AskAlsaRoom(int sequencer, int client) {
    snd_seq_client_pool pool{};
    pool.client = client;
    if (::ioctl(sequencer, SNDRV_SEQ_IOCTL_GET_CLIENT_POOL, &pool) != 0) {
        return std::nullopt;
    }
    return AlsaRoom{static_cast<std::size_t>(pool.input_pool), static_cast<std::size_t>(pool.input_free)};
}

}  // namespace vexil
