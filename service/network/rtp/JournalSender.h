// Writes the recovery journal (RFC 6295): what a receiver that has lost packets needs to be right again. It
// covers every packet from the checkpoint on; the peer's feedback moves the checkpoint ("closed loop").
//
// A state without clock and socket. One thread at a time; nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "service/engine/MidiParser.h"
#include "service/network/LinkBytes.h"
#include "service/network/rtp/ChannelMessages.h"
#include "service/network/rtp/JournalChannel.h"
#include "service/network/rtp/RtpBytes.h"

namespace vexil {

// The longest journal that is written. Where more would be needed because feedback stays away, the checkpoint
// moves on: the journal then says itself that it covers less.
inline constexpr std::size_t kLongestJournal = 640;

class JournalSender {
  public:
    // `firstSequence`: the number of the stream's first packet.
    explicit JournalSender(std::uint16_t firstSequence);

    // The number of the next packet.
    std::uint16_t NextSequence() const { return static_cast<std::uint16_t>(next); }

    // For each packet in turn: its journal is written, its commands are sent, the packet ends. One that is
    // given up before anything was sent does not end.

    // Writes the journal of the next packet, of what was sent before it, and returns its size, which is at
    // least 3. `timestamp` is the packet's. `out` has room for kSmallestJournal at least; at most
    // kLongestJournal bytes are written.
    std::size_t Write(std::uint32_t timestamp, std::span<std::uint8_t> out);
    // A command of this packet, in its order: a whole message, or a piece of a system exclusive.
    void Sent(std::uint32_t timestamp, const MidiPiece& piece);
    void EndPacket() { ++next; }

    // The field of a feedback command has come: the peer has everything up to a packet. False when it names
    // none that was sent and is not confirmed; nothing changes then.
    bool Confirm(std::uint32_t feedback);
    // Whether a command was sent that is not confirmed. While so, a packet without commands, but with a
    // journal, is worth sending: should the newest packets be lost, it ends the loss.
    bool NeedsGuard() const { return lastCommand > confirmed; }

  private:
    struct Counted {
        std::uint64_t packet = 0;  // of the newest command; 0: not to be logged
        std::uint8_t value = 0;
    };

    void SentSystem(std::uint64_t packet, ByteView message);
    void ResetAll();
    void MoveCheckpoint(std::uint64_t packet);
    // The whole journal of the next packet; 0 when it does not fit.
    std::size_t TryWrite(std::uint32_t timestamp, std::span<std::uint8_t> out) const;
    bool HasSystem() const { return resets.packet != 0 || tuneRequests.packet != 0 || song.packet != 0; }
    bool WriteSystem(std::uint64_t newest, RtpByteWriter& writer) const;

    // Packets are counted on beyond 16 bits; never 0.
    std::uint64_t next;
    std::uint64_t checkpoint;
    std::uint64_t confirmed;  // the newest packet that the peer has said it has
    std::uint64_t lastCommand = 0;
    std::array<rtp::JournalChannel, rtp::kChannels> channels;
    // Chapter D.
    Counted resets;
    Counted tuneRequests;
    Counted song;
    rtp::ResetMessage resetMessage;
};
inline constexpr std::size_t kSmallestJournal = 3;

}  // namespace vexil
