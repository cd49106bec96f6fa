// The programs that write to outputs, told apart by their addresses: each is a source of the engine of its
// own. So a program's system exclusive is not cut by what others write to the same output, and what it holds
// down is released when it goes while others play on.
//
// The engine thread's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "config/DriverConfiguration.h"
#include "service/backends/alsa/AlsaAddress.h"
#include "service/engine/Engine.h"

namespace vexil {

class AlsaWriters {
  public:
    explicit AlsaWriters(Engine& served);

    // Whole messages with their status bytes that a program wrote to an output.
    void Hear(int port, AlsaAddress writer, std::uint64_t now, std::span<const std::uint8_t> messages);
    // Bytes of system exclusive, whatever the program has put there: what does not belong there is left out.
    void HearExclusive(int port, AlsaAddress writer, std::uint64_t now, std::span<const std::uint8_t> bytes);
    // A program has disconnected from an output, or has closed.
    void Gone(int port, AlsaAddress writer, std::uint64_t now);
    void ClientGone(std::uint8_t client, std::uint64_t now);
    // A program's port has been deleted: it wrote to any output, connected or not.
    void PortGone(AlsaAddress writer, std::uint64_t now);
    // An output has been withdrawn, with its connections.
    void OutputGone(int port, std::uint64_t now);
    // Events were lost: everything is released.
    void AllGone(std::uint64_t now);

  private:
    static constexpr int kNone = -1;

    struct Writer {
        AlsaAddress address;
        int next = kNone;  // place of the next writer of the same output
    };
    struct Output {
        int first = kNone;     // place of the writer that wrote last, and then the others
        bool isMixed = false;  // a writer found no source: what it holds goes with any writer
    };

    Output& Of(int port) { return outputs[static_cast<std::size_t>(port)]; }
    Writer& At(int place) { return writers[static_cast<std::size_t>(place)]; }
    int SourceOf(int port, AlsaAddress address);
    int Add(int port, AlsaAddress address);
    template <class Which>
    void Remove(int port, std::uint64_t now, Which which);

    Engine& engine;
    std::array<Output, kMaxPorts> outputs;
    std::vector<Writer> writers;  // by number of its source, from kWriterSourceBase on
};

}  // namespace vexil
