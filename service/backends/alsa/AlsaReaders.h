// The programs that read inputs, and how much each can still be sent. What a program has no room for is lost
// to it, so the room of an input is that of its fullest reader. A reader that takes nothing for a while is
// not waited for any longer.
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

    using Readers = std::bitset<kClients>;

    // Answers how much room a client has; none when there is no such client. Outlives this object.
    class RoomSource {
      public:
        virtual ~RoomSource() = default;
        virtual std::optional<AlsaRoom> RoomOf(int client) const = 0;
    };
    explicit AlsaReaders(const RoomSource& source) : rooms(source) {}

    // Who reads an input now.
    void SetReaders(int port, const Readers& readers) { inputs[static_cast<std::size_t>(port)] = readers; }
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
    };

    template <class Each>
    void ForEachReader(int port, Each each);
    void Ask(std::size_t number, Client& client);

    const RoomSource& rooms;
    std::array<Readers, kMaxPorts> inputs;
    std::array<Client, kClients> clients;
    std::uint64_t cycle = 0;  // time of it
};

}  // namespace vexil
