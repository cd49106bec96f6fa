// The datagrams of RTP-MIDI: the commands by which sessions begin, keep time and end, and the packets that
// carry MIDI (RFC 6295). docs/rtp-midi.md shows each byte by byte. All numbers are big-endian.
//
// A session has two UDP ports: on the control port there are session commands alone, on the data port,
// one above, both kinds. They are told apart by the first two bytes.
//
// Pure functions and views of the caller's bytes; nothing is allocated. One thread at a time for each object.
// Every malformed datagram is answered by null, or by IsMalformed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "service/engine/MidiParser.h"
#include "service/network/LinkBytes.h"

namespace vexil {

// The longest datagram that is written; longer ones are read.
inline constexpr std::size_t kLongestRtpDatagram = 1200;

// ---- Session commands

inline constexpr std::uint32_t kRtpSessionVersion = 2;
// Bytes of a session's name; a longer one is cut when it is written, and may be longer where it is read.
inline constexpr std::size_t kLongestSessionName = 255;
// The unit of the times in a clock command, and of all times in packets: 10,000 in a second.
inline constexpr std::uint32_t kRtpTicksPerSecond = 10000;

enum class SessionCommandKind : std::uint8_t {
    Invitation,    // IN, on the control port, then on the data port
    Accepted,      // OK
    Refused,       // NO
    Bye,           // BY
    Clock,         // CK
    Feedback,      // RS: what the writer has received
    BitrateLimit,  // RL: how much the writer wants to be sent
};

// One command. Only the fields that the kind has count.
struct SessionCommand {
    SessionCommandKind kind = SessionCommandKind::Invitation;
    std::uint32_t ssrc = 0;  // of the writer; every kind has it

    // Invitation, Accepted, Refused, Bye.
    std::uint32_t version = kRtpSessionVersion;
    // The answers repeat the token of the very invitation they answer. Some peers choose another token on
    // each of their ports, and some send a bye without one: then it is absent. A session is found by the SSRC
    // and the address, never by the token.
    std::optional<std::uint32_t> token = 0;
    // Invitation, Accepted and, by some peers, Refused: the writer's name, may be empty. Any bytes without a
    // zero: the reader decides whether they are fit to be shown.
    std::string_view name;

    // Clock: count 0 is the caller's and has its time in the first place; 1 is the answer and has the
    // called's time in the second place as well; 2 ends the exchange and has all three. In
    // kRtpTicksPerSecond.
    std::uint8_t count = 0;
    std::array<std::uint64_t, 3> times{};

    // Feedback: the number of the newest packet that has come without a gap before it. The standing form has
    // it in the high half, and other peers in the low half: see FeedbackSequence.
    std::uint32_t feedback = 0;

    // BitrateLimit: bits a second.
    std::uint32_t bitrate = 0;
};

// Whether a datagram is a session command, by its first two bytes; else it may be a packet.
bool IsSessionCommand(ByteView datagram);
// Null when it is malformed, or a command that is not known. What stands behind a command is passed over. The
// name is a view of the datagram.
std::optional<SessionCommand> ReadSessionCommand(ByteView datagram);
// Writes one command and returns its size; 0 when `out` has no room for it. A bye without a token is written
// without one. A count of a clock command is 0 to 2.
std::size_t WriteSessionCommand(const SessionCommand& command, std::span<std::uint8_t> out);

// The field of a feedback command for a packet's number, in the standing form.
constexpr std::uint32_t FeedbackOf(std::uint16_t sequence) {
    return std::uint32_t{sequence} << 16;
}
// The packet's number in such a field: the half that is not zero; of two such halves the one that lies nearer
// before `newestSent`, the newest packet that was sent to the peer.
std::uint16_t FeedbackSequence(std::uint32_t feedback, std::uint16_t newestSent);

// ---- Packets

struct RtpHeader {
    std::uint16_t sequence = 0;   // one more in each packet of a stream
    std::uint32_t timestamp = 0;  // kRtpTicksPerSecond of the writer's clock
    std::uint32_t ssrc = 0;       // of the writer
};

// A packet whose form has been checked as far as these fields go. Its bytes are views.
struct RtpPacket {
    RtpHeader header;
    ByteView list;                 // of commands; empty in a packet that only guards
    bool listBeginsTimed = false;  // the first command has a delta time, too
    bool hasJournal = false;
    ByteView journal;  // to the end of the packet
};
// Null when the datagram is malformed, cut, or not RTP version 2 with payload type 97. The marker bit,
// padding, contributing sources and an extension of the header count for nothing.
std::optional<RtpPacket> ReadRtpPacket(ByteView datagram);

// What is kept of a stream from one packet to the next: whether a system exclusive message is under way.
class ExclusiveInput {
  public:
    bool IsUnderWay() const { return isUnderWay; }
    // Packets are missing, or the session ends. The end of the message that is under way, to be heard in its
    // place; null when no message is under way. What still comes of it is not handed out.
    std::optional<MidiPiece> End();

