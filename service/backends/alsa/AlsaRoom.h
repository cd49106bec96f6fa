// What a client of the ALSA sequencer can still be sent. A client without room does not hear what is sent to
// all who read a port, and it cannot be sent again, for the others have heard it: whoever sends much must ask
// before.
#pragma once

#include <cstddef>
#include <optional>

namespace vexil {

// Of a system exclusive, one cell holds as many bytes.
inline constexpr std::size_t kAlsaCellBytes = 28;

// In cells: one for each event, and one more for each kAlsaCellBytes of a system exclusive.
struct AlsaRoom {
    std::size_t total = 0;  // 0: a client of the kernel's own, which takes what it is given
    std::size_t free = 0;
};

// `sequencer`: a descriptor of the sequencer's device. None when there is no such client.
std::optional<AlsaRoom> AskAlsaRoom(int sequencer, int client);

}  // namespace vexil
