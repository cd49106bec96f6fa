// The programs that write to outputs, told apart by their addresses: brings their messages to the engine one
// after the other. While one program's system exclusive is under way on an output, what others write there
// waits; and what a program holds down is released when it goes, while others play on.
//
// The engine thread's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/backends/alsa/AlsaHeldMessages.h"
#include "service/engine/Engine.h"
#include "service/engine/NoteTracker.h"

namespace vexil {

class AlsaWriters {
  public:
    // Longest silence inside a system exclusive for which others wait.
    static constexpr std::uint64_t kLongestSilence = 1'000'000'000;  // nanoseconds

    explicit AlsaWriters(Engine& engine, std::size_t heldBytes = std::size_t{4} << 20);

    // Whole messages that a program wrote to an output.
    void Hear(int port, WriterAddress writer, std::uint64_t now, std::span<const std::uint8_t> messages);
    // Bytes of system exclusive, whatever the program has put there: what does not belong there is left out.
    void HearExclusive(int port, WriterAddress writer, std::uint64_t now,
                       std::span<const std::uint8_t> bytes);
    // A program has disconnected from an output, or has closed.
    void Gone(int port, WriterAddress writer, std::uint64_t now);
    void ClientGone(std::uint8_t client, std::uint64_t now);
    // An output has been withdrawn, with its connections.
    void OutputGone(int port, std::uint64_t now);
    // What was written is not known any more: everything is released.
    void AllGone(std::uint64_t now);

    // Ends the waiting for programs that have fallen silent inside a system exclusive.
    void Run(std::uint64_t now);
    // When Run is to be called at the latest.
    std::optional<std::uint64_t> NextDue() const;

  private:
    static constexpr std::size_t kWriters =
        512;  // that are told apart; what others hold goes with any writer
    static constexpr std::uint32_t kNobody = 0xFFFFFFFF;

    struct Output {
        std::optional<WriterAddress> exclusive;  // the writer whose system exclusive is under way
        std::uint64_t lastHeard = 0;             // of it
        std::size_t last = 0;                    // place of the writer that wrote last
        int writers = 0;
        bool untracked = false;  // a writer found no place among the writers
    };
    static std::uint32_t KeyOf(int port, WriterAddress address) {
        return static_cast<std::uint32_t>(port) << 16 | static_cast<std::uint32_t>(address.client) << 8 |
               address.port;
    }
    static int PortOf(std::uint32_t key) { return static_cast<int>(key >> 16); }
    Output& Of(int port) { return outputs[static_cast<std::size_t>(port)]; }
    const Output& Of(int port) const { return outputs[static_cast<std::size_t>(port)]; }
    NoteTracker* TrackerOf(int port, WriterAddress writer);
    std::size_t Find(std::uint32_t key) const;
    void Remove(std::size_t place, std::uint64_t now);
    void Release(int port, const NoteTracker& gone, std::uint64_t now);
    bool IsHeldByAnother(int port, const std::array<std::uint8_t, 3>& release) const;

    bool MustWait(int port, WriterAddress writer) const;
    bool HoldOrEnd(int port, const HeldMessage& message, std::uint64_t now);
    void TakeHeld(int port, std::uint64_t now);
    bool TakeHeldOnce(int port, std::uint64_t now);
    void EndExclusive(int port, std::uint64_t now);

    void Pass(int port, WriterAddress writer, std::uint64_t now, std::span<const std::uint8_t> messages);
    void PassExclusive(int port, WriterAddress writer, std::uint64_t now,
                       std::span<const std::uint8_t> bytes);

    Engine& engine;
    std::array<Output, kMaxPorts> outputs;
    std::array<std::uint32_t, kWriters> keys{};  // who a tracker belongs to; kNobody: nobody
    std::vector<NoteTracker> sounding;           // what each of them holds
    AlsaHeldMessages held;
};

}  // namespace vexil
