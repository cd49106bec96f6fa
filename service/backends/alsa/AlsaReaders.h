// The programs that read inputs, and how much each can still be sent. What a program has no room for is lost
// to it, so the room of an input is that of its fullest reader. There are two limits to that. A reader that
// takes nothing for a while is not waited for any longer. And where others read the same input, nor is one
// that has kept them waiting for kLongestWait in all since it last had room for a piece, however little it
// takes in between; the next time that it falls behind it keeps them waiting for kShortWait only.
//
// The engine thread's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "config/DriverConfiguration.h"
#include "service/backends/alsa/AlsaRoom.h"

namespace vexil {

class AlsaReaders {
  public:
    static constexpr std::size_t kClients = 256;  // an address has so many
    // How long a reader may take nothing before the others are served without it.
    static constexpr std::uint64_t kLongestWait = 1'000'000'000;  // nanoseconds
    static constexpr std::uint64_t kShortWait = 50'000'000;

    using Readers = std::bitset<kClients>;

    // Answers how much room a client has; null when there is no such client. Outlives this object.
    class RoomSource {
      public:
        virtual ~RoomSource() = default;
        virtual std::optional<AlsaRoom> RoomOf(int client) const = 0;
    };
    explicit AlsaReaders(const RoomSource& source) : rooms(source) {}

    // Who reads an input now. Of one that reads no input any more, nothing is remembered.
    void SetReaders(int port, const Readers& readers);
    bool Reads(int port, int client) const {
        return inputs[static_cast<std::size_t>(port)].test(static_cast<std::size_t>(client));
    }
    bool HasReaders(int port) const { return inputs[static_cast<std::size_t>(port)].any(); }

    // What was known of their room may have changed. Call when everything that was counted with Sent is sent.
    void BeginCycle(std::uint64_t now);
    // Bytes that an input can take, as messages or as pieces of kAlsaPieceBytes.
    std::size_t Room(int port);
    // One event with so many bytes of system exclusive (0: another message) is on its way to the readers of
    // an input.
    void Sent(int port, std::size_t exclusiveBytes);

  private:
    struct Client {
        bool known = false;      // `free` is of this cycle
        bool unlimited = false;  // this cycle
        bool leftBehind = false;
        std::size_t free = 0;
        std::uint64_t fullSince = 0;  // 0: it is not
        std::uint64_t fullAt = 0;     // when it was last found full; 0: it was not at the last look
        std::uint64_t waited = 0;     // in all, since it last had room for a piece
        std::uint64_t patience = kLongestWait;
    };

    template <class Each>
    void ForEachReader(int port, Each each);
    void Ask(std::size_t number, Client& client);
    void NoteWait(std::size_t total, Client& client) const;
    static void LeaveBehind(Client& client);

    const RoomSource& rooms;
    std::array<Readers, kMaxPorts> inputs;
    std::array<Client, kClients> clients;
    std::uint64_t cycle = 0;  // time of it
};

}  // namespace vexil
