// A record as the windows of the link keep it. Short messages are inside; the bytes of everything else are in
// a PieceStore beside them.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>

#include "service/network/LinkCodec.h"
#include "service/network/PieceStore.h"

namespace vexil {

// Nothing is initialized: of an array of these only what is used takes up memory.
struct StoredRecord {
    std::uint32_t due;  // when it is or was to leave, low bits of microseconds
    std::uint16_t number;
    std::uint16_t mark;  // of the window that keeps it
    RecordType type;
    std::uint8_t source;
    std::uint8_t input;
    std::uint8_t flags;  // kFirst, kLast, and those of the window that keeps it
    std::array<std::uint8_t, 4>
        bytes;  // a message and its length; else the place in the store and the length

    static constexpr std::uint8_t kFirst = 1;
    static constexpr std::uint8_t kLast = 2;

    std::size_t ByteCount() const {
        return type == RecordType::Message ? bytes[3] : static_cast<std::size_t>(bytes[2] | bytes[3] << 8);
    }
    std::uint16_t Place() const { return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8); }
    bool IsInStore() const { return type != RecordType::Message && ByteCount() > 0; }
};
static_assert(sizeof(StoredRecord) == 16);

using RecordScratch = std::array<std::uint8_t, kLongestLinkPiece>;

// Whether the bytes of a record find room.
inline bool HasRoomFor(const LinkRecord& record, const PieceStore& store, std::size_t kept = 0) {
    return record.type == RecordType::Message || record.bytes.empty() ||
           store.HasRoom(record.bytes.size(), kept);
}

// Keeps a record; there is room for its bytes.
inline StoredRecord Store(const LinkRecord& record, std::uint32_t due, PieceStore& store) {
    StoredRecord stored{};
    stored.due = due;
    stored.number = record.number;
    stored.type = record.type;
    stored.source = record.source;
    stored.input = record.input;
    stored.flags = static_cast<std::uint8_t>((record.first ? StoredRecord::kFirst : 0) |
                                             (record.last ? StoredRecord::kLast : 0));
    if (record.type == RecordType::Message) {
        std::copy(record.bytes.begin(), record.bytes.end(), stored.bytes.begin());
        stored.bytes[3] = static_cast<std::uint8_t>(record.bytes.size());
    } else if (!record.bytes.empty()) {
        const std::uint16_t place = store.Put(record.bytes);
        const std::size_t size = record.bytes.size();
        stored.bytes = {static_cast<std::uint8_t>(place), static_cast<std::uint8_t>(place >> 8),
                        static_cast<std::uint8_t>(size), static_cast<std::uint8_t>(size >> 8)};
    }
    return stored;
}

// The record again, without its age; its bytes are in `scratch` until that is used again.
inline LinkRecord Load(const StoredRecord& stored, const PieceStore& store, RecordScratch& scratch) {
    LinkRecord record;
    record.type = stored.type;
    record.source = stored.source;
    record.input = stored.input;
    record.number = stored.number;
    record.first = (stored.flags & StoredRecord::kFirst) != 0;
    record.last = (stored.flags & StoredRecord::kLast) != 0;
    const std::span<std::uint8_t> out = std::span(scratch).first(stored.ByteCount());
    if (stored.IsInStore()) {
        store.Get(stored.Place(), out);
    } else {
        std::copy_n(stored.bytes.begin(), out.size(), out.begin());
    }
    record.bytes = out;
    return record;
}

inline void Discard(const StoredRecord& stored, PieceStore& store) {
    if (stored.IsInStore()) {
        store.Free(stored.Place());
    }
}

}  // namespace vexil
