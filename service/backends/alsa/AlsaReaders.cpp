#include "service/backends/alsa/AlsaReaders.h"

#include <algorithm>
#include <limits>

#include "service/backends/alsa/AlsaCodec.h"

namespace vexil {

namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max() / 2;

// Cells of an event.
constexpr std::size_t CellsOf(std::size_t exclusiveBytes) {
    return 1 + (exclusiveBytes + kAlsaCellBytes - 1) / kAlsaCellBytes;
}

// Bytes of system exclusive that fit so many cells.
std::size_t BytesIn(std::size_t cells) {
    constexpr std::size_t kPieceCells = CellsOf(kAlsaPieceBytes);
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
    if (client.leftBehind) {
        client.leftBehind = client.free < room->total / 2;
        client.unlimited = client.leftBehind;
    } else if (BytesIn(client.free) != 0) {
        client.fullSince = 0;
    } else if (client.fullSince == 0) {
        client.fullSince = cycle;
    } else if (cycle - client.fullSince >= kLongestWait) {
        client.fullSince = 0;
        client.leftBehind = true;
        client.unlimited = true;
    }
}

std::size_t AlsaReaders::Room(int port) {
    std::size_t room = kUnlimited;
    ForEachReader(port, [&](std::size_t number, Client& client) {
        if (!client.known) {
            Ask(number, client);
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
