#include "service/network/LinkCodec.h"

namespace vexil {

namespace {

constexpr std::size_t kFrameHeaderSize = 3;
constexpr std::size_t kRecordHeaderSize = 7;
constexpr std::uint8_t kTypeBits = 0x0F;
constexpr int kFlagShift = 4;
constexpr std::uint8_t kFirstPiece = 0x10;
constexpr std::uint8_t kLastPiece = 0x20;
constexpr std::uint8_t kHasYours = 1;
constexpr std::uint8_t kRenewal = 2;
constexpr std::uint8_t kHasProof = 4;

std::uint8_t FirstByteOf(const LinkRecord& record) {
    const auto type = static_cast<std::uint8_t>(record.type);
    if (record.type == RecordType::Message) {
        return static_cast<std::uint8_t>(type | record.bytes.size() << kFlagShift);
    }
    if (record.type == RecordType::Piece) {
        return static_cast<std::uint8_t>(type | (record.first ? kFirstPiece : 0) |
                                         (record.last ? kLastPiece : 0));
    }
    return type;
}

std::string_view AsText(ByteView bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool IsRecordSound(const LinkRecord& record) {
    if (record.source >= kLinkSources || record.input >= kLinkInputs) {
        return false;
    }
    switch (record.type) {
        case RecordType::Message:
            return !record.bytes.empty() && record.bytes.size() <= 3;
        case RecordType::Piece:
            return !record.bytes.empty() && record.bytes.size() <= kLongestLinkPiece;
        case RecordType::WayState:
            return record.bytes.size() >= kWayStateSize;
        case RecordType::Name:
            return IsComputerName(AsText(record.bytes));
        case RecordType::OpenWay:
        case RecordType::EndOfWay:
            return true;
    }
    return false;
}

bool IsFrameSound(const Frame& frame) {
    switch (static_cast<FrameKind>(frame.kind)) {
        case FrameKind::Records: {
            RecordReader records(frame.content);
            while (records.Next()) {
            }
            return !records.IsMalformed();
        }
        case FrameKind::Gaps:
            return ReadGaps(frame.content).has_value();
        case FrameKind::Bye:
            return ReadBye(frame.content).has_value();
        case FrameKind::Hello:
            return ReadHello(frame.content).has_value();
        case FrameKind::Probe:
        case FrameKind::ProbeAnswer:
            return ReadProbe(frame.content).has_value();
    }
    return true;
}

std::optional<Frame> TakeFrame(ByteReader& rest) {
    Frame frame;
    frame.kind = rest.Take<std::uint8_t>();
    frame.content = rest.TakeBytes(rest.Take<std::uint16_t>());
    return rest.IsShort() ? std::nullopt : std::optional(frame);
}

}  // namespace

std::size_t SizeOfRecord(RecordType type, std::size_t byteCount) {
    return kRecordHeaderSize + (type == RecordType::Message ? 0 : 2) + byteCount;
}

std::array<std::uint8_t, kWayStateSize> PackWayState(const WayStateContent& state) {
    std::array<std::uint8_t, kWayStateSize> content{};
    ByteWriter writer(content);
    writer.Put(static_cast<std::uint8_t>(state.problem));
    writer.Put(state.pieceLimit);
    return content;
}

std::optional<WayStateContent> ReadWayState(ByteView content) {
    ByteReader reader(content);
    WayStateContent state;
    state.problem = static_cast<WayProblem>(reader.Take<std::uint8_t>());
    state.pieceLimit = reader.Take<std::uint32_t>();
    return reader.IsShort() ? std::nullopt : std::optional(state);
}

BodyWriter::BodyWriter(std::span<std::uint8_t> out, const BodyHeader& header) : writer(out) {
    writer.Put(header.allBelow);
    writer.Put(header.time);
    writer.Put(header.echo);
    writer.Put(header.held);
}

std::size_t BodyWriter::BeginFrame(FrameKind kind) {
    const std::size_t place = writer.Size();
    writer.Put(static_cast<std::uint8_t>(kind));
    writer.Put(std::uint16_t{0});
    recordsPlace = 0;
    return place;
}

void BodyWriter::EndFrame(std::size_t place) {
    writer.PutLengthAt(place + 1, writer.Size() - place - kFrameHeaderSize);
}

bool BodyWriter::AddRecord(std::uint32_t number, const LinkRecord& record) {
    const bool goesOn = recordsPlace != 0 && number == nextNumber;
    const std::size_t needed = SizeOfRecord(record.type, record.bytes.size()) +
                               (goesOn ? 0 : kFrameHeaderSize + sizeof(std::uint32_t));
    if (writer.Room() < needed) {
        return false;
    }
    if (!goesOn) {
        const std::size_t place = BeginFrame(FrameKind::Records);
        writer.Put(number);
        recordsPlace = place;
    }
    writer.Put(FirstByteOf(record));
    writer.Put(record.source);
    writer.Put(record.input);
    writer.Put(record.number);
    writer.Put(record.age);
    if (record.type != RecordType::Message) {
        writer.Put(static_cast<std::uint16_t>(record.bytes.size()));
    }
    writer.PutBytes(record.bytes);
    EndFrame(recordsPlace);
    nextNumber = number + 1;
    return true;
}

bool BodyWriter::AddGaps(const Gaps& gaps) {
    if (writer.Room() < kFrameHeaderSize + sizeof(std::uint32_t) + gaps.count * 2 * sizeof(std::uint32_t)) {
        return false;
    }
    const std::size_t place = BeginFrame(FrameKind::Gaps);
    writer.Put(gaps.highest);
    for (std::size_t index = 0; index < gaps.count; ++index) {
        writer.Put(gaps.holes[index].first);
        writer.Put(gaps.holes[index].end);
    }
    EndFrame(place);
    return true;
}

bool BodyWriter::AddBye(const Bye& bye) {
    if (writer.Room() < kFrameHeaderSize + 2) {
        return false;
    }
    const std::size_t place = BeginFrame(FrameKind::Bye);
    writer.Put(static_cast<std::uint8_t>(bye.reason));
    writer.Put(static_cast<std::uint8_t>(bye.refusal));
    EndFrame(place);
    return true;
}

bool BodyWriter::AddHello(const Hello& hello) {
    const std::size_t proofSize = hello.proof ? hello.proof->size() : 0;
    if (writer.Room() < kFrameHeaderSize + 11 + proofSize + hello.name.size()) {
        return false;
    }
    const std::size_t place = BeginFrame(FrameKind::Hello);
    writer.Put(hello.lowestVersion);
    writer.Put(hello.highestVersion);
    writer.Put(static_cast<std::uint8_t>((hello.hasYours ? kHasYours : 0) | (hello.renewal ? kRenewal : 0) |
                                         (hello.proof ? kHasProof : 0)));
    writer.Put(hello.association);
    if (hello.proof) {
        writer.PutBytes(*hello.proof);
    }
    writer.PutBytes({reinterpret_cast<const std::uint8_t*>(hello.name.data()), hello.name.size()});
    EndFrame(place);
    return true;
}

bool BodyWriter::AddProbe(std::uint64_t token) {
    if (writer.Room() < kFrameHeaderSize + sizeof token) {
        return false;
    }
    const std::size_t place = BeginFrame(FrameKind::Probe);
    writer.Put(token);
    EndFrame(place);
    return true;
}

bool BodyWriter::AddProbeAnswer(std::uint64_t token) {
    if (writer.Room() < kFrameHeaderSize + sizeof token) {
        return false;
    }
    const std::size_t place = BeginFrame(FrameKind::ProbeAnswer);
    writer.Put(token);
    EndFrame(place);
    return true;
}

std::optional<BodyReader> BodyReader::Open(ByteView body) {
    ByteReader reader(body);
    BodyHeader header;
    header.allBelow = reader.Take<std::uint32_t>();
    header.time = reader.Take<std::uint32_t>();
    header.echo = reader.Take<std::uint32_t>();
    header.held = reader.Take<std::uint32_t>();
    if (reader.IsShort()) {
        return std::nullopt;
    }
    const BodyReader opened(header, reader.Rest());
    while (!reader.Rest().empty()) {
        const std::optional<Frame> frame = TakeFrame(reader);
        if (!frame || !IsFrameSound(*frame)) {
            return std::nullopt;
        }
    }
    return opened;
}

std::optional<Frame> BodyReader::NextFrame() {
    return rest.Rest().empty() ? std::nullopt : TakeFrame(rest);
}

RecordReader::RecordReader(ByteView content) : rest(content) {
    next = rest.Take<std::uint32_t>();
    malformed = rest.IsShort();
}

std::optional<LinkRecord> RecordReader::Next() {
    if (malformed || rest.Rest().empty()) {
        return std::nullopt;
    }
    const auto firstByte = rest.Take<std::uint8_t>();
    LinkRecord record;
    record.type = static_cast<RecordType>(firstByte & kTypeBits);
    record.source = rest.Take<std::uint8_t>();
    record.input = rest.Take<std::uint8_t>();
    record.number = rest.Take<std::uint16_t>();
    record.age = rest.Take<std::uint16_t>();
    if (record.type == RecordType::Piece) {
        record.first = (firstByte & kFirstPiece) != 0;
        record.last = (firstByte & kLastPiece) != 0;
    }
    const std::size_t count =
        record.type == RecordType::Message ? firstByte >> kFlagShift : rest.Take<std::uint16_t>();
    record.bytes = rest.TakeBytes(count);
    if (rest.IsShort() || !IsRecordSound(record)) {
        malformed = true;
        return std::nullopt;
    }
    ++next;
    return record;
}

std::optional<Gaps> ReadGaps(ByteView content) {
    ByteReader reader(content);
    Gaps gaps;
    gaps.highest = reader.Take<std::uint32_t>();
    while (!reader.Rest().empty()) {
        if (gaps.count == kMostHoles) {
            return std::nullopt;
        }
        Hole& hole = gaps.holes[gaps.count++];
        hole.first = reader.Take<std::uint32_t>();
        hole.end = reader.Take<std::uint32_t>();
        // Holes go upwards, do not touch, and lie below the highest.
        const bool goesUp = gaps.count < 2 || Distance(hole.first, gaps.holes[gaps.count - 2].end) > 0;
        if (Distance(hole.end, hole.first) <= 0 || Distance(gaps.highest, hole.end) < 0 || !goesUp) {
            return std::nullopt;
        }
    }
    return reader.IsShort() ? std::nullopt : std::optional(gaps);
}

std::optional<Bye> ReadBye(ByteView content) {
    ByteReader reader(content);
    Bye bye;
    bye.reason = static_cast<ByeReason>(reader.Take<std::uint8_t>());
    bye.refusal = static_cast<Refusal>(reader.Take<std::uint8_t>());
    return reader.IsShort() ? std::nullopt : std::optional(bye);
}

std::optional<Hello> ReadHello(ByteView content) {
    ByteReader reader(content);
    Hello hello;
    hello.lowestVersion = reader.Take<std::uint8_t>();
    hello.highestVersion = reader.Take<std::uint8_t>();
    const auto flags = reader.Take<std::uint8_t>();
    hello.hasYours = (flags & kHasYours) != 0;
    hello.renewal = (flags & kRenewal) != 0;
    hello.association = reader.Take<std::uint64_t>();
    if ((flags & kHasProof) != 0) {
        const ByteView proof = reader.TakeBytes(SecretProof{}.size());
        if (reader.IsShort()) {
            return std::nullopt;
        }
        std::copy(proof.begin(), proof.end(), hello.proof.emplace().begin());
    }
    hello.name = AsText(reader.Rest());
    const bool isSound = !reader.IsShort() && hello.lowestVersion <= hello.highestVersion &&
                         hello.association != 0 && IsComputerName(hello.name);
    return isSound ? std::optional(hello) : std::nullopt;
}

std::optional<std::uint64_t> ReadProbe(ByteView content) {
    ByteReader reader(content);
    const auto token = reader.Take<std::uint64_t>();
    return reader.IsShort() ? std::nullopt : std::optional(token);
}

}  // namespace vexil
