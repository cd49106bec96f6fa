#include "service/engine/PieceQueue.h"

#include <algorithm>
#include <cstring>

namespace vexil {

namespace {

constexpr std::uint8_t kNowhere = 0xFF;  // in the place of a port

// Bytes that a record takes up with those behind it.
std::uint32_t SizeOf(const Record& record) {
    const std::size_t behind = record.length <= record.bytes.size() ? 0 : record.length;
    const std::size_t size = sizeof(Record) + behind;
    return static_cast<std::uint32_t>((size + alignof(Record) - 1) / alignof(Record) * alignof(Record));
}

// A destination in the bytes of a record, as NextDestination reads it.
void PutDestination(const Destination& to, Record& record) {
    record.last = to.kind == Destination::Kind::Remote;
    record.bytes = {static_cast<std::uint8_t>(to.kind == Destination::Kind::Nowhere ? kNowhere : to.port),
                    to.from, static_cast<std::uint8_t>(to.computer & 0xFF),
                    static_cast<std::uint8_t>(to.computer >> 8)};
}

}  // namespace

Destination NextDestination(const Record& endOfWay) {
    const auto& [port, from, low, high] = endOfWay.bytes;
    if (port == kNowhere) {
        return {};
    }
    return endOfWay.last ? Destination::Remote(high << 8 | low, port, from) : Destination::Input(port);
}

PieceQueues::PieceQueues(std::size_t bytes)
    : chunks(std::clamp<std::size_t>(bytes / kChunkSize, kOwnChunks * kSourceCount, kNone)),
      next(chunks.size()),
      usedSize(chunks.size()),
      sharedFree(chunks.size() - kOwnChunks * kSourceCount),
      queues(kSourceCount) {
    for (std::size_t chunk = 0; chunk < chunks.size(); ++chunk) {
        next[chunk] = static_cast<std::uint16_t>(chunk + 1);
    }
    next.back() = kNone;
    // Every queue has one chunk at least, from here on.
    for (Queue& queue : queues) {
        AddChunk(queue);
    }
}

// The records lie in the bytes of their chunks as plain data.
Record& PieceQueues::At(std::uint16_t chunk, std::uint32_t offset) {
    return *static_cast<Record*>(static_cast<void*>(&chunks[chunk].bytes[offset]));
}
const Record& PieceQueues::At(std::uint16_t chunk, std::uint32_t offset) const {
    return *static_cast<const Record*>(static_cast<const void*>(&chunks[chunk].bytes[offset]));
}

bool PieceQueues::AddChunk(Queue& queue) {
    if (queue.count >= kOwnChunks) {
        if (sharedFree == 0) {
            return false;
        }
        --sharedFree;
    }
    const std::uint16_t chunk = firstFree;
    firstFree = next[chunk];
    next[chunk] = kNone;
    if (queue.tail == kNone) {
        queue.head = chunk;
    } else {
        next[queue.tail] = chunk;
        usedSize[queue.tail] = queue.writeAt;
    }
    queue.tail = chunk;
    queue.writeAt = 0;
    ++queue.count;
    return true;
}

void PieceQueues::DropHeadChunk(Queue& queue) {
    const std::uint16_t chunk = queue.head;
    queue.head = next[chunk];
    queue.readAt = 0;
    next[chunk] = firstFree;
    firstFree = chunk;
    if (queue.count > kOwnChunks) {
        ++sharedFree;
    }
    --queue.count;
}

void PieceQueues::Append(Queue& queue, const Record& record, std::span<const std::uint8_t> behind) {
    std::uint8_t* place = &chunks[queue.tail].bytes[queue.writeAt];
    std::memcpy(place, &record, sizeof record);
    if (!behind.empty()) {
        std::memcpy(place + sizeof record, behind.data(), behind.size());
    }
    queue.exclusive += record.kind == RecordKind::Exclusive ? record.length : 0U;
    queue.lastEnd = record.kind == RecordKind::EndOfWay ? queue.writeAt : kChunkSize;
    queue.writeAt += SizeOf(record);
}

bool PieceQueues::PushPiece(int source, std::uint64_t due, const MidiPiece& piece) {
    Queue& queue = Of(source);
    Record record;
    record.due = due;
    record.length = static_cast<std::uint16_t>(piece.bytes.size());
    record.kind = piece.systemExclusive ? RecordKind::Exclusive : RecordKind::Message;
    record.last = piece.last;
    std::span<const std::uint8_t> behind;
    if (piece.bytes.size() <= record.bytes.size()) {
        std::copy(piece.bytes.begin(), piece.bytes.end(), record.bytes.begin());
    } else {
        behind = piece.bytes;
    }
    // Behind every piece there stays room for an end of the way.
    if (queue.writeAt + SizeOf(record) + sizeof(Record) > kChunkSize && !AddChunk(queue)) {
        return false;
    }
    Append(queue, record, behind);
    return true;
}

bool PieceQueues::PushEndOfWay(int source, std::uint64_t due, const Destination& following) {
    Queue& queue = Of(source);
    if (queue.lastEnd != kChunkSize) {
        PutDestination(following, At(queue.tail, queue.lastEnd));
        return false;
    }
    Record record;
    record.due = due;
    record.kind = RecordKind::EndOfWay;
    PutDestination(following, record);
    Append(queue, record, {});
    return true;
}

bool PieceQueues::IsEmpty(int source) const {
    const Queue& queue = Of(source);
    return queue.head == queue.tail && queue.readAt == queue.writeAt;
}

const Record& PieceQueues::Front(int source) const {
    const Queue& queue = Of(source);
    return At(queue.head, queue.readAt);
}

std::span<const std::uint8_t> PieceQueues::FrontBytes(int source) const {
    const Queue& queue = Of(source);
    const Record& record = At(queue.head, queue.readAt);
    const std::uint8_t* bytes = record.length <= record.bytes.size()
                                    ? record.bytes.data()
                                    : &chunks[queue.head].bytes[queue.readAt + sizeof(Record)];
    return std::span(bytes, record.length).subspan(queue.taken);
}

void PieceQueues::Take(int source, std::size_t count) {
    Queue& queue = Of(source);
    queue.taken = static_cast<std::uint16_t>(queue.taken + count);
    if (queue.taken == At(queue.head, queue.readAt).length) {
        TakeRecord(source);
    }
}

void PieceQueues::TakeRecord(int source) {
    Queue& queue = Of(source);
    const Record& record = At(queue.head, queue.readAt);
    queue.exclusive -= record.kind == RecordKind::Exclusive ? record.length : 0U;
    queue.taken = 0;
    queue.readAt += SizeOf(record);
    if (queue.head != queue.tail) {
        if (queue.readAt == usedSize[queue.head]) {
            DropHeadChunk(queue);
        }
    } else if (queue.readAt == queue.writeAt) {
        // The chunk is written again from its beginning, while it is still at hand in the cache.
        queue.readAt = queue.writeAt = 0;
        queue.lastEnd = kChunkSize;
    }
}

}  // namespace vexil
