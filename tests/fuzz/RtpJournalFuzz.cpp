// A recovery journal, in a buffer of exactly its length: what it repairs is MIDI, at most so much, and a
// second time there is nothing left to repair. The input is played, too: its journals are within their limits
// and sound.
#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "tests/fuzz/FuzzCheck.h"

namespace {

using namespace vexil;
using vexil::test::Check;

using Bytes = std::vector<std::uint8_t>;

class Listener : public RepairListener {
  public:
    void Repair(ByteView message) override {
        Check(!message.empty() && message.size() <= 3 && message[0] >= 0x80 && message[0] != 0xF0,
              "it is a message");
        for (const std::uint8_t byte : message.subspan(1)) {
            Check(byte < 0x80, "behind its status are data bytes");
        }
        ++count;
    }
    std::size_t count = 0;
};

RtpPacket PacketOf(std::uint16_t sequence, ByteView journal) {
    RtpPacket packet;
    packet.header.sequence = sequence;
    packet.hasJournal = true;
    packet.journal = journal;
    return packet;
}

// Has heard a note and a pedal. Copied, for that is quicker than to make it.
const JournalReceiver& Prepared() {
    static const std::unique_ptr<JournalReceiver> prepared = [] {
        auto receiver = std::make_unique<JournalReceiver>();
        Listener listener;
        receiver->Arrived(PacketOf(1, {}), listener);
        receiver->Heard({std::array<std::uint8_t, 3>{0x90, 60, 64}});
        receiver->Heard({std::array<std::uint8_t, 3>{0xB0, 64, 127}});
        return receiver;
    }();
    return *prepared;
}

void TryJournal(const Bytes& journal) {
    const auto receiver = std::make_unique<JournalReceiver>(Prepared());
    Listener listener;
    // Numbers that say that it covers all: a channel's notes, controllers and parameters are at most so many.
    Bytes covering = journal;
    if (covering.size() > 2) {
        covering[1] = 0;
        covering[2] = 2;
    }
    receiver->Arrived(PacketOf(3, covering), listener);
    Check(listener.count <= 4 * journal.size() + journal.size() * 130 + 8, "it plays no more than it says");
    const bool isSound = rtp::JournalReader::Open(journal).has_value();
    Check((receiver->Known() == 3) == isSound, "what is known is known");
    if (isSound && receiver->Known() == 3) {
        // Not counted: several logs for one thing, as no sender writes them, may each say something else.
        receiver->Arrived(PacketOf(5, covering), listener);
    }
    receiver->Release(listener);
    const std::size_t before = listener.count;
    receiver->Release(listener);
    Check(listener.count == before, "what was released is silent");
}

// Every byte of the input begins a message of its own kind, on few numbers.
void TrySender(const Bytes& input) {
    static const auto fresh = std::make_unique<JournalSender>(std::uint16_t{0xFFF0});
    const auto sender = std::make_unique<JournalSender>(*fresh);
    const auto receiver = std::make_unique<JournalReceiver>();
    Listener listener;
    std::uint32_t time = 0;
    for (std::size_t place = 0; place + 2 < input.size(); place += 3) {
        std::array<std::uint8_t, kLongestJournal> journal{};
        const ByteView written = ByteView(journal).first(sender->Write(time, journal));
        const std::uint16_t sequence = sender->NextSequence();
        const bool arrives = input[place + 1] >= 0x80;
        if (arrives) {
            Check(rtp::JournalReader::Open(written).has_value(), "a journal that is written is sound");
            receiver->Arrived(PacketOf(sequence, written), listener);
            Check(receiver->Known() == sequence, "it puts all right");
        }
        const std::uint8_t status = static_cast<std::uint8_t>(input[place] | 0x80);
        const std::array<std::uint8_t, 3> bytes = {status, static_cast<std::uint8_t>(input[place + 1] & 0x7F),
                                                   static_cast<std::uint8_t>(input[place + 2] & 0x7F)};
        const int kind = status >> 4;
        if (kind != 0xF || status == 0xFF) {
            const std::size_t length = kind == 0xF ? 1 : kind == 0xC || kind == 0xD ? 2 : 3;
            const MidiPiece piece{ByteView(bytes).first(length)};
            sender->Sent(time, piece);
            if (arrives) {
                receiver->Heard(piece);
            }
        }
        sender->EndPacket();
        if (input[place + 2] >= 0xC0 && receiver->Known()) {
            sender->Confirm(FeedbackOf(*receiver->Known()));
        }
        time += input[place];
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const Bytes input(bytes, bytes + size);
    TryJournal(input);
    if (size % 8 == 0) {  // it takes longer
        TrySender(Bytes(input.begin(),
                        input.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(size, 96))));
    }
    return 0;
}
