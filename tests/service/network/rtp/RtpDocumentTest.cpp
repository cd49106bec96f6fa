// docs/rtp-midi.md against the codec: every example is what is written, byte for byte, and read.
#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "service/network/rtp/RtpCodec.h"
#include "tests/service/network/rtp/JournalProof.h"

namespace vexil::test {
namespace {

using Octets = std::vector<std::uint8_t>;

constexpr std::uint16_t kNumber = 0x1234;
constexpr std::uint32_t kOwnSsrc = 0x11223344;
constexpr std::uint32_t kPeerSsrc = 0xA0B0C0D0;
constexpr std::uint32_t kToken = 0x5A1B2C3D;

// The code blocks of the document by their name.
std::map<std::string, Octets> DocumentedOctets() {
    std::ifstream file(VEXIL_DOCS "/rtp-midi.md");
    std::map<std::string, Octets> examples;
    std::string name;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("```", 0) == 0) {
            name = line.substr(3);
        } else if (!name.empty()) {
            std::istringstream words(line.substr(0, line.find('#')));
            for (std::string word; words >> word;) {
                examples[name].push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
            }
        }
    }
    return examples;
}

Octets Documented(const std::string& name) {
    return DocumentedOctets()[name];
}

// A command is what the document shows, and read from there it is written the same.
void ExpectCommand(const std::string& name, const SessionCommand& command) {
    Octets written(kLongestRtpDatagram);
    written.resize(WriteSessionCommand(command, written));
    EXPECT_EQ(written, Documented(name)) << name;
    const Octets shown = Documented(name);
    const auto read = ReadSessionCommand(shown);
    ASSERT_TRUE(read) << name;
    EXPECT_EQ(read->kind, command.kind);
    Octets again(kLongestRtpDatagram);
    again.resize(WriteSessionCommand(*read, again));
    EXPECT_EQ(again, shown) << name;
}

TEST(RtpDocument, EveryExampleIsHeldAgainstTheCodec) {
    std::vector<std::string> names;
    for (const auto& [name, octets] : DocumentedOctets()) {
        names.push_back(name);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre(
                           "invitation", "accepted", "refused", "bye", "clock", "feedback", "limit", "notes",
                           "exclusive-first", "exclusive-last", "journal-notes", "journal-controllers",
                           "journal-program", "journal-parameters", "journal-rest", "journal-system"));
}

TEST(RtpDocument, SessionCommands) {
    SessionCommand command;
    command.token = kToken;
    command.ssrc = kOwnSsrc;
    command.name = "studio 11";
    ExpectCommand("invitation", command);
    command.kind = SessionCommandKind::Bye;
    ExpectCommand("bye", command);
    command.kind = SessionCommandKind::Accepted;
    command.ssrc = kPeerSsrc;
    command.name = "iPad";
    ExpectCommand("accepted", command);
    command.kind = SessionCommandKind::Refused;
    command.name = "";
    ExpectCommand("refused", command);
    command.kind = SessionCommandKind::BitrateLimit;
    command.bitrate = 500000;
    ExpectCommand("limit", command);
    command.kind = SessionCommandKind::Feedback;
    command.ssrc = kOwnSsrc;
    command.feedback = FeedbackOf(kNumber);
    ExpectCommand("feedback", command);
    command.kind = SessionCommandKind::Clock;
    command.count = 2;
    command.times = {10000, 332160, 10007};
    ExpectCommand("clock", command);
}

TEST(RtpDocument, PacketOfNotes) {
    Octets packet(kLongestRtpDatagram);
    JournalSender sender(kNumber);
    Octets journal(kLongestJournal);
    journal.resize(sender.Write(1000, journal));
    RtpPacketWriter writer(packet, {kNumber, 1000, kOwnSsrc}, journal.size());
    writer.AddMessage(1000, Octets{0x90, 0x3C, 0x64});
    writer.AddMessage(1130, Octets{0x90, 0x40, 0x64});
    packet.resize(writer.Finish(journal));
    EXPECT_EQ(packet, Documented("notes"));
}

