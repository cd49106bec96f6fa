// Puts right what lost packets of a peer left wrong, from the recovery journal of the packet that ends the
// loss (RFC 6295).
//
// It follows all that is heard of a peer, and compares: what the journal says besides is played. Releases
// come first: the ends of notes, then programs, controllers and the rest, then the beginnings of notes. Only
// a gap in front of a packet is a reason to look into its journal. Where the journal is absent, malformed or
// begins too late, what sounds is released: no note is to sound on.
//
// A state without clock and socket. One thread at a time; nothing is allocated.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "service/engine/MidiParser.h"
#include "service/network/rtp/HeardChannel.h"
#include "service/network/rtp/JournalReader.h"
#include "service/network/rtp/RtpCodec.h"

namespace vexil {

class JournalReceiver {
  public:
    // What a packet is that has come.
    enum class Arrival : std::uint8_t {
        Next,      // the one after the newest, or the first of the stream
        Repaired,  // packets in front of it are missing; all is right again but their system exclusive
        Released,  // packets in front of it are missing, and not all could be put right: what sounded was
                   // released
        Old,       // it had come already, or comes too late: its commands are not to be heard
    };

    // A packet has come. Unless it is Old, its commands are to be heard after this. What the listener hears
    // counts as heard here already.
    Arrival Arrived(const RtpPacket& packet, RepairListener& listener);
    // A command of a packet is heard: a whole message, or a piece of a system exclusive.
    void Heard(const MidiPiece& piece);
    // Plays the ends of all notes and pedals, as at the end of a session.
    void Release(RepairListener& listener);

    // The newest packet up to which everything is known, for feedback; null before the first packet. It
    // stays behind while a damaged journal left something unknown.
    std::optional<std::uint16_t> Known() const { return known; }
    // Packets that did not come, or came too late.
    std::uint64_t Lost() const { return lost; }

  private:
    // A packet that is no further behind the newest one was overtaken, or came twice. Two in a row that are
    // further behind are a peer that counts anew.
    static constexpr int kMostMisplaced = 100;

    static constexpr std::uint8_t kNoSong = 0xFF;

    bool IsNewStream(std::uint16_t sequence, int distance);
    Arrival BeginStream(const RtpPacket& packet, RepairListener& listener);
    Arrival HearGap(const RtpPacket& packet, int missing, RepairListener& listener);
    void HeardSystem(ByteView message);
    void ResetAll();
    void Repair(rtp::JournalReader journal, bool isSingle, RepairListener& listener);
    void PlaySystem(const std::array<std::uint8_t, 2>& bytes, std::size_t size, RepairListener& listener);
    // Ends what sounds, but what the journal says goes on.
    void ReleaseBut(rtp::JournalReader journal, RepairListener& listener);

    std::optional<std::uint16_t> newest;
    std::optional<std::uint16_t> known;
    std::optional<std::uint16_t>
        misplacedNext;  // what would follow the last packet, which was far out of line
    std::uint64_t lost = 0;
    std::array<rtp::HeardChannel, rtp::kChannels> channels;
    std::uint8_t resets = 0;
    std::uint8_t tuneRequests = 0;
    std::uint8_t song = kNoSong;
    rtp::ResetMessage resetMessage;
};

}  // namespace vexil
