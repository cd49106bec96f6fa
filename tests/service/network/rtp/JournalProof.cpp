#include "tests/service/network/rtp/JournalProof.h"

#include <array>
#include <sstream>

namespace vexil::test {

namespace {

constexpr std::uint16_t kFirstSequence = 0xFFFA;  // the numbers begin anew on the way
constexpr std::uint32_t kTicksBetween = 100;

// All that changes from packet to packet, so that it can be copied where one is lost or not.
struct Side {
    JournalSender sender{kFirstSequence};
    MidiState sent;
};
struct OtherSide {
    JournalReceiver receiver;
    ExclusiveInput exclusive;
    MidiState heard;
};

// A packet on its way, and what its sender is then.
struct Sending {
    std::array<std::uint8_t, kLongestRtpDatagram> datagram{};
    std::size_t size = 0;
    MidiState sent;
};

// Hears repairs, and sees that no key is struck that is down.
class Ear : public RepairListener {
  public:
    explicit Ear(MidiState& state) : heard(state) {}
    void Repair(ByteView message) override {
        const bool strikes = message[0] >> 4 == 9 && message[2] != 0;
        isStruckTwice = isStruckTwice || (strikes && heard.IsDown(message[0] & 15, message[1]));
        heard.Play(message);
    }
    bool isStruckTwice = false;

  private:
    MidiState& heard;
};

class Run {
  public:
    Run(const JournalProof& ofProof, const Phrase& ofPhrase) : proof(ofProof), phrase(ofPhrase) {}

    // The sender does not depend on what arrives where the peer does not say: then its packets are all the
    // same.
    std::string WithoutFeedback() const {
        std::vector<Sending> sendings(phrase.size() + 1);
        Side side;
        for (std::size_t packet = 0; packet <= phrase.size(); ++packet) {
            Send(packet, side, sendings[packet]);
            if (proof.confirmsLost) {
                side.sender.Confirm(FeedbackOf(static_cast<std::uint16_t>(kFirstSequence + packet)));
            }
        }
        return From(0, sendings, OtherSide{}, "");
    }
    std::string WithFeedback() const { return From(0, Side{}, OtherSide{}, ""); }

  private:
    std::string From(std::size_t packet, const std::vector<Sending>& sendings, const OtherSide& before,
                     const std::string& arrivals) const {
        if (packet < phrase.size()) {
            std::string difference = From(packet + 1, sendings, before, arrivals + "-");
            if (!difference.empty()) {
                return difference;
            }
        }
        OtherSide other = before;
        const std::string difference = Arrive(sendings[packet], other);
        if (!difference.empty()) {
            return difference + " after packets " + arrivals + "x";
        }
        return packet == phrase.size() ? "" : From(packet + 1, sendings, other, arrivals + "x");
    }

    std::string From(std::size_t packet, const Side& sideBefore, const OtherSide& before,
                     const std::string& arrivals) const {
        Side side = sideBefore;
        Sending sending;
        Send(packet, side, sending);
        if (packet < phrase.size()) {
            std::string difference = From(packet + 1, side, before, arrivals + "-");
            if (!difference.empty()) {
                return difference;
            }
        }
        OtherSide other = before;
        const std::string difference = Arrive(sending, other);
        if (!difference.empty()) {
            return difference + " after packets " + arrivals + "x";
        }
        if (proof.confirms(packet)) {
            side.sender.Confirm(FeedbackOf(*other.receiver.Known()));
        }
        return packet == phrase.size() ? "" : From(packet + 1, side, other, arrivals + "x");
    }

    void Send(std::size_t packet, Side& side, Sending& sending) const {
        const auto time = static_cast<std::uint32_t>(packet) * kTicksBetween;
        std::vector<std::uint8_t> journal(kLongestJournal);
        journal.resize(side.sender.Write(time, journal));
        RtpPacketWriter writer(sending.datagram, {side.sender.NextSequence(), time, 1}, journal.size());
        if (packet < phrase.size()) {
            for (const Message& message : phrase[packet]) {
                writer.AddMessage(time, message);
                side.sent.Play(message);
                if (!proof.hiddenFromSender || !proof.hiddenFromSender(message)) {
                    side.sender.Sent(time, {message});
                }
            }
        }
        side.sender.EndPacket();
        if (proof.spoils) {
            proof.spoils(journal);
        }
        sending.size = writer.Finish(journal);
        sending.sent = side.sent;
    }

    std::string Arrive(const Sending& sending, OtherSide& other) const {
        const auto read = ReadRtpPacket(ByteView(sending.datagram).first(sending.size));
        if (!read) {
            return "packet";
        }
        Ear ear(other.heard);
        other.receiver.Arrived(*read, ear);
        RtpCommandReader commands(*read, other.exclusive);
        while (const auto command = commands.Next()) {
            other.heard.Play(command->piece.bytes);
            const Message message(command->piece.bytes.begin(), command->piece.bytes.end());
            if (!proof.hiddenFromReceiver || !proof.hiddenFromReceiver(message)) {
                other.receiver.Heard(command->piece);
            }
        }
        if (ear.isStruckTwice || sending.sent.IsStruckMoreOften(other.heard)) {
            return "a note is played twice";
        }
        return sending.sent.DifferenceOf(other.heard);
    }

    const JournalProof& proof;
    const Phrase& phrase;
};

}  // namespace

Phrase PhraseOf(const std::vector<std::string>& packets) {
    Phrase phrase;
    for (const std::string& text : packets) {
        auto& messages = phrase.emplace_back();
        std::istringstream words(text);
        for (std::string word; words >> word;) {
            const auto byte = static_cast<std::uint8_t>(std::stoul(word, nullptr, 16));
            if (byte >= 0x80) {
                messages.emplace_back();
            }
            messages.back().push_back(byte);
        }
    }
    return phrase;
}

std::string JournalProof::Run(const Phrase& phrase) const {
    const test::Run run(*this, phrase);
    return confirms ? run.WithFeedback() : run.WithoutFeedback();
}

}  // namespace vexil::test