TEST(RtpDocument, SegmentsOfSystemExclusive) {
    JournalSender sender(kNumber + 1);
    ExclusiveOutput output;
    ExclusiveInput input;
    for (const std::string name : {"exclusive-first", "exclusive-last"}) {
        const bool isFirst = name == "exclusive-first";
        const Octets bytes = isFirst ? Octets{0xF0, 0x7E, 0x7F, 0x06, 0x01} : Octets{0xF7};
        const MidiPiece piece{bytes, true, isFirst, !isFirst};
        Octets packet(kLongestRtpDatagram);
        Octets journal(kLongestJournal);
        journal.resize(sender.Write(1000, journal));
        RtpPacketWriter writer(packet, {sender.NextSequence(), 1000, kOwnSsrc}, journal.size());
        output.Take(piece);
        writer.AddSegment(1000, output.Next().value());
        sender.Sent(1000, piece);
        sender.EndPacket();
        packet.resize(writer.Finish(journal));
        EXPECT_EQ(packet, Documented(name));
        const auto read = ReadRtpPacket(packet);
        ASSERT_TRUE(read);
        const auto command = RtpCommandReader(*read, input).Next();
        ASSERT_TRUE(command);
        EXPECT_TRUE(
            std::equal(bytes.begin(), bytes.end(), command->piece.bytes.begin(), command->piece.bytes.end()));
    }
}

class Repairs : public RepairListener {
  public:
    void Repair(ByteView message) override { heard.emplace_back(message.begin(), message.end()); }
    std::vector<Octets> heard;
};

// The journal behind packets is what the document shows, and somebody who has heard nothing plays this for
// it.
void ExpectJournal(const std::string& name, const std::vector<std::string>& packets,
                   const std::vector<std::string>& repairs) {
    const auto sender = std::make_unique<JournalSender>(kNumber);
    Octets journal(kLongestJournal);
    for (const auto& messages : PhraseOf(packets)) {
        sender->Write(0, journal);
        for (const Octets& message : messages) {
            sender->Sent(0, {message});
        }
        sender->EndPacket();
    }
    journal.resize(sender->Write(0, journal));
    EXPECT_EQ(journal, Documented(name));
    const auto receiver = std::make_unique<JournalReceiver>();
    RtpPacket packet;
    packet.hasJournal = true;
    const Octets shown = Documented(name);
    packet.journal = shown;
    Repairs listener;
    receiver->Arrived(packet, listener);
    std::vector<Octets> expected;
    for (const auto& messages : PhraseOf(repairs)) {
        expected.insert(expected.end(), messages.begin(), messages.end());
    }
    EXPECT_EQ(listener.heard, expected) << name;
}

TEST(RtpDocument, Journals) {
    ExpectJournal("journal-notes", {"90 3C 64 90 40 64", "80 3C 40"}, {"90 40 64"});
    ExpectJournal("journal-controllers", {"B0 07 64 B0 40 7F B0 7B 00"}, {"B0 07 64 B0 40 7F B0 7B 00"});
    ExpectJournal("journal-program", {"B0 00 01 B0 20 02 C0 05"}, {"B0 00 01 B0 20 02 C0 05"});
    ExpectJournal("journal-parameters", {"B0 65 00 B0 64 00 B0 06 0C B0 63 01"},
                  {"B0 65 00 B0 64 00 B0 06 0C B0 63 01"});
    ExpectJournal("journal-rest", {"9F 3C 64", "EF 00 50 DF 30 AF 3C 20 8F 3C 20"},
                  {"EF 00 50 DF 30 AF 3C 20"});
    ExpectJournal("journal-system", {"FF F3 03"}, {"FF F3 03"});
}

}  // namespace
}  // namespace vexil::test
