// What is inside a sealed datagram of the link, a body: a header, then frames; among these the records, which
// carry the messages. docs/link-protocol.md shows each byte by byte. All numbers are little-endian.
//
// Pure functions and views of the caller's bytes; nothing is allocated. Any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "service/network/LinkBytes.h"
#include "service/network/PlainDatagram.h"

namespace vexil {

// A datagram is at most 1,200 bytes; sealing takes 37 of them.
inline constexpr std::size_t kLongestDatagram = 1200;
inline constexpr std::size_t kSmallDatagram = 576;
inline constexpr std::size_t kSealingOverhead = 37;
inline constexpr std::size_t kLongestBody = kLongestDatagram - kSealingOverhead;
inline constexpr std::size_t kSmallBody = kSmallDatagram - kSealingOverhead;
// The longest piece of a system exclusive message in one record, and where only small datagrams pass.
inline constexpr std::size_t kLongestLinkPiece = 992;
inline constexpr std::size_t kSmallLinkPiece = 480;

// Sources (outputs, then test outputs) and inputs of a computer, as they are numbered on the wire.
inline constexpr int kLinkSources = 128;
inline constexpr int kLinkInputs = 64;

// Numbers that count on and begin anew at 0 compare by their signed difference: positive when `a` is the
// later one.
inline std::int32_t Distance(std::uint32_t a, std::uint32_t b) {
    return static_cast<std::int32_t>(a - b);
}
inline std::int16_t Distance16(std::uint16_t a, std::uint16_t b) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(a - b));
}

struct BodyHeader {
    std::uint32_t allBelow = 0;  // every record of the reader's below this number has arrived at the writer's
    std::uint32_t time = 0;      // the writer's clock as it left, microseconds
    std::uint32_t echo = 0;      // `time` of the newest body that the writer has from the reader
    std::uint32_t held = 0;      // microseconds since that one arrived; kHeldTooLong: there is no echo
};
inline constexpr std::size_t kBodyHeaderSize = 16;
inline constexpr std::uint32_t kHeldTooLong = 0xFFFFFFFF;

enum class FrameKind : std::uint8_t { Records = 1, Gaps = 2, Bye = 3, Hello = 4, Probe = 5, ProbeAnswer = 6 };

enum class RecordType : std::uint8_t {
    OpenWay = 1,
    Message = 2,
    Piece = 3,
    EndOfWay = 4,
    WayState = 5,
    Name = 6
};

inline constexpr std::uint16_t kOldestAge = 0xFFFF;  // this old or older
inline constexpr std::uint32_t kAgeUnit = 10;        // microseconds

// One record. Its bytes are views.
struct LinkRecord {
    RecordType type = RecordType::Message;
    bool first = true;  // Piece: begins its message
    bool last = true;   // Piece: ends its message
    std::uint8_t source =
        0;  // 0 to 63 an output, 64 to 127 a test output; of the computer where the way begins
    std::uint8_t input = 0;    // 0 to 63; of the computer where the way ends
    std::uint16_t number = 0;  // within (source, input), states of ways and names each by themselves
    std::uint16_t age = 0;     // kAgeUnit before the time in the header: when it was due
    ByteView bytes;            // Message: 1 to 3; Piece, WayState, Name: their content; else empty
};
// Bytes that a record takes up in its frame.
std::size_t SizeOfRecord(RecordType type, std::size_t byteCount);

// Why a way is refused, as it stands on the wire. Numbers are for good; one that a reader does not know is a
// refusal, too.
enum class WayProblem : std::uint8_t {
    None = 0,                 // accepted
    TargetPortUnused = 1,     // the port is above the port count there
    TargetNotInput = 2,       // the port is not enabled as an input there
    TargetIsPipe = 3,         // the port is a local pipe there, which hears only itself
    WrongSourceComputer = 4,  // the input listens to another computer
    WrongSourcePort = 5,      // the input listens to another port
    TooManyWays = 6,          // no more ways are taken from this computer
    PortBusy = 7,             // the port is in other hands there at the moment
};
struct WayStateContent {
    WayProblem problem = WayProblem::None;
    std::uint32_t pieceLimit = 0;  // pieces may be sent up to this byte of the way; counts on
};
inline constexpr std::size_t kWayStateSize = 5;
std::array<std::uint8_t, kWayStateSize> PackWayState(const WayStateContent& state);
// Null when the content is too short.
std::optional<WayStateContent> ReadWayState(ByteView content);

