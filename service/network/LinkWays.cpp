#include "service/network/LinkWays.h"

#include <algorithm>

namespace vexil {

namespace {

constexpr std::uint8_t kExclusiveBegin = 0xF0;
constexpr std::uint8_t kExclusiveEnd = 0xF7;

}  // namespace

MidiPiece PieceOfDelivery(ByteView bytes) {
    MidiPiece piece;
    piece.bytes = bytes;
    piece.systemExclusive =
        bytes.front() < 0x80 || bytes.front() == kExclusiveBegin || bytes.front() == kExclusiveEnd;
    if (piece.systemExclusive) {
        piece.first = bytes.front() == kExclusiveBegin;
        piece.last = bytes.back() == kExclusiveEnd;
    }
    return piece;
}

LinkWaysIn::LinkWaysIn(Engine& itsEngine) : engine(itsEngine), ways(kTakenSources), rows(kRows, -1) {
    owed.reserve(kTakenSources);
}

// Sources of one peer mostly lead to as many inputs: they lie in rows of their own.
std::int16_t& LinkWaysIn::RowOf(const void* peer, std::uint8_t source, std::uint8_t input) {
    const std::uint64_t mixed = (reinterpret_cast<std::uintptr_t>(peer) >> 4) * 0x9E3779B97F4A7C15 >> 32;
    return rows[(mixed + std::size_t{source} * 67 + input) % kRows];
}

LinkWaysIn::Way* LinkWaysIn::Find(const void* peer, std::uint8_t source, std::uint8_t input) {
    for (std::int16_t place = RowOf(peer, source, input); place >= 0;) {
        Way& way = ways[static_cast<std::size_t>(place)];
        if (way.peer == peer && way.source == source && way.input == input) {
            return &way;
        }
        place = way.next;
    }
    return nullptr;
}

bool LinkWaysIn::Take(Way& way, std::uint64_t time) {
    const vexil::Way to{way.verdict.isHeard ? Destination::Input(way.input) : Destination{}, true};
    const std::optional<int> source = engine.TakeSource(to, time);
    if (source) {
        way.engineSource = *source;
        way.outstanding = 0;
        way.passedOn = engine.ExclusivePassedOn(*source);
    }
    return source.has_value();
}

void LinkWaysIn::GiveBack(Way& way, std::uint64_t time) {
    if (way.engineSource < 0) {
        return;
    }
    if (!engine.PostArrival({Arrival::Kind::GiveBack, way.engineSource, time})) {
        owed.push_back(way.engineSource);
    }
    way.leftOut += std::exchange(way.outstanding, 0U);
    way.engineSource = -1;
}

void LinkWaysIn::Retry(std::uint64_t time) {
    while (!owed.empty() && engine.PostArrival({Arrival::Kind::GiveBack, owed.back(), time})) {
        owed.pop_back();
    }
}

WayProblem LinkWaysIn::Open(const void* peer, std::uint8_t source, std::uint8_t input,
                            const WayVerdict& verdict, std::uint64_t time) {
    End(peer, source, input, time);
    const auto free =
        std::find_if(ways.begin(), ways.end(), [](const Way& way) { return way.peer == nullptr; });
    if (free == ways.end()) {
        return WayProblem::TooManyWays;
    }
    *free = Way{peer, source, input, verdict};
    std::int16_t& row = RowOf(peer, source, input);
    free->next = std::exchange(row, static_cast<std::int16_t>(free - ways.begin()));
    if (verdict.problem == WayProblem::None && !Take(*free, time)) {
        free->verdict.problem = WayProblem::TooManyWays;
    }
    return free->verdict.problem;
}

WayProblem LinkWaysIn::Change(Way& way, const WayVerdict& verdict, std::uint64_t time) {
    way.verdict = verdict;
    if (verdict.problem != WayProblem::None) {
        GiveBack(way, time);
        return verdict.problem;
    }
    if (way.engineSource >= 0) {
        const vexil::Way to{verdict.isHeard ? Destination::Input(way.input) : Destination{}, true};
        if (engine.PostArrival({Arrival::Kind::Way, way.engineSource, time, to})) {
            return WayProblem::None;
        }
        GiveBack(way, time);
    }
    if (!Take(way, time)) {
        way.verdict.problem = WayProblem::TooManyWays;
    }
    return way.verdict.problem;
}

std::uint32_t LinkWaysIn::End(const void* peer, std::uint8_t source, std::uint8_t input, std::uint64_t time) {
    Way* way = Find(peer, source, input);
    return way == nullptr ? 0 : Free(*way, time);
}

std::uint32_t LinkWaysIn::Free(Way& way, std::uint64_t time) {
    GiveBack(way, time);
    const std::uint32_t bytes = way.leftOut;
    anyOutstanding -= bytes;
    std::int16_t* link = &RowOf(way.peer, way.source, way.input);
    while (*link != &way - ways.data()) {
        link = &ways[static_cast<std::size_t>(*link)].next;
    }
    *link = way.next;
    way = Way();
    return bytes;
}

void LinkWaysIn::EndAll(const void* peer, std::uint64_t time) {
    for (Way& way : ways) {
        if (way.peer == peer) {
            Free(way, time);
        }
    }
}

void LinkWaysIn::Hear(const void* peer, std::uint8_t source, std::uint8_t input, bool exclusive,
                      ByteView bytes, std::uint64_t time) {
    Way* way = Find(peer, source, input);
    if (way == nullptr) {
        return;
    }
    const std::uint32_t pieceBytes = exclusive ? static_cast<std::uint32_t>(bytes.size()) : 0;
    anyOutstanding += pieceBytes;
    if (way->verdict.problem != WayProblem::None) {
        way->leftOut += pieceBytes;
        return;
    }
    const Arrival::Kind kind = exclusive ? Arrival::Kind::Exclusive : Arrival::Kind::Message;
    const bool hasSource = way->engineSource >= 0 || (owed.empty() && Take(*way, time));
    if (hasSource && engine.PostArrival({kind, way->engineSource, time}, bytes)) {
        way->outstanding += pieceBytes;
        return;
    }
    ++lost;
    way->leftOut += pieceBytes;
    // What it left sounding is released as soon as the engine takes something again.
    GiveBack(*way, time);
}

void StagedSources::Put(const RemoteRing::Delivery& delivery) {
    const std::size_t source = delivery.to.from;
    if (!stages[source]) {
        stages[source] = std::make_unique<Stage>();
    }
    // It never has more than RemoteRing lets a source have.
    stages[source]->ring.Put({delivery.to, delivery.time}, delivery.bytes);
    if (!waiting[source]) {
        waiting[source] = true;
        Next(*stages[source], source);
    }
}

void StagedSources::Next(Stage& stage, std::size_t source) {
    Head head;
    waiting[source] = stage.ring.Take(head, stage.front.bytes);
    stage.front.to = head.to;
    stage.front.time = head.time;
}

}  // namespace vexil
