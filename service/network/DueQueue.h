// Records that are not due yet, in the order in which they leave: by due time, and as they came where that is
// equal. One thread at a time; nothing is allocated once it is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "service/network/LinkCodec.h"
#include "service/network/PieceStore.h"
#include "service/network/StoredRecord.h"

namespace vexil {

class DueQueue {
  public:
    // Room for this many records, and for these bytes of pieces.
    DueQueue(std::size_t records, std::size_t pieceBytes);

    bool IsEmpty() const { return size == 0; }
    bool HasRoom(const LinkRecord& record) const { return size < capacity && HasRoomFor(record, pieces); }
    std::size_t PieceRoom() const { return size < capacity ? pieces.FreeBytes() : 0; }
    // There is room. The record's number counts for nothing.
    void Push(std::uint64_t due, const LinkRecord& record);

    // Of the record that leaves first. Not of an empty queue.
    std::uint64_t FrontDue() const { return heap[0].due; }
    LinkRecord Front(RecordScratch& scratch) const { return Load(heap[0].record, pieces, scratch); }
    void Pop();
    void Clear();

  private:
    struct Entry {  // as StoredRecord, not initialized
        std::uint64_t due;
        std::uint64_t order;
        StoredRecord record;
    };
    static bool LeavesLater(const Entry& a, const Entry& b) {
        return a.due != b.due ? a.due > b.due : a.order > b.order;
    }

    std::size_t capacity;
    std::unique_ptr<Entry[]> heap;
    std::size_t size = 0;
    std::uint64_t order = 0;
    PieceStore pieces;
};

}  // namespace vexil
