// Journals as other peers write them, damaged ones and absent ones, and what becomes of the packets.
#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "tests/service/network/rtp/JournalProof.h"

namespace vexil::test {
namespace {

using Arrival = JournalReceiver::Arrival;
using testing::ElementsAre;
using testing::IsEmpty;

using JournalBytes = std::vector<std::uint8_t>;

std::vector<Message> MessagesOf(const std::string& text) {
    return PhraseOf({text}).front();
}

// One who hears a peer: the packets that arrive, and what is played for repair.
class Peer : public RepairListener {
  public:
    void Repair(ByteView message) override { repairs.emplace_back(message.begin(), message.end()); }

    // A packet with a journal; null: without one. Then its commands.
    Arrival Arrives(std::uint16_t sequence, const JournalBytes* journal, const std::string& commands = "") {
        repairs.clear();
        RtpPacket packet;
        packet.header.sequence = sequence;
        packet.hasJournal = journal != nullptr;
        packet.journal = journal != nullptr ? ByteView(*journal) : ByteView();
        const Arrival arrival = receiver->Arrived(packet, *this);
        for (const Message& message : MessagesOf(commands)) {
            receiver->Heard({message});
        }
        return arrival;
    }
    Arrival Arrives(std::uint16_t sequence, const JournalBytes& journal, const std::string& commands = "") {
        return Arrives(sequence, &journal, commands);
    }

    std::unique_ptr<JournalReceiver> receiver = std::make_unique<JournalReceiver>();
    std::vector<Message> repairs;
};

Message M(const std::string& text) {
    return MessagesOf(text).front();
}

const JournalBytes kEmptyJournal = {0x80, 0, 1};

TEST(JournalReceiver, PacketsInOrderAreNotLookedInto) {
    Peer peer;
    EXPECT_EQ(peer.Arrives(1, kEmptyJournal), Arrival::Next);
    // Says that note 60 sounds.
    EXPECT_EQ(peer.Arrives(2, {0x20, 0, 1, 0x00, 0x07, 0x08, 0x01, 0xF0, 0x3C, 0xE4}), Arrival::Next);
    EXPECT_THAT(peer.repairs, IsEmpty());
    EXPECT_EQ(peer.receiver->Known(), 2);
    EXPECT_EQ(peer.receiver->Lost(), 0U);
}

TEST(JournalReceiver, PacketsThatComeTwiceOrTooLateAreOld) {
    Peer peer;
    peer.Arrives(0xFFFE, kEmptyJournal);
    EXPECT_EQ(peer.Arrives(0xFFFE, kEmptyJournal), Arrival::Old);
    EXPECT_EQ(peer.Arrives(1, {0x80, 0xFF, 0xFF}), Arrival::Repaired);
    EXPECT_EQ(peer.Arrives(0xFFFF, kEmptyJournal), Arrival::Old);
    EXPECT_EQ(peer.receiver->Known(), 1);
    EXPECT_EQ(peer.receiver->Lost(), 2U);
}

TEST(JournalReceiver, TwoPacketsFarOutOfLineBeginANewStream) {
    Peer peer;
    peer.Arrives(20000, kEmptyJournal, "90 3C 64");
    EXPECT_EQ(peer.Arrives(100, kEmptyJournal), Arrival::Old);
    EXPECT_EQ(peer.Arrives(101, kEmptyJournal), Arrival::Released);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 3C 40")));
    EXPECT_EQ(peer.Arrives(102, kEmptyJournal), Arrival::Next);
}

TEST(JournalReceiver, AGapWithoutAJournalReleasesWhatSounds) {
    Peer peer;
    peer.Arrives(1, nullptr, "90 3C 64 93 40 64 B0 40 7F");
    EXPECT_EQ(peer.Arrives(3, nullptr), Arrival::Released);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 3C 40"), M("B0 40 00"), M("83 40 40")));
    EXPECT_EQ(peer.receiver->Known(), 3);
    EXPECT_EQ(peer.Arrives(5, nullptr), Arrival::Released);
    EXPECT_THAT(peer.repairs, IsEmpty());
}

TEST(JournalReceiver, AfterADamagedJournalALaterOnePutsRightWhatItLeft) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal, "90 3C 64");
    EXPECT_EQ(peer.Arrives(3, {0x20, 0, 1, 0x00, 0x07}), Arrival::Released);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 3C 40")));
    EXPECT_EQ(peer.receiver->Known(), 1);
    // Volume, of packet 2.
    EXPECT_EQ(peer.Arrives(4, {0x20, 0, 2, 0x00, 0x06, 0x40, 0x80, 0x87, 0x11}), Arrival::Next);
    EXPECT_THAT(peer.repairs, ElementsAre(M("B0 07 11")));
    EXPECT_EQ(peer.receiver->Known(), 4);
}

