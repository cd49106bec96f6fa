#include "service/network/WayOrder.h"

#include <algorithm>

namespace vexil {

WayOrder::WayOrder() : pool(new Held[kHeldRecords]), pieces(kHeldPieceBytes + kKeptPieceBytes) {
    Reset();
}

void WayOrder::Reset() {
    ways.Clear();
    open.Clear();
    nameNumber = 0;
    usedCount = 0;
    firstFree = kNone;
    freeCount = kHeldRecords;
    readyHead = readyTail = kNone;
    pieces.Clear();
    ending = false;
}

bool WayOrder::Take(const LinkRecord& record, std::uint32_t due) {
    if (record.type == RecordType::WayState || record.type == RecordType::Name) {
        return TakeUnordered(record, due);
    }
    Way& way = ways[WayIndex(record.source, record.input)];
    const std::int16_t ahead = Distance16(record.number, way.expected);
    if (ahead < 0) {
        return true;  // nothing that an honest peer sends: it is left out
    }
    const bool isNext = ahead == 0;
    if (freeCount <= (isNext ? 0 : kKeptRecords) ||
        !HasRoomFor(record, pieces, isNext ? 0 : kKeptPieceBytes)) {
        return false;
    }
    const std::uint16_t place = Keep(record, due);
    if (!isNext) {
        return Hold(way, place);
    }
    ++way.expected;
    MakeReady(place);
    FollowUp(way);
    return true;
}

// States and names have numbers of their own: what is older than the newest is left out.
bool WayOrder::TakeUnordered(const LinkRecord& record, std::uint32_t due) {
    std::uint16_t& newest =
        record.type == RecordType::Name ? nameNumber : ways[WayIndex(record.source, record.input)].state;
    if (Distance16(record.number, newest) <= 0) {
        return true;
    }
    if (freeCount == 0 || !HasRoomFor(record, pieces)) {
        return false;
    }
    newest = record.number;
    MakeReady(Keep(record, due));
    return true;
}

std::uint16_t WayOrder::Keep(const LinkRecord& record, std::uint32_t due) {
    std::uint16_t place = firstFree;
    if (place == kNone) {
        place = static_cast<std::uint16_t>(usedCount++);
    } else {
        firstFree = pool[place].next;
    }
    --freeCount;
    pool[place] = {Store(record, due, pieces), kNone};
    return place;
}

void WayOrder::Release(std::uint16_t place) {
    Discard(pool[place].record, pieces);
    pool[place].next = firstFree;
    firstFree = place;
    ++freeCount;
}

void WayOrder::MakeReady(std::uint16_t place) {
    pool[place].next = kNone;
    if (readyHead == kNone) {
        readyHead = place;
    } else {
        pool[readyTail].next = place;
    }
    readyTail = place;
}

// Keeps the list of what is held back in the order of numbers. Mostly the newest comes last.
bool WayOrder::Hold(Way& way, std::uint16_t place) {
    const std::uint16_t number = pool[place].record.number;
    const auto link = static_cast<std::uint16_t>(place + 1);
    if (way.heldHead == 0) {
        way.heldHead = way.heldTail = link;
        return true;
    }
    if (Distance16(number, pool[way.heldTail - 1].record.number) > 0) {
        pool[way.heldTail - 1].next = place;
        way.heldTail = link;
        return true;
    }
    std::uint16_t before = kNone;
    auto at = static_cast<std::uint16_t>(way.heldHead - 1);
    while (Distance16(pool[at].record.number, number) < 0) {
        before = at;
        at = pool[at].next;
    }
    if (pool[at].record.number == number) {
        Release(place);  // nothing that an honest peer sends
        return true;
    }
    pool[place].next = at;
    if (before == kNone) {
        way.heldHead = link;
    } else {
        pool[before].next = place;
    }
    return true;
}

void WayOrder::FollowUp(Way& way) {
    while (way.heldHead != 0) {
        const auto place = static_cast<std::uint16_t>(way.heldHead - 1);
        if (pool[place].record.number != way.expected) {
            return;
        }
        const std::uint16_t next = pool[place].next;
        way.heldHead = next == kNone ? 0 : static_cast<std::uint16_t>(next + 1);
        way.heldTail = next == kNone ? 0 : way.heldTail;
        ++way.expected;
        MakeReady(place);
    }
}

std::optional<OrderedRecord> WayOrder::Next() {
    while (readyHead != kNone) {
        const std::uint16_t place = readyHead;
        const StoredRecord stored = pool[place].record;
        const std::size_t way = WayIndex(stored.source, stored.input);
        // A way that is opened again has ended before: that is heard first, and the opening stays.
        if (stored.type == RecordType::OpenWay && open.Has(way)) {
            open.Remove(way);
            return OrderedRecord{
                OrderedRecord::Kind::WayEnded, stored.source, stored.input, true, true, stored.due, {}};
        }
        const std::optional<OrderedRecord> heard = Hear(stored);
        readyHead = pool[place].next;
        Release(place);
        if (heard) {
            return heard;
        }
    }
    return ending ? EndOneWay() : std::nullopt;
}

std::optional<OrderedRecord> WayOrder::Hear(const StoredRecord& stored) {
    const std::size_t way = WayIndex(stored.source, stored.input);
    const LinkRecord record = Load(stored, pieces, scratch);
    OrderedRecord heard;
    heard.source = stored.source;
    heard.input = stored.input;
    heard.first = record.first;
    heard.last = record.last;
    heard.due = stored.due;
    heard.bytes = record.bytes;
    switch (stored.type) {
        case RecordType::OpenWay:
            open.Add(way);
            heard.kind = OrderedRecord::Kind::WayOpened;
            return heard;
        case RecordType::EndOfWay:
            heard.kind = OrderedRecord::Kind::WayEnded;
            if (!open.Has(way)) {
                return std::nullopt;
            }
            open.Remove(way);
            return heard;
        case RecordType::Message:
        case RecordType::Piece:
            heard.kind = stored.type == RecordType::Message ? OrderedRecord::Kind::Message
                                                            : OrderedRecord::Kind::Piece;
            outsideWays += open.Has(way) ? 0U : 1U;
            return open.Has(way) ? std::optional(heard) : std::nullopt;
        case RecordType::WayState:
            heard.kind = OrderedRecord::Kind::WayState;
            return heard;
        case RecordType::Name:
            heard.kind = OrderedRecord::Kind::Name;
            return heard;
    }
    return std::nullopt;
}

std::optional<OrderedRecord> WayOrder::EndOneWay() {
    if (open.IsEmpty()) {
        return std::nullopt;
    }
    const std::size_t way = open.NextFrom(0);
    open.Remove(way);
    OrderedRecord ended;
    ended.kind = OrderedRecord::Kind::WayEnded;
    ended.source = static_cast<std::uint8_t>(way / kLinkInputs);
    ended.input = static_cast<std::uint8_t>(way % kLinkInputs);
    return ended;
}

}  // namespace vexil
