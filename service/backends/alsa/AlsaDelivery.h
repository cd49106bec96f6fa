// Brings what the engine delivers to the programs that read inputs. A reader that is left behind is left out,
// and hears the end of what it was left with before it is taken up again.
//
// The engine thread's, but for what is said to be another's; nothing is allocated once it is made.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "service/backends/alsa/AlsaClient.h"
#include "service/backends/alsa/AlsaCodec.h"
#include "service/backends/alsa/AlsaLateness.h"
#include "service/backends/alsa/AlsaOwed.h"
#include "service/backends/alsa/AlsaReaders.h"
#include "service/engine/EngineSink.h"

namespace vexil {

class AlsaDelivery final : public EngineSink, private AlsaReaders::RoomSource {
  public:
    // `changed` is an event counter, raised when a reader was left behind or taken up.
    AlsaDelivery(AlsaClient& opened, int changed);

    std::size_t Room(const Destination& to) const override;
    void Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) override;

    // Asks who reads an input: its connections have changed.
    void AskForReaders(int port);
    bool Reads(int port, int reader) const { return readers.Reads(port, reader); }

    // What is to be sent is sent. Takes up readers that have caught up.
    void BeginCycle(std::uint64_t now);
    // Something was delivered since BeginCycle.
    bool HasDelivered() const { return hasDelivered; }
    // When to begin a cycle for readers that are owed something or are being silenced; null while there are
    // none.
    std::optional<std::uint64_t> NextLook() const;

    // Any thread's.

    // All readers of an input are to end what they may have been left with, from the next cycle on.
    void Silence(int port) { toSilence.fetch_or(std::uint64_t{1} << port); }
    const AlsaLateness& Lateness() const { return lateness; }

  private:
    static constexpr int kNobody = -1;

    std::optional<AlsaRoom> RoomOf(int reader) const override;
    void Send(int port, snd_seq_event_t& event, bool begins);
    void SilenceReaders();
    void NoteLeftBehind() const;
    void TakeUpReaders();
    bool TakeUp(int reader);
    bool SendTo(int reader, int port, std::span<const std::uint8_t> bytes);
    bool IsAnybodyOwed() const;

    AlsaClient& client;
    const int changedEvent;
    AlsaCodec codec;
    // What is known of the readers' room, and who is left behind, is found out when room is asked for.
    mutable AlsaReaders readers;
    mutable AlsaReaders::Clients known;  // of those left behind
    mutable AlsaOwed owed;
    mutable AlsaLateness lateness;
    mutable std::uint64_t lookInterval = 0;
    int payee = kNobody;  // the reader that is being paid
    AlsaOwed::Debt debt;  // what it is still owed
    bool hasPaid = false;
    std::atomic<std::uint64_t> toSilence{0};        // bit p: input p
    std::uint64_t silencing = 0;                    // those that were begun with
    std::array<std::size_t, kMaxPorts> silenced{};  // messages of it, by input
    bool hasDelivered = false;
    std::uint64_t cycle = 0;  // time of it
};

}  // namespace vexil