TEST(JournalReceiver, AJournalThatBeginsTooLateReleasesWhatItDoesNotName) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal, "90 3C 64 90 40 64 91 41 64");
    // Of packet 5 on: note 60 sounds.
    EXPECT_EQ(peer.Arrives(6, {0x20, 0, 5, 0x00, 0x07, 0x08, 0x01, 0xF0, 0x3C, 0xE4}), Arrival::Released);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 40 40"), M("81 41 40")));
}

TEST(JournalReceiver, ANoteIsLeftOutWhereTheSenderSaysSo) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal);
    EXPECT_EQ(peer.Arrives(3, {0x20, 0, 2, 0x00, 0x07, 0x08, 0x01, 0xF0, 0x3C, 0x64}), Arrival::Repaired);
    EXPECT_THAT(peer.repairs, IsEmpty());
}

TEST(JournalReceiver, ANoteWithAnotherVelocityBeginsAnew) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal, "90 3C 50");
    peer.Arrives(3, {0x20, 0, 2, 0x00, 0x07, 0x08, 0x01, 0xF0, 0x3C, 0xE4});
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 3C 40"), M("90 3C 64")));
}

TEST(JournalReceiver, AListOf128NotesIsRead) {
    JournalBytes journal = {0x20, 0, 2, 0x01, 0x05, 0x08, 0x7F, 0xF0};
    for (int note = 0; note < 128; ++note) {
        journal.push_back(static_cast<std::uint8_t>(0x80 | note));
        journal.push_back(0xE4);
    }
    Peer peer;
    peer.Arrives(1, kEmptyJournal);
    EXPECT_EQ(peer.Arrives(3, journal), Arrival::Repaired);
    EXPECT_EQ(peer.repairs.size(), 128U);
    // One less, and bits for the notes above 119.
    journal[3] = 0x01;
    journal[4] = 0x04;
    journal[7] = 0xFF;
    journal.pop_back();
    journal.back() = 0x01;
    EXPECT_EQ(peer.Arrives(5, journal), Arrival::Repaired);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 7F 40")));
}

TEST(JournalReceiver, CountsOfWhatWasHeardAreTakenOver) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal, "90 3C 64");
    // All Notes Off came twice, but not in the one packet that is missing.
    EXPECT_EQ(peer.Arrives(3, {0x20, 0, 1, 0x80, 0x06, 0x40, 0x80, 0xFB, 0xC2}), Arrival::Repaired);
    EXPECT_THAT(peer.repairs, IsEmpty());
    // It came once more in it.
    EXPECT_EQ(peer.Arrives(5, {0x20, 0, 1, 0x00, 0x06, 0x40, 0x00, 0x7B, 0xC3}), Arrival::Repaired);
    EXPECT_THAT(peer.repairs, ElementsAre(M("80 3C 40"), M("B0 7B 00")));
}

