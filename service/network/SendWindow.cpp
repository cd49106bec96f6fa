#include "service/network/SendWindow.h"

#include <algorithm>

#include "service/network/Require.h"

namespace vexil {

namespace {

// Kept for records that begin, end and describe ways.
constexpr std::size_t kKeptBytes = std::size_t{16} << 10;
constexpr std::uint32_t kKeptRecords = 1024;

constexpr int kSendsShift = 4;
constexpr int kMostCounted = 15;
constexpr int kMostUnaskedSends = 4;  // the first and three more behind new records

constexpr int kMarkShift = 6;                   // a mark is a time in units of 64 us
constexpr std::uint64_t kMarkSlack = 100;       // by which a mark may be early
constexpr std::uint64_t kShortestQuiet = 1900;  // between two times that one record goes for a gap
constexpr std::size_t kBodiesOfRepeat = 16;
// Of a short way that loses datagrams: what arrived is acknowledged before the first repeat.
constexpr std::uint64_t kFirstRepeatOfLossy = 1200;
constexpr std::uint64_t kSecondRepeatOfLossy = 1000;  // after the first
constexpr std::uint64_t kLosesFor = 1'000'000;        // it counts as such after each loss
// The socket's buffer of an ordinary user holds some 90 full datagrams.
constexpr std::size_t kMostBurst = 48;
constexpr std::uint64_t kBurstTime = 1000;

int SendsOf(const StoredRecord& record) {
    return record.flags >> kSendsShift;
}

std::size_t WireSize(const StoredRecord& record) {
    return SizeOfRecord(record.type, record.ByteCount());
}

std::uint16_t AgeOf(std::uint32_t due, std::uint64_t now) {
    const std::int32_t microseconds = Distance(static_cast<std::uint32_t>(now), due);
    if (microseconds <= 0) {
        return 0;
    }
    const std::uint32_t age = static_cast<std::uint32_t>(microseconds) / kAgeUnit;
    return static_cast<std::uint16_t>(std::min<std::uint32_t>(age, kOldestAge));
}

}  // namespace

SendWindow::SendWindow() : pieces(kMostUnacknowledgedPieces + kKeptBytes) {}

void SendWindow::Reset() {
    ring.Clear();
    fresh = 0;
    unacknowledged = unacknowledgedPieces = 0;
    pieces.Clear();
    gaps = {};
    holeAt = 0;
    holeNumber = 0;
    holesAgain = 0;
    repeat = {};
    repeatDue = 0;
    interval = 0;
    losesUntil = 0;
    isSecondSoon = false;
}

std::size_t SendWindow::PieceRoom() const {
    const std::size_t free = pieces.FreeBytes();
    const std::size_t inStore = free > kKeptBytes ? free - kKeptBytes : 0;
    const bool isFull = Count() >= kMostRecords - kKeptRecords;
    return isFull ? 0 : std::min(inStore, kMostUnacknowledgedPieces - unacknowledgedPieces);
}

bool SendWindow::HasRoom(const LinkRecord& record) const {
    const std::size_t size = SizeOfRecord(record.type, record.bytes.size());
    const bool isMusic = record.type == RecordType::Message || record.type == RecordType::Piece;
    if (!isMusic) {
        return Count() < kMostRecords - 1 && HasRoomFor(record, pieces);
    }
    if (Count() >= kMostRecords - kKeptRecords) {
        return false;
    }
    if (record.type == RecordType::Message) {
        return unacknowledged + size <= kMostUnacknowledged;
    }
    return unacknowledgedPieces + size <= kMostUnacknowledgedPieces && HasRoomFor(record, pieces, kKeptBytes);
}

void SendWindow::Push(const LinkRecord& record, std::uint32_t due) {
    Require(HasRoom(record), "HasRoom(record)");
    StoredRecord& stored = ring.Add();
    stored = Store(record, due, pieces);
    unacknowledged += WireSize(stored);
    unacknowledgedPieces += record.type == RecordType::Piece ? WireSize(stored) : 0;
}

void SendWindow::Settle(std::uint32_t number) {
    StoredRecord& record = At(number);
    if (IsAcknowledged(record)) {
        return;
    }
    record.flags |= kAcknowledged;
    unacknowledged -= WireSize(record);
    unacknowledgedPieces -= record.type == RecordType::Piece ? WireSize(record) : 0;
    Discard(record, pieces);
}

void SendWindow::Acknowledge(std::uint64_t now, std::uint32_t allBelow) {
    if (Distance(allBelow, ring.Oldest()) <= 0 || Distance(fresh, allBelow) < 0) {
        return;  // old, or of something that was never sent
    }
    while (ring.Oldest() != allBelow) {
        Settle(ring.Oldest());
        ring.DropOldest();
    }
    Progressed(now);
}

void SendWindow::TakeGaps(std::uint64_t now, const Gaps& reported) {
    if (Distance(fresh, reported.highest) <= 0) {
        return;
    }
    const std::size_t before = unacknowledged;
    std::uint32_t number = ring.Oldest();
    for (std::size_t index = 0; index < reported.count; ++index) {
        const Hole& hole = reported.holes[index];
        while (Distance(hole.first, number) > 0) {
            Settle(number++);
        }
        number = Distance(hole.end, number) > 0 ? hole.end : number;
    }
    if (reported.count < kMostHoles) {
        while (Distance(reported.highest, number) >= 0) {
            Settle(number++);
        }
    }
    while (ring.Oldest() != fresh && IsAcknowledged(At(ring.Oldest()))) {
        ring.DropOldest();
    }
    gaps = reported;
    holeAt = 0;
    holeNumber = gaps.count > 0 ? gaps.holes[0].first : 0;
    holesAgain = 0;
    if (unacknowledged != before) {
        Progressed(now);
    }
}

void SendWindow::Progressed(std::uint64_t now) {
    if (ring.Oldest() == fresh) {
        repeatDue = 0;
        repeat = {};
    } else if (interval != 0) {
        interval = FirstInterval();
        repeatDue = now + interval;
    }
}

std::uint64_t SendWindow::FirstInterval() const {
    const auto roundTrips = roundTrip * static_cast<std::uint64_t>(times->halfRoundTrips) / 2;
    return std::max(times->shortest, roundTrips + times->above);
}

std::uint64_t SendWindow::FirstRepeat(std::uint64_t now) const {
    return Loses(now) ? std::min(kFirstRepeatOfLossy, times->first) : times->first;
}

std::uint64_t SendWindow::QuietTime() const {
    return std::max(kShortestQuiet, roundTrip);
}

std::uint64_t SendWindow::SinceSent(std::uint64_t now, const StoredRecord& record) const {
    const auto mark = static_cast<std::uint16_t>(now >> kMarkShift);
    return std::uint64_t{static_cast<std::uint16_t>(mark - record.mark)} << kMarkShift;
}

bool SendWindow::WantsToSend(std::uint64_t now) const {
    if (burst >= kMostBurst && now < burstBegin + kBurstTime) {
        return false;
    }
    return fresh != ring.Next() || holeAt < gaps.count || (holesAgain != 0 && now >= holesAgain) ||
           repeat.at != repeat.end || (repeatDue != 0 && now >= repeatDue);
}

std::optional<std::uint64_t> SendWindow::NextTimeout() const {
    std::optional<std::uint64_t> first;
    if (fresh != ring.Next() || holeAt < gaps.count || repeat.at != repeat.end) {
        first = 0;
    }
    for (const std::uint64_t time : {holesAgain, repeatDue}) {
        if (time != 0 && (!first || time < *first)) {
            first = time;
        }
    }
    return first && burst >= kMostBurst ? std::max(*first, burstBegin + kBurstTime) : first;
}

bool SendWindow::Write(std::uint64_t now, std::uint32_t number, BodyWriter& body) {
    StoredRecord& stored = At(number);
    LinkRecord record = Load(stored, pieces, scratch);
    record.age = AgeOf(stored.due, now);
    if (!body.AddRecord(number, record)) {
        return false;
    }
    const int sends = std::min(SendsOf(stored) + 1, kMostCounted);
    repeated += sends > 1 ? 1 : 0;
    lastWritten = number;
    stored.flags =
        static_cast<std::uint8_t>((stored.flags & ((1 << kSendsShift) - 1)) | sends << kSendsShift);
    stored.mark = static_cast<std::uint16_t>(now >> kMarkShift);
    return true;
}

void SendWindow::Fill(std::uint64_t now, BodyWriter& body) {
    if (now >= burstBegin + kBurstTime) {
        burstBegin = now;
        burst = 0;
    }
    if (!WantsToSend(now)) {
        return;
    }
    const std::size_t before = body.Size();
    const std::uint32_t firstFresh = fresh;
    const bool hasFresh = FillFresh(now, body);
    if (holesAgain != 0 && now >= holesAgain) {
        holesAgain = 0;
        holeAt = 0;
        holeNumber = gaps.count > 0 ? gaps.holes[0].first : 0;
    }
    FillHoles(now, body);
    if (hasFresh) {
        FillYoungest(now, firstFresh, body);
    } else {
        FillRepeat(now, body);
    }
    burst += body.Size() > before ? 1U : 0U;
}

bool SendWindow::FillFresh(std::uint64_t now, BodyWriter& body) {
    const std::uint32_t before = fresh;
    while (fresh != ring.Next() && Write(now, fresh, body)) {
        ++fresh;
    }
    if (fresh == before) {
        return false;
    }
    interval = 0;
    freshAt = now;
    repeatDue = now + FirstRepeat(now);
    isSecondSoon = false;
    repeat = {};
    return true;
}

// Every hole that was reported, but no record more often than each round trip.
void SendWindow::FillHoles(std::uint64_t now, BodyWriter& body) {
    while (holeAt < gaps.count) {
        const Hole& hole = gaps.holes[holeAt];
        std::uint32_t number = Distance(ring.Oldest(), holeNumber) > 0 ? ring.Oldest() : holeNumber;
        for (; Distance(hole.end, number) > 0; ++number) {
            if (IsAcknowledged(At(number))) {
                continue;
            }
            const std::uint64_t since = SinceSent(now, At(number));
            if (since < QuietTime()) {
                const std::uint64_t again = now + QuietTime() - since;
                holesAgain = holesAgain == 0 ? again : std::min(holesAgain, again);
                continue;
            }
            if (!Write(now, number, body)) {
                holeNumber = number;
                return;
            }
        }
        ++holeAt;
        holeNumber = holeAt < gaps.count ? gaps.holes[holeAt].first : 0;
    }
}

// Behind new records, those before them that are still unacknowledged, as many as fit.
void SendWindow::FillYoungest(std::uint64_t now, std::uint32_t before, BodyWriter& body) {
    constexpr std::size_t kMostRuns = 8;
    constexpr std::size_t kFrameSize = 7;
    std::size_t room = body.Room();
    std::uint32_t first = before;
    std::size_t runs = 0;
    bool inRun = false;
    while (first != ring.Oldest()) {
        const StoredRecord& record = At(first - 1);
        const bool goes = !IsAcknowledged(record) && SendsOf(record) < kMostUnaskedSends &&
                          record.mark != static_cast<std::uint16_t>(now >> kMarkShift);
        const std::size_t size = WireSize(record) + (inRun ? 0 : kFrameSize);
        if (goes && (size > room || (!inRun && runs == kMostRuns))) {
            break;
        }
        if (!goes && SendsOf(record) >= kMostUnaskedSends) {
            break;  // those before it have gone as often
        }
        room -= goes ? size : 0;
        runs += goes && !inRun ? 1 : 0;
        inRun = goes;
        --first;
    }
    for (; first != before; ++first) {
        const StoredRecord& record = At(first);
        const bool goes =
            !IsAcknowledged(record) && record.mark != static_cast<std::uint16_t>(now >> kMarkShift);
        if (goes && !Write(now, first, body)) {
            return;
        }
    }
}

// When what was not acknowledged goes again after this repeat.
void SendWindow::NextRepeat(std::uint64_t now) {
    if (IsShort() && now - freshAt >= kRepeatTimes.first) {
        losesUntil = now + kLosesFor;
    }
    if (interval == 0 && !isSecondSoon && Loses(now)) {
        isSecondSoon = true;
        repeatDue = now + kSecondRepeatOfLossy;
        return;
    }
    interval = interval == 0 ? FirstInterval()
                             : std::min(interval + interval / 2, std::max(times->longest, FirstInterval()));
    repeatDue = now + interval;
}

void SendWindow::FillRepeat(std::uint64_t now, BodyWriter& body) {
    if (repeatDue != 0 && now >= repeatDue) {
        repeat = {ring.Oldest(), fresh};
        repeatBodies = 0;
        NextRepeat(now);
    }
    if (repeat.at == repeat.end) {
        return;
    }
    if (Distance(ring.Oldest(), repeat.at) > 0) {
        repeat.at = ring.Oldest();
    }
    const std::uint64_t quiet = Loses(now) ? kSecondRepeatOfLossy : times->first;
    for (; Distance(repeat.end, repeat.at) > 0; ++repeat.at) {
        const StoredRecord& record = At(repeat.at);
        if (!IsAcknowledged(record) && SinceSent(now, record) + kMarkSlack >= quiet &&
            !Write(now, repeat.at, body)) {
            if (++repeatBodies >= kBodiesOfRepeat) {
                break;
            }
            return;
        }
    }
    repeat = {};
}

}  // namespace vexil
