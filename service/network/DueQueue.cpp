#include "service/network/DueQueue.h"

#include <algorithm>

#include "service/network/Require.h"

namespace vexil {

DueQueue::DueQueue(std::size_t records, std::size_t pieceBytes)
    : capacity(records), heap(new Entry[records]), pieces(pieceBytes) {}

void DueQueue::Push(std::uint64_t due, const LinkRecord& record) {
    Require(HasRoom(record), "HasRoom(record)");
    heap[size++] = {due, order++, Store(record, 0, pieces)};
    std::push_heap(heap.get(), heap.get() + size, LeavesLater);
}

void DueQueue::Pop() {
    Discard(heap[0].record, pieces);
    std::pop_heap(heap.get(), heap.get() + size, LeavesLater);
    --size;
}

void DueQueue::Clear() {
    size = 0;
    pieces.Clear();
}

}  // namespace vexil