TEST(JournalReceiver, AControllerThatIsOnlyToggledIsReadAsOnOrOff) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal);
    peer.Arrives(3, {0x20, 0, 2, 0x00, 0x06, 0x40, 0x00, 0x40, 0x81});
    EXPECT_THAT(peer.repairs, ElementsAre(M("B0 40 7F")));
    peer.Arrives(5, {0x20, 0, 2, 0x00, 0x06, 0x40, 0x00, 0x40, 0x83});
    EXPECT_THAT(peer.repairs, ElementsAre(M("B0 40 00"), M("B0 40 7F")));
    peer.Arrives(7, {0x20, 0, 2, 0x00, 0x06, 0x40, 0x00, 0x40, 0x84});
    EXPECT_THAT(peer.repairs, ElementsAre(M("B0 40 00")));
}

TEST(JournalReceiver, WhatStandsBeforeAResetThatWasHeardIsNotPlayed) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal, "B0 01 40 B0 79 00");
    // Modulation 64, then Reset All Controllers, once.
    peer.Arrives(3, {0x20, 0, 1, 0x80, 0x08, 0x40, 0x81, 0x81, 0x40, 0xF9, 0xC1});
    EXPECT_THAT(peer.repairs, IsEmpty());
}

TEST(JournalReceiver, ParametersAreReadInTheirShortForm) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal);
    // All are registered and below 128; parameter 2 is selected, its value is 5, one decrement followed.
    // There are fields for the decrements since a reset, and for a count of transactions.
    peer.Arrives(3,
                 {0x20, 0, 2, 0x00, 0x0D, 0x20, 0x34, 0x0A, 0x02, 0xBA, 0x05, 0x80, 0x01, 0x80, 0x01, 0x01});
    EXPECT_THAT(peer.repairs, ElementsAre(M("B0 65 00"), M("B0 64 02"), M("B0 06 05"), M("B0 61 00")));
}

TEST(JournalReceiver, SystemChaptersThatAreNotFollowedArePassedOver) {
    Peer peer;
    peer.Arrives(1, kEmptyJournal);
    // D with a tune request and more, V, Q; then a channel.
    peer.Arrives(3,
                 {0x60, 0, 2, 0x70, 0x08, 0x2A, 0x01, 0x01, 0x02, 0x03, 0x04, 0x00, 0x05, 0x10, 0x01, 0x02});
    EXPECT_THAT(peer.repairs, ElementsAre(M("F6"), M("E0 01 02")));
}

TEST(JournalReceiver, EveryJournalThatIsCutIsMalformed) {
    const auto sender = std::make_unique<JournalSender>(std::uint16_t{2});
    for (const char* text : {"90 3C 64 90 3C 64 80 3D 20 C0 01 B0 07 11 E0 01 02 D0 03 A0 3C 04",
                             "F3 01 B0 63 01", "B0 62 02 B0 06 01"}) {
        for (const Message& message : MessagesOf(text)) {
            sender->Sent(0, {message});
        }
        sender->EndPacket();
    }
    JournalBytes journal(kLongestJournal);
    journal.resize(sender->Write(0, journal));
    ASSERT_TRUE(rtp::JournalReader::Open(journal));
    for (std::size_t size = 0; size < journal.size(); ++size) {
        EXPECT_FALSE(rtp::JournalReader::Open(ByteView(journal).first(size))) << size;
    }
}

TEST(JournalReceiver, RangesOfNotesThatMeanNothingAreMalformed) {
    EXPECT_FALSE(rtp::JournalReader::Open(JournalBytes{0x20, 0, 1, 0x00, 0x05, 0x08, 0x00, 0x87}));
    EXPECT_FALSE(rtp::JournalReader::Open(JournalBytes{0x20, 0, 1, 0x00, 0x02, 0x08}));
    EXPECT_FALSE(rtp::JournalReader::Open(JournalBytes{0x40, 0, 1, 0x00, 0x01}));
}

// ---- The sender's checkpoint

JournalBytes JournalOf(JournalSender& sender, std::size_t room = kLongestJournal) {
    JournalBytes journal(room);
    journal.resize(sender.Write(0, journal));
    return journal;
}

