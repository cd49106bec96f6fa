// A phrase is sent in packets, a few of them are lost, and what is heard is compared with what was sent:
// after each packet that arrives, for every choice of lost packets.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "service/network/rtp/JournalReceiver.h"
#include "service/network/rtp/JournalSender.h"
#include "service/network/rtp/RtpCodec.h"
#include "tests/service/network/rtp/MidiState.h"

namespace vexil::test {

using Message = std::vector<std::uint8_t>;
using Phrase = std::vector<std::vector<Message>>;  // the messages of each packet

// From texts of a packet each: "90 3C 64 B0 40 7F".
Phrase PhraseOf(const std::vector<std::string>& packets);

struct JournalProof {
    // When the peer says what it has: after which of the packets that arrive, and whether that arrives.
    std::function<bool(std::size_t packet)> confirms;
    // Faults to plant. What the sender is not told of; what the receiver is not told of; packets that count
    // as confirmed though they were lost; journals that are changed on their way.
    std::function<bool(const Message&)> hiddenFromSender;
    std::function<bool(const Message&)> hiddenFromReceiver;
    bool confirmsLost = false;
    std::function<void(std::vector<std::uint8_t>& journal)> spoils;

    // Tries every choice of lost packets; behind the last comes one without commands, which arrives. The
    // first difference as text, with the packets that arrived; empty when all went well.
    std::string Run(const Phrase& phrase) const;
};

}  // namespace vexil::test
