// Packets with journals are written, lost, read and repaired without an allocation. In a program that counts
// them.
#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "service/network/rtp/RtpCodec.h"
#include "tests/service/network/AllocationCount.h"

namespace vexil {
namespace {

class CountingListener : public RepairListener {
  public:
    void Repair(ByteView message) override { bytes += message.size(); }
    std::size_t bytes = 0;
};

TEST(JournalAllocation, PacketsAndTheirRepairAllocateNothing) {
    const auto sender = std::make_unique<JournalSender>(std::uint16_t{1});
    const auto receiver = std::make_unique<JournalReceiver>();
    CountingListener listener;
    ExclusiveInput exclusive;
    const long before = test::AllocationCount();
    for (std::uint32_t count = 0; count < 2000; ++count) {
        std::array<std::uint8_t, kLongestJournal> journal{};
        std::array<std::uint8_t, kLongestRtpDatagram> datagram{};
        const std::size_t journalSize = sender->Write(count, journal);
        RtpPacketWriter writer(datagram, {sender->NextSequence(), count, 1}, journalSize);
        const std::array<std::uint8_t, 3> message = {static_cast<std::uint8_t>(0x80 + (count * 37 & 0x3F)),
                                                     static_cast<std::uint8_t>(count * 11 & 0x7F),
                                                     static_cast<std::uint8_t>(count * 7 & 0x7F)};
        writer.AddMessage(count, message);
        sender->Sent(count, {message});
        sender->EndPacket();
        const std::size_t size = writer.Finish(ByteView(journal).first(journalSize));
        if (count % 3 == 0) {
            continue;
        }
        const auto packet = ReadRtpPacket(ByteView(datagram).first(size));
        ASSERT_TRUE(packet);
        receiver->Arrived(*packet, listener);
        RtpCommandReader commands(*packet, exclusive);
        while (const auto command = commands.Next()) {
            receiver->Heard(command->piece);
        }
        if (count % 100 == 1) {
            sender->Confirm(FeedbackOf(*receiver->Known()));
        }
    }
    EXPECT_EQ(test::AllocationCount() - before, 0);
    EXPECT_GT(listener.bytes, 0U);
}

}  // namespace
}  // namespace vexil