TEST(JournalSender, FeedbackMovesTheCheckpoint) {
    const auto sender = std::make_unique<JournalSender>(std::uint16_t{0xFFFF});
    EXPECT_FALSE(sender->NeedsGuard());
    for (const char* text : {"90 3C 64", "90 3D 64", ""}) {
        for (const Message& message : MessagesOf(text)) {
            sender->Sent(0, {message});
        }
        sender->EndPacket();
    }
    EXPECT_TRUE(sender->NeedsGuard());
    EXPECT_EQ(JournalOf(*sender).size(), 3U + 3 + 2 + 4);
    EXPECT_TRUE(sender->Confirm(FeedbackOf(0xFFFF)));
    EXPECT_TRUE(sender->NeedsGuard());
    EXPECT_THAT(JournalOf(*sender), ElementsAre(0xA0, 0, 0, 0x80, 0x07, 0x08, 0x81, 0xF0, 0xBD, 0xE4));
    EXPECT_FALSE(sender->Confirm(FeedbackOf(0xFFFF)));
    EXPECT_FALSE(sender->Confirm(FeedbackOf(0x1234)));
    EXPECT_TRUE(sender->Confirm(0x00000001));
    EXPECT_FALSE(sender->NeedsGuard());
    EXPECT_THAT(JournalOf(*sender), ElementsAre(0x80, 0, 2));
}

TEST(JournalSender, WhereFeedbackStaysAwayTheJournalSaysThatItCoversLess) {
    const auto sender = std::make_unique<JournalSender>(std::uint16_t{0});
    for (int packet = 0; packet < 1000; ++packet) {
        const Message message = {static_cast<std::uint8_t>(0xA0 | packet % 16),
                                 static_cast<std::uint8_t>(packet / 16), 1};
        sender->Sent(0, {message});
        sender->EndPacket();
        EXPECT_LE(JournalOf(*sender).size(), kLongestJournal);
    }
    const JournalBytes journal = JournalOf(*sender);
    ASSERT_TRUE(rtp::JournalReader::Open(journal));
    EXPECT_GT(rtp::JournalReader::Open(journal)->Checkpoint(), 0);
    EXPECT_GT(journal.size(), kLongestJournal / 2);
    EXPECT_TRUE(sender->NeedsGuard());
    EXPECT_THAT(JournalOf(*sender, kSmallestJournal), ElementsAre(0x80, 1000 >> 8, 1000 & 0xFF));
}

TEST(JournalSender, ParametersBeyondTheRoomForThemMoveTheCheckpoint) {
    const auto sender = std::make_unique<JournalSender>(std::uint16_t{0});
    for (int number = 0; number < 20; ++number) {
        const auto high = static_cast<std::uint8_t>(number / 10);
        const auto low = static_cast<std::uint8_t>(number % 10);
        for (const Message& message :
             {Message{0xB0, 101, high}, Message{0xB0, 100, low}, Message{0xB0, 6, 1}}) {
            sender->Sent(0, {message});
        }
        sender->EndPacket();
    }
    const JournalBytes journal = JournalOf(*sender);
    ASSERT_TRUE(rtp::JournalReader::Open(journal));
    EXPECT_EQ(rtp::JournalReader::Open(journal)->Checkpoint(), 4);
}

TEST(JournalSender, MessagesThatSwitchAnInstrumentOnForgetEverythingBefore) {
    for (const Message& reset :
         {Message{0xF0, 0x7E, 0x7F, 0x09, 0x01, 0xF7}, Message{0xF0, 0x7E, 0x10, 0x0A, 0x02, 0xF7}}) {
        const auto sender = std::make_unique<JournalSender>(std::uint16_t{0});
        sender->Sent(0, {Message{0x90, 0x3C, 0x64}});
        sender->Sent(0, {ByteView(reset).first(3), true, true, false});
        EXPECT_GT(JournalOf(*sender).size(), 3U);
        sender->Sent(0, {ByteView(reset).subspan(3), true, false, true});
        EXPECT_EQ(JournalOf(*sender).size(), 3U);
    }
}

}  // namespace
}  // namespace vexil::test