enum class ByeReason : std::uint8_t {
    Stopping = 1,
    Replaced = 2,
    Refused = 3,
    Unused = 4,
    Unheard = 5,  // the writer has heard nothing of the reader for too long
};
enum class Refusal : std::uint8_t {
    None = 0,
    NotAllowed = 1,    // addresses like this one, or this computer, are not let in
    OtherKey = 2,      // another key is pinned under this name
    SecretNeeded = 3,  // no proof of the secret came
    SecretWrong = 4,   // the proof does not fit
    OtherVersion = 5,  // no version in common
    SameKey = 6,       // two living computers use one key
    TooMany = 7,       // no room for another computer
};
struct Bye {
    ByeReason reason = ByeReason::Stopping;
    Refusal refusal = Refusal::None;  // of Refused
};

using SecretProof = std::array<std::uint8_t, 32>;

// The first that both computers send in a session, in every datagram until the other is known to have it.
struct Hello {
    std::uint8_t lowestVersion = kLinkVersion;
    std::uint8_t highestVersion = kLinkVersion;
    bool hasYours = false;             // the writer has the reader's hello of this session
    bool renewal = false;              // ways and numbers of the association go on
    std::uint64_t association = 0;     // chosen by the caller, anew at each call; never 0
    std::optional<SecretProof> proof;  // that the writer knows the secret
    std::string_view name;             // of the writer; see IsComputerName
};

// Records that have not arrived: first up to, and without, end.
struct Hole {
    std::uint32_t first = 0;
    std::uint32_t end = 0;
    bool operator==(const Hole&) const = default;
};
inline constexpr std::size_t kMostHoles = 24;
struct Gaps {
    std::uint32_t highest = 0;  // the highest record that has arrived
    std::array<Hole, kMostHoles> holes;
    std::size_t count = 0;  // the lowest holes; when it is kMostHoles there may be more
};

// Writes one body. Each Add returns whether the whole of it fitted; what does not fit leaves the body as it
// was.
class BodyWriter {
  public:
    // `out` has room for the header at least; no more than its size is written.
    BodyWriter(std::span<std::uint8_t> out, const BodyHeader& header);

    std::size_t Size() const { return writer.Size(); }
    std::size_t Room() const { return writer.Room(); }
    bool HasFrames() const { return Size() > kBodyHeaderSize; }

    // Records of consecutive numbers share a frame; another number begins another.
    bool AddRecord(std::uint32_t number, const LinkRecord& record);
    bool AddGaps(const Gaps& gaps);
    bool AddBye(const Bye& bye);
    bool AddHello(const Hello& hello);
    bool AddProbe(std::uint64_t token);
    bool AddProbeAnswer(std::uint64_t token);

  private:
    std::size_t BeginFrame(FrameKind kind);
    void EndFrame(std::size_t place);

    ByteWriter writer;
    std::size_t recordsPlace = 0;  // of the frame of records that is written last; 0: another was
    std::uint32_t nextNumber = 0;  // that goes on in it
};

// One frame of a body.
struct Frame {
    std::uint8_t kind = 0;  // a FrameKind, or one that is not known
    ByteView content;
};

// Reads a body whose form has been checked.
class BodyReader {
  public:
    // Null when any part of the body is malformed: nothing of such a body counts. Kinds of frames that are
    // not known are passed over.
    static std::optional<BodyReader> Open(ByteView body);

    const BodyHeader& Header() const { return header; }
    // The next frame; null after the last.
    std::optional<Frame> NextFrame();

  private:
    BodyReader(const BodyHeader& read, ByteView frames) : header(read), rest(frames) {}

    BodyHeader header;
    ByteReader rest;
};

// The contents of frames of a checked body. Each is null when the content is malformed, which a checked one
// never is.
class RecordReader {
  public:
    explicit RecordReader(ByteView content);

    // The next record; null after the last and at a malformed one.
    std::optional<LinkRecord> Next();
    // The number of the record that Next gave last.
    std::uint32_t Number() const { return next - 1; }
    bool IsMalformed() const { return malformed; }

  private:
    ByteReader rest;
    std::uint32_t next = 0;
    bool malformed = false;
};
std::optional<Gaps> ReadGaps(ByteView content);
std::optional<Bye> ReadBye(ByteView content);
std::optional<Hello> ReadHello(ByteView content);
std::optional<std::uint64_t> ReadProbe(ByteView content);

}  // namespace vexil
