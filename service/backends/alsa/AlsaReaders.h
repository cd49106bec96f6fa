// The programs that read inputs, and how much each can still be sent. What a program has no room for is lost
// to it, so the room of an input is that of its fullest reader. There are two limits to that. A reader that
// takes nothing for a while is not waited for any longer. And where others read the same input, nor is one
// that has kept them waiting for kLongestWait in all, however much it takes now and then, unless it makes
// room for a piece within kShortWait; the next time that it falls behind it keeps them waiting for kShortWait
// only.
//
// Such a reader is left behind: nothing is sent to it, at any input, until it has read what it was sent and
// is taken up again.
//
// The engine thread's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/backends/alsa/AlsaAddress.h"
#include "service/backends/alsa/AlsaRoom.h"

namespace vexil {

class AlsaReaders {
  public:
    // How long a reader may take nothing before the others are served without it.
    static constexpr std::uint64_t kLongestWait = 1'000'000'000;  // nanoseconds
    static constexpr std::uint64_t kShortWait = 50'000'000;
    // Connections of one input beyond that are not known.
    static constexpr std::size_t kMostReaders = 256;

    using Clients = std::bitset<kAlsaClients>;
    // Calls each(number) for every client of the set, in their order.
    template <class Each>
    static void ForEachIn(const Clients& set, Each each) {
        for (std::size_t number = set._Find_first(); number < set.size(); number = set._Find_next(number)) {
            each(number);
        }
    }

    // Answers how much room a client has; null when there is no such client. Outlives this object.
    class RoomSource {
      public:
        virtual ~RoomSource() = default;
        virtual std::optional<AlsaRoom> RoomOf(int client) const = 0;
    };
    explicit AlsaReaders(const RoomSource& source);

    // Who reads an input now. Of one that reads no input any more, nothing is remembered.
    void SetReaders(int port, std::span<const AlsaAddress> addresses);
    bool Reads(int port, int client) const { return Of(port).clients.test(static_cast<std::size_t>(client)); }
    bool HasReaders(int port) const { return Of(port).clients.any(); }
    const std::vector<AlsaAddress>& ReadersOf(int port) const { return Of(port).addresses; }

    // What was known of their room may have changed. Call when everything that was counted with Sent is sent.
    void BeginCycle(std::uint64_t now);
    // Bytes that an input can take, as messages or as pieces of kAlsaPieceBytes.
    std::size_t Room(int port);
    // One event with so many bytes of system exclusive (0: another message) is on its way to all readers of
    // an input that are not left behind.
    void Sent(int port, std::size_t exclusiveBytes);

    // Readers that are left behind. Room is what leaves a reader behind.
    const Clients& LeftBehind() const { return leftBehind; }
    bool IsLeftBehind(int client) const { return leftBehind.test(static_cast<std::size_t>(client)); }
    bool HasLeftBehind(int port) const { return (Of(port).clients & leftBehind).any(); }
    // Whether a reader that is left behind has read what it was sent, but for a little that is others'.
    bool HasCaughtUp(int client);
    // Cells that it has for us now. What is sent to it alone is counted with SentTo.
    std::size_t CellsOf(int client);
    void SentTo(int client, std::size_t cells);
    // Is served like the others from now on.
    void TakeUp(int client) { leftBehind.reset(static_cast<std::size_t>(client)); }

  private:
    struct Client {
        bool known = false;      // `free` is of this cycle
        bool unlimited = false;  // this cycle
        bool hasCaughtUp = false;
        std::size_t free = 0;
        std::uint64_t fullSince = 0;  // 0: it is not
        std::uint64_t fullAt = 0;     // when it was last found full; 0: it was not at the last look
        std::uint64_t spell = 0;      // how long others have waited since it last had room for a piece
        std::uint64_t lastFull = 0;   // when they last did
        std::uint64_t waited = 0;     // in all such spells since the last short one
        std::uint64_t patience = kLongestWait;
    };
    struct Input {
        std::vector<AlsaAddress> addresses;
        Clients clients;
    };

    Input& Of(int port) { return inputs[static_cast<std::size_t>(port)]; }
    const Input& Of(int port) const { return inputs[static_cast<std::size_t>(port)]; }
    Client& Known(std::size_t number);
    void Ask(std::size_t number, Client& client);
    void NoteWait(std::size_t total, Client& client) const;
    void LeaveBehind(std::size_t number);

    const RoomSource& rooms;
    std::array<Input, kMaxPorts> inputs;
    std::array<Client, kAlsaClients> clients;
    Clients leftBehind;
    std::uint64_t cycle = 0;  // time of it
};

}  // namespace vexil