  private:
    friend class RtpCommandReader;
    bool isUnderWay = false;
};

// One whole message, or one piece of a system exclusive message of at most kLongestPiece bytes.
struct RtpCommand {
    std::uint32_t timestamp = 0;  // of the clock that the header's timestamp is of
    MidiPiece piece;
};

// Reads the commands of a packet, in all their forms. Channel messages come out with their status byte;
// realtime messages that stand in a system exclusive, in front of or between its pieces. A system exclusive
// that is cancelled, or that another message cuts, is ended with F7, so that whoever heard its beginning
// hears an end. Undefined messages, and the rest of a message whose beginning was not heard, do not come out.
class RtpCommandReader {
  public:
    // The packet's bytes and `exclusive` outlive the reader.
    RtpCommandReader(const RtpPacket& packet, ExclusiveInput& exclusive);

    // The next command; null after the last, and where the list is malformed: what stood before that place
    // has come out. A piece's bytes last until the next call, and as long as the packet's.
    std::optional<RtpCommand> Next();
    bool IsMalformed() const { return malformed; }

  private:
    bool TakeDelta();
    std::optional<MidiPiece> TakeCommand();
    std::optional<MidiPiece> TakeChannelMessage(std::uint8_t byte);
    std::optional<MidiPiece> TakeSystemMessage(std::uint8_t status);
    std::optional<MidiPiece> TakeExclusive();
    std::optional<MidiPiece> Message(std::uint8_t status, std::size_t dataBytes);
    std::optional<MidiPiece> Fail();

    ByteView rest;
    ExclusiveInput& exclusive;
    std::uint32_t timestamp;
    std::array<std::uint8_t, 3> message{};
    std::uint8_t runningStatus = 0;
    bool isTimed;              // a delta time is next
    bool isInSegment = false;  // bytes of a system exclusive are next
    bool isFirst = false;      // the next piece begins its message
    bool malformed = false;
};

// A part of a system exclusive message as it stands in a packet: without F0 and F7, at least one byte unless
// it is the last.
struct ExclusiveSegment {
    ByteView data;
    bool first = true;
    bool last = true;
};
// F0 or F7 in front and behind come to these, so that a segment takes up 512 bytes.
inline constexpr std::size_t kLongestSegmentData = 510;

// Cuts the pieces of a system exclusive message into segments, one message after another.
class ExclusiveOutput {
  public:
    // The next piece; all segments of the one before have been taken. Its bytes outlive the segments.
    void Take(const MidiPiece& piece);
    // The next segment of the piece; null after the last.
    std::optional<ExclusiveSegment> Next();

  private:
    ByteView rest;
    bool endsMessage = false;  // a segment that is the last is still to come
    bool isFirst = false;      // no segment of the message has been given
};

inline constexpr std::size_t kSmallestRtpPacket = 14;

// Writes one packet. No running status. Each Add returns whether the whole of it fitted; what does not fit
// leaves the packet as it was.
class RtpPacketWriter {
  public:
    // `out` has room for an empty packet at least, kSmallestRtpPacket; no more than its size is written.
    // `journalRoom` is kept free for the journal: commands do not take it up.
    RtpPacketWriter(std::span<std::uint8_t> out, const RtpHeader& header, std::size_t journalRoom);

    // `timestamp`: when the command is due. One that is earlier than the command before counts as due with
    // it; one that is more than 2^28 - 1 ticks later does not fit. A whole message that is not system
    // exclusive, with its status byte.
    bool AddMessage(std::uint32_t timestamp, ByteView message);
    bool AddSegment(std::uint32_t timestamp, const ExclusiveSegment& segment);
    bool HasCommands() const { return size > kListPlace; }

    // The size of the whole packet. `journal` is at most `journalRoom` long; empty: the packet is written
    // without a journal.
    std::size_t Finish(ByteView journal);

  private:
    static constexpr std::size_t kListPlace = 14;  // behind the header and the longer form of the length

    bool BeginCommand(std::uint32_t timestamp, std::size_t commandSize);
    void PutByte(int byte) { buffer[size++] = static_cast<std::uint8_t>(byte); }
    void PutBytes(ByteView bytes);

    std::span<std::uint8_t> buffer;
    std::size_t limit = 0;   // the list ends here at the latest
    std::uint32_t last = 0;  // the timestamp of the newest command
    bool beginsTimed = false;
    std::size_t size = kListPlace;
};

}  // namespace vexil
