#include "service/backends/alsa/AlsaReaders.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "service/backends/alsa/AlsaCodec.h"

namespace vexil {

namespace {

constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max() / 2;

// Cells of an event.
constexpr std::size_t CellsFor(std::size_t exclusiveBytes) {
    return 1 + (exclusiveBytes + kAlsaCellBytes - 1) / kAlsaCellBytes;
}

constexpr std::size_t kPieceCells = CellsFor(kAlsaPieceBytes);

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

AlsaReaders::AlsaReaders(const RoomSource& source) : rooms(source) {
    for (Input& input : inputs) {
        input.addresses.reserve(kMostReaders);
    }
}

void AlsaReaders::BeginCycle(std::uint64_t now) {
    cycle = now;
    for (Client& client : clients) {
        client.known = false;
    }
}

AlsaReaders::Client& AlsaReaders::Known(std::size_t number) {
    Client& client = clients[number];
    if (!client.known) {
        Ask(number, client);
    }
    return client;
}

void AlsaReaders::Ask(std::size_t number, Client& client) {
    const std::optional<AlsaRoom> room = rooms.RoomOf(static_cast<int>(number));
    client.known = true;
    // What has gone, or is the kernel's own, takes what it is given.
    client.unlimited = !room || room->total == 0;
    client.hasCaughtUp = client.unlimited || room->total - room->free <= ReserveOf(room->total);
    if (client.unlimited) {
        client.free = kUnlimited;
        return;
    }
    client.free = room->free - std::min(room->free, ReserveOf(room->total));
    if (leftBehind.test(number)) {
        return;
    }
    NoteWait(room->total, client);
    if (BytesIn(client.free) != 0) {
        client.fullSince = 0;
    } else if (client.fullSince == 0) {
        client.fullSince = cycle;
    } else if (cycle - client.fullSince >= kLongestWait) {
        LeaveBehind(number);
    }
}

void AlsaReaders::NoteWait(std::size_t total, Client& client) const {
    const bool isFull = BytesIn(client.free) == 0;
    if (isFull && client.fullAt != 0) {
        client.waited += cycle - client.fullAt;
        client.spell += cycle - client.fullAt;
        client.lastFull = cycle;
    } else if (client.free >= std::min(kPieceCells, total / 2)) {
        // One that makes room at once was only filled by much; one that makes room now and then is slow.
        const bool wasShort = client.spell != 0 && client.spell < kShortWait;
        if (wasShort || cycle - client.lastFull >= kLongestWait) {
            client.waited = 0;
        }
        client.spell = 0;
    }
    client.fullAt = isFull ? cycle : 0;
}

void AlsaReaders::LeaveBehind(std::size_t number) {
    Client& client = clients[number];
    client.fullSince = 0;
    client.fullAt = 0;
    client.waited = 0;
    client.spell = 0;
    client.patience = kShortWait;
    leftBehind.set(number);
}

void AlsaReaders::SetReaders(int port, std::span<const AlsaAddress> addresses) {
    Input& input = Of(port);
    const Clients before = std::exchange(input.clients, Clients());
    addresses = addresses.first(std::min(addresses.size(), kMostReaders));
    input.addresses.assign(addresses.begin(), addresses.end());
    for (const AlsaAddress& address : addresses) {
        input.clients.set(address.client);
    }
    Clients all;
    for (const Input& one : inputs) {
        all |= one.clients;
    }
    ForEachIn(before & ~all, [this](std::size_t number) {
        clients[number] = {};
        leftBehind.reset(number);
    });
}

std::size_t AlsaReaders::Room(int port) {
    std::size_t room = kUnlimited;
    const bool isShared = Of(port).clients.count() > 1;
    ForEachIn(Of(port).clients & ~leftBehind, [&](std::size_t number) {
        const Client& client = Known(number);
        if (isShared && !client.unlimited && client.waited >= client.patience) {
            LeaveBehind(number);
        }
        if (!leftBehind.test(number)) {
            room = std::min(room, client.unlimited ? kUnlimited : BytesIn(client.free));
        }
    });
    return room;
}

void AlsaReaders::Sent(int port, std::size_t exclusiveBytes) {
    const std::size_t cells = CellsFor(exclusiveBytes);
    for (const AlsaAddress& address : Of(port).addresses) {
        if (!leftBehind.test(address.client)) {
            Client& client = clients[address.client];
            client.free -= std::min(client.free, cells);
        }
    }
}

bool AlsaReaders::HasCaughtUp(int client) {
    return Known(static_cast<std::size_t>(client)).hasCaughtUp;
}

std::size_t AlsaReaders::CellsOf(int client) {
    return Known(static_cast<std::size_t>(client)).free;
}

void AlsaReaders::SentTo(int client, std::size_t cells) {
    std::size_t& free = clients[static_cast<std::size_t>(client)].free;
    free -= std::min(free, cells);
}

}  // namespace vexil
