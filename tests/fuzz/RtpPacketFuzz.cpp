// Packets of RTP-MIDI one behind the other, each in a buffer of exactly its length: what comes out is MIDI,
// and written again it reads the same. In the input a byte with the length stands in front of each packet; 0
// is 256.
#include <array>
#include <vector>

#include "service/network/rtp/RtpCodec.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using vexil::test::Check;

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kJournalRoom = 3;
constexpr std::uint32_t kDelay = 300;

// Sees that a stream is whole messages and whole system exclusives, with realtime messages between their
// pieces.
struct Stream {
    void Take(const MidiPiece& piece) {
        Check(!piece.bytes.empty() && piece.bytes.size() <= kLongestPiece, "a piece has its size");
        if (piece.systemExclusive) {
            Check(piece.first != inExclusive, "an exclusive has one beginning");
            Check(!piece.first || piece.bytes.front() == 0xF0, "it begins with F0");
            Check(!piece.last || piece.bytes.back() == 0xF7, "it ends with F7");
            for (std::size_t place = piece.first ? 1 : 0; place + (piece.last ? 1 : 0) < piece.bytes.size();
                 ++place) {
                Check(piece.bytes[place] < 0x80, "within are data bytes");
            }
            inExclusive = !piece.last;
            return;
        }
        const std::uint8_t status = piece.bytes.front();
        Check(status >= 0x80 && status != 0xF0 && status != 0xF7, "a message begins with its status");
        Check(!inExclusive || status >= 0xF8, "in an exclusive are realtime messages alone");
        for (std::size_t place = 1; place < piece.bytes.size(); ++place) {
            Check(piece.bytes[place] < 0x80, "behind it are data bytes");
        }
    }
    bool inExclusive = false;
};

// All that came out. An F0 that a realtime message follows is written behind it: no segment is empty.
struct Heard {
    Bytes exclusives;
    Bytes messages;
    bool operator==(const Heard&) const = default;
};

void Add(Heard& heard, const MidiPiece& piece) {
    Bytes& bytes = piece.systemExclusive ? heard.exclusives : heard.messages;
    bytes.insert(bytes.end(), piece.bytes.begin(), piece.bytes.end());
}

// What comes out, and the same as it comes out of packets that were written from it.
struct Player {
    void Play(ByteView datagram) {
        const auto packet = ReadRtpPacket(datagram);
        if (!packet) {
            return;
        }
        Check(packet->list.size() + packet->journal.size() <= datagram.size(), "its parts are in it");
        RtpCommandReader reader(*packet, input);
        while (const auto command = reader.Next()) {
            stream.Take(command->piece);
            WriteAgain(*command);
        }
        Check(stream.inExclusive == input.IsUnderWay(), "it is known whether an exclusive is under way");
    }
    void WriteAgain(const RtpCommand& command) {
        Add(heard, command.piece);
        if (!command.piece.systemExclusive) {
            Write(command.timestamp, [&](RtpPacketWriter& writer) {
                return writer.AddMessage(command.timestamp, command.piece.bytes);
            });
            return;
        }
        output.Take(command.piece);
        while (const auto segment = output.Next()) {
            Check(segment->data.size() <= kLongestSegmentData, "a segment is short");
            Write(command.timestamp,
                  [&](RtpPacketWriter& writer) { return writer.AddSegment(command.timestamp, *segment); });
        }
    }
    template <class Adding>
    void Write(std::uint32_t timestamp, Adding add) {
        std::array<std::uint8_t, kLongestRtpDatagram> again{};
        RtpPacketWriter writer(again, {0, timestamp - kDelay, 0}, kJournalRoom);
        Check(add(writer), "it can be written");
        const auto packet =
            ReadRtpPacket(ByteView(again).first(writer.Finish(std::array<std::uint8_t, 3>{})));
        Check(packet && packet->hasJournal && packet->journal.size() == 3, "written again it reads");
        RtpCommandReader reader(*packet, inputAgain);
        while (const auto command = reader.Next()) {
            Check(command->timestamp == timestamp, "it is due at the same time");
            Add(heardAgain, command->piece);
        }
        Check(!reader.IsMalformed(), "written again it is sound");
    }

    Stream stream;
    ExclusiveInput input;
    ExclusiveInput inputAgain;
    ExclusiveOutput output;
    Heard heard;
    Heard heardAgain;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Player player;
    for (ByteView rest(bytes, size); !rest.empty();) {
        const std::size_t length = std::min<std::size_t>(rest[0] == 0 ? 256 : rest[0], rest.size() - 1);
        const Bytes datagram(rest.begin() + 1, rest.begin() + 1 + static_cast<std::ptrdiff_t>(length));
        rest = rest.subspan(1 + length);
        player.Play(datagram);
    }
    if (const auto end = player.input.End()) {
        player.stream.Take(*end);
        player.WriteAgain({0, *end});
    }
    Check(player.heard == player.heardAgain, "written again it is the same");
    return 0;
}
