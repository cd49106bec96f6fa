#include "service/backends/alsa/AlsaReaders.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "service/backends/alsa/AlsaCodec.h"

namespace vexil {

namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max() / 2;

// Cells of an event.
constexpr std::size_t CellsOf(std::size_t exclusiveBytes) {
    return 1 + (exclusiveBytes + kAlsaCellBytes - 1) / kAlsaCellBytes;
}

constexpr std::size_t kPieceCells = CellsOf(kAlsaPieceBytes);

// Bytes of system exclusive that fit so many cells.
std::size_t BytesIn(std::size_t cells) {
    if (cells < 2) {
        return 0;
    }
    if (cells < kPieceCells) {
        return std::min((cells - 1) * kAlsaCellBytes, kAlsaPieceBytes);
    }
    return cells / kPieceCells * kAlsaPieceBytes;
}

// What is left to others that send to the same reader: what is free is known only from time to time.
std::size_t ReserveOf(std::size_t total) {
    constexpr std::size_t kMost = 16;
    return std::min(kMost, total / 8);
}

}  // namespace

template <class Each>
void AlsaReaders::ForEachReader(int port, Each each) {
    const Readers& readers = inputs[static_cast<std::size_t>(port)];
    for (std::size_t number = readers._Find_first(); number < kClients; number = readers._Find_next(number)) {
        each(number, clients[number]);
    }
}

void AlsaReaders::BeginCycle(std::uint64_t now) {
    cycle = now;
    for (Client& client : clients) {
        client.known = false;
    }
}

void AlsaReaders::Ask(std::size_t number, Client& client) {
    const std::optional<AlsaRoom> room = rooms.RoomOf(static_cast<int>(number));
    client.known = true;
    // What has gone, or is the kernel's own, takes what it is given.
    client.unlimited = !room || room->total == 0;
    if (client.unlimited) {
        return;
    }
    client.free = room->free - std::min(room->free, ReserveOf(room->total));
    NoteWait(room->total, client);
    if (client.leftBehind) {
        client.leftBehind = client.free < room->total / 2;
        client.unlimited = client.leftBehind;
    } else if (BytesIn(client.free) != 0) {
        client.fullSince = 0;
    } else if (client.fullSince == 0) {
        client.fullSince = cycle;
    } else if (cycle - client.fullSince >= kLongestWait) {
        LeaveBehind(client);
    }
}

void AlsaReaders::NoteWait(std::size_t total, Client& client) const {
    const bool isFull = BytesIn(client.free) == 0;
    if (client.free >= std::min(kPieceCells, total / 2)) {
        client.waited = 0;
    } else if (isFull && client.fullAt != 0) {
        client.waited += cycle - client.fullAt;
    }
    client.fullAt = isFull ? cycle : 0;
}

void AlsaReaders::LeaveBehind(Client& client) {
    client.fullSince = 0;
    client.fullAt = 0;
    client.waited = 0;
    client.patience = kShortWait;
    client.leftBehind = true;
    client.unlimited = true;
}

void AlsaReaders::SetReaders(int port, const Readers& readers) {
    const Readers before = std::exchange(inputs[static_cast<std::size_t>(port)], readers);
    Readers all;
    for (const Readers& one : inputs) {
        all |= one;
    }
    const Readers gone = before & ~all;
    for (std::size_t number = gone._Find_first(); number < kClients; number = gone._Find_next(number)) {
        clients[number] = {};
    }
}

std::size_t AlsaReaders::Room(int port) {
    std::size_t room = kUnlimited;
    const bool isShared = inputs[static_cast<std::size_t>(port)].count() > 1;
    ForEachReader(port, [&](std::size_t number, Client& client) {
        if (!client.known) {
            Ask(number, client);
        }
        if (isShared && !client.unlimited && client.waited >= client.patience) {
            LeaveBehind(client);
        }
        if (!client.unlimited) {
            room = std::min(room, BytesIn(client.free));
        }
    });
    return room;
}

void AlsaReaders::Sent(int port, std::size_t exclusiveBytes) {
    const std::size_t cells = CellsOf(exclusiveBytes);
    ForEachReader(port, [&](std::size_t, Client& client) { client.free -= std::min(client.free, cells); });
}

}  // namespace vexil
