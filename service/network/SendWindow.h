// The records on their way to one peer: numbers them, says which go into a datagram at a time, and keeps each
// until the peer is known to have it.
//
// New records leave at once. Behind them, as far as the datagram goes, the youngest that are not acknowledged
// go again, so that most losses cost no round trip. What the peer reports as missing goes again at once. When
// nothing new comes, what is not acknowledged goes once more after 2 ms, then at growing intervals
// (RepeatTimes). Where a datagram was lost on a short way in the last second, the first two repeats come
// sooner: what is lost twice there arrives within 3 ms.
//
// No socket and no clock: times come in, in microseconds. One thread at a time; nothing is allocated once it
// is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "service/network/LinkCodec.h"
#include "service/network/PieceStore.h"
#include "service/network/RecordRing.h"
#include "service/network/StoredRecord.h"

namespace vexil {

// Bytes in records, as they stand on the wire, that may be unacknowledged: a short message finds no room
// beyond. Pieces of system exclusive have half of it to themselves, which short messages cannot take from
// them.
inline constexpr std::size_t kMostUnacknowledged = std::size_t{256} << 10;
inline constexpr std::size_t kMostUnacknowledgedPieces = kMostUnacknowledged / 2;
// Records that may be unacknowledged. A record further ahead is not taken by the peer.
inline constexpr std::uint32_t kMostRecords = RecordRing::kMost;

// When a record that is not acknowledged is sent again; microseconds.
struct RepeatTimes {
    std::uint64_t first = 2000;  // without anything new
    std::uint64_t shortest = 6000;
    int halfRoundTrips = 3;  // or so many and `above`, if that is more
    std::uint64_t above = 4000;
    std::uint64_t longest = 50000;  // they grow to this by half
};
inline constexpr RepeatTimes kRepeatTimes{};
// By wireless networks more is lost, and nobody else waits for a share of the wire.
inline constexpr RepeatTimes kSoonerRepeatTimes{1000, 3000, 2, 2000, 25000};

class SendWindow {
  public:
    SendWindow();

    // Forgets everything and numbers from 0.
    void Reset();

    // Whether a record finds room. Those that begin, end and describe ways have a little of their own beyond
    // the limits.
    bool HasRoom(const LinkRecord& record) const;
    // Bytes of pieces that find room.
    std::size_t PieceRoom() const;
    // Half empty at least: a good time to begin again.
    bool IsRelaxed() const { return unacknowledged < kMostUnacknowledged / 2 && Count() < kMostRecords / 2; }
    bool IsEmpty() const { return Count() == 0; }
    // Takes a record for which there is room. `due`: low bits of the time at which it is to leave, for its
    // age.
    void Push(const LinkRecord& record, std::uint32_t due);

    // What the peer says of its own.
    void Acknowledge(std::uint64_t now, std::uint32_t allBelow);
    void TakeGaps(std::uint64_t now, const Gaps& gaps);
    // Smoothed, microseconds.
    void SetRoundTrip(std::uint64_t microseconds) { roundTrip = microseconds; }
    void SetRepeatTimes(const RepeatTimes& chosen) { times = &chosen; }

    // Whether Fill would write something now.
    bool WantsToSend(std::uint64_t now) const;
    // Writes records into a body that is to leave now, or nothing.
    void Fill(std::uint64_t now, BodyWriter& body);
    // When WantsToSend may become true without anything else happening; null when never.
    std::optional<std::uint64_t> NextTimeout() const;

    // Whether what goes again has done so before, and nothing of it has arrived.
    bool RepeatsInVain() const { return interval > FirstInterval(); }
    // That was written last.
    std::uint32_t LastWritten() const { return lastWritten; }
    // Whether the peer is known to have a record that was written.
    bool PeerHas(std::uint32_t number) const {
        return Distance(ring.Oldest(), number) > 0 || IsAcknowledged(At(number));
    }
    std::uint64_t Repeated() const { return repeated; }

  private:
    static constexpr std::uint8_t kAcknowledged = 4;  // among the flags of a record
    // A peer that has everything has said so before the first repeat.
    static constexpr std::uint64_t kShortRoundTrip = 500;

    // Which records go again: from `at` up to `end`, those not sent for `quiet`.
    struct Run {
        std::uint32_t at = 0;
        std::uint32_t end = 0;
    };

    StoredRecord& At(std::uint32_t number) { return ring.At(number); }
    const StoredRecord& At(std::uint32_t number) const { return ring.At(number); }
    static bool IsAcknowledged(const StoredRecord& record) { return (record.flags & kAcknowledged) != 0; }
    std::uint32_t Count() const { return ring.Next() - ring.Oldest(); }
    void Settle(std::uint32_t number);
    bool Write(std::uint64_t now, std::uint32_t number, BodyWriter& body);
    std::uint64_t SinceSent(std::uint64_t now, const StoredRecord& record) const;
    bool FillFresh(std::uint64_t now, BodyWriter& body);
    void FillHoles(std::uint64_t now, BodyWriter& body);
    void FillYoungest(std::uint64_t now, std::uint32_t before, BodyWriter& body);
    void FillRepeat(std::uint64_t now, BodyWriter& body);
    void Progressed(std::uint64_t now);
    std::uint64_t FirstInterval() const;
    bool IsShort() const { return roundTrip != 0 && roundTrip <= kShortRoundTrip; }
    bool Loses(std::uint64_t now) const { return now < losesUntil && IsShort(); }
    std::uint64_t FirstRepeat(std::uint64_t now) const;
    void NextRepeat(std::uint64_t now);
    std::uint64_t QuietTime() const;

    RecordRing ring;  // from the oldest that is not acknowledged to the next that is pushed
    PieceStore pieces;
    RecordScratch scratch{};
    std::uint32_t fresh = 0;  // the first that was never sent
    std::size_t unacknowledged = 0;
    std::size_t unacknowledgedPieces = 0;
    std::uint32_t lastWritten = 0;
    std::uint64_t roundTrip = 0;
    std::uint64_t repeated = 0;
    const RepeatTimes* times = &kRepeatTimes;

    Gaps gaps;                     // as reported last
    std::size_t holeAt = 0;        // of gaps, that is to go next; gaps.count: no hole waits
    std::uint32_t holeNumber = 0;  // within it; 0 with a new hole
    std::uint64_t holesAgain = 0;  // when holes go again that were too young; 0: never

    Run repeat;                    // of what is not acknowledged
    std::uint64_t repeatDue = 0;   // when it begins; 0: never
    std::uint64_t interval = 0;    // to the next repeat; 0: the first is still to come
    std::size_t repeatBodies = 0;  // of the present run
    std::uint64_t freshAt = 0;     // when something new was sent last
    std::uint64_t losesUntil = 0;  // counts as a way that loses datagrams
    bool isSecondSoon = false;     // the next repeat is the second of a way that loses datagrams

    std::uint64_t burstBegin = 0;  // so many bodies a millisecond and no more
    std::size_t burst = 0;
};

}  // namespace vexil
