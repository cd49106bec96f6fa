#include "service/network/rtp/JournalReceiver.h"

#include "service/network/rtp/JournalForm.h"

namespace vexil {

namespace {

// Numbers that count on and begin anew at 0: positive when `a` is the later one.
int DistanceOf(std::uint16_t a, std::uint16_t b) {
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(a - b));
}

std::uint8_t CountOn(std::uint8_t count) {
    return (count + 1) & rtp::kDataBits;
}

}  // namespace

JournalReceiver::Arrival JournalReceiver::Arrived(const RtpPacket& packet, RepairListener& listener) {
    const std::uint16_t sequence = packet.header.sequence;
    if (!newest) {
        return BeginStream(packet, listener);
    }
    const int distance = DistanceOf(sequence, *newest);
    if (distance <= 0) {
        if (!IsNewStream(sequence, distance)) {
            return Arrival::Old;
        }
        Release(listener);
        BeginStream(packet, listener);
        return Arrival::Released;
    }
    misplacedNext.reset();
    if (distance == 1 && newest == known) {
        newest = known = sequence;
        return Arrival::Next;
    }
    return HearGap(packet, distance - 1, listener);
}

bool JournalReceiver::IsNewStream(std::uint16_t sequence, int distance) {
    const bool isFar = distance < -kMostMisplaced;
    const bool followsFar = isFar && misplacedNext == sequence;
    misplacedNext = isFar ? std::optional(static_cast<std::uint16_t>(sequence + 1)) : std::nullopt;
    return followsFar;
}

JournalReceiver::Arrival JournalReceiver::BeginStream(const RtpPacket& packet, RepairListener& listener) {
    newest = packet.header.sequence;
    known = newest;
    misplacedNext.reset();
    if (const auto journal = rtp::JournalReader::Open(packet.journal)) {
        Repair(*journal, false, listener);
    }
    return Arrival::Next;
}

// Packets are missing in front of this one, or what was missing could not be put right before.
JournalReceiver::Arrival JournalReceiver::HearGap(const RtpPacket& packet, int missing,
                                                  RepairListener& listener) {
    const Arrival failed = missing > 0 ? Arrival::Released : Arrival::Next;
    const bool isSingle = missing == 1 && newest == known;
    lost += static_cast<std::uint64_t>(missing);
    newest = packet.header.sequence;
    const auto journal = rtp::JournalReader::Open(packet.journal);
    if (!journal) {
        if (missing > 0) {
            Release(listener);
        }
        // A damaged one may be followed by one that is not; a peer without journals never says more.
        known = packet.hasJournal ? known : newest;
        return failed;
    }
    const bool isCovered = DistanceOf(journal->Checkpoint(), static_cast<std::uint16_t>(*known + 1)) <= 0;
    if (!isCovered) {
        ReleaseBut(*journal, listener);
    }
    Repair(*journal, isSingle, listener);
    known = newest;
    return !isCovered ? Arrival::Released : missing > 0 ? Arrival::Repaired : Arrival::Next;
}

void JournalReceiver::Repair(rtp::JournalReader journal, bool isSingle, RepairListener& listener) {
    const auto countLost = [&](const std::optional<rtp::SystemLog>& log, std::uint8_t& count) {
        const bool isLost = log && log->value != count && !(isSingle && log->older);
        count = log ? log->value : count;
        return isLost;
    };
    if (countLost(journal.Resets(), resets)) {
        const std::uint8_t count = resets;
        PlaySystem({rtp::kSystemReset, 0}, 1, listener);
        resets = count;
    }
    for (rtp::JournalReader releases = journal; const auto channel = releases.NextChannel();) {
        channels[static_cast<std::size_t>(channel->channel)].RepairReleases(*channel, isSingle, listener);
    }
    if (countLost(journal.TuneRequests(), tuneRequests)) {
        const std::uint8_t count = tuneRequests;
        PlaySystem({rtp::kTuneRequest, 0}, 1, listener);
        tuneRequests = count;
    }
    if (journal.Song() && journal.Song()->value != song) {
        PlaySystem({rtp::kSongSelect, journal.Song()->value}, 2, listener);
    }
    while (const auto channel = journal.NextChannel()) {
        channels[static_cast<std::size_t>(channel->channel)].RepairRest(*channel, isSingle, listener);
    }
}

void JournalReceiver::PlaySystem(const std::array<std::uint8_t, 2>& bytes, std::size_t size,
                                 RepairListener& listener) {
    const ByteView message = ByteView(bytes).first(size);
    listener.Repair(message);
    HeardSystem(message);
}

void JournalReceiver::ReleaseBut(rtp::JournalReader journal, RepairListener& listener) {
    std::array<bool, rtp::kChannels> isTold{};
    while (const auto channel = journal.NextChannel()) {
        const auto number = static_cast<std::size_t>(channel->channel);
        isTold[number] = true;
        channels[number].Release(channel->channel, &*channel, listener);
    }
    for (std::size_t number = 0; number < channels.size(); ++number) {
        if (!isTold[number]) {
            channels[number].Release(static_cast<int>(number), nullptr, listener);
        }
    }
}

void JournalReceiver::Release(RepairListener& listener) {
    for (std::size_t number = 0; number < channels.size(); ++number) {
        channels[number].Release(static_cast<int>(number), nullptr, listener);
    }
}

void JournalReceiver::Heard(const MidiPiece& piece) {
    if (piece.systemExclusive) {
        if (resetMessage.IsEndedBy(piece)) {
            ResetAll();
        }
    } else if (piece.bytes[0] >= rtp::kFirstSystemStatus) {
        HeardSystem(piece.bytes);
    } else {
        channels[piece.bytes[0] & 0x0F].Heard(piece.bytes);
    }
}

void JournalReceiver::HeardSystem(ByteView message) {
    switch (message[0]) {
        case rtp::kSystemReset:
            ResetAll();
            resets = CountOn(resets);
            break;
        case rtp::kTuneRequest:
            tuneRequests = CountOn(tuneRequests);
            break;
        case rtp::kSongSelect:
            song = message[1];
            break;
        default:
            break;
    }
}

void JournalReceiver::ResetAll() {
    for (rtp::HeardChannel& channel : channels) {
        channel.Reset();
    }
    song = kNoSong;
}

}  // namespace vexil
