// Records by number, from the oldest that is kept to the next, in blocks that are used again as soon as they
// are free: what is never kept at a time takes up no memory. Nothing is allocated once it is made.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "service/network/StoredRecord.h"

namespace vexil {

class RecordRing {
  public:
    // So many at a time.
    static constexpr std::uint32_t kMost = 32768;

    RecordRing() : blocks(new StoredRecord[kBlocks * kBlockSize]) { Clear(); }

    // Nothing is kept; the next number is 0.
    void Clear() {
        for (std::size_t block = 0; block < kBlocks; ++block) {
            free[block] = static_cast<std::uint8_t>(kBlocks - 1 - block);
        }
        freeCount = kBlocks;
        oldest = next = 0;
    }
    std::uint32_t Oldest() const { return oldest; }
    std::uint32_t Next() const { return next; }

    // Makes place for the next number. Fewer than kMost are kept.
    StoredRecord& Add() {
        if (next % kBlockSize == 0) {
            blockOf[next / kBlockSize % blockOf.size()] = free[--freeCount];
        }
        return At(next++);
    }
    void DropOldest() {
        if (++oldest % kBlockSize == 0) {
            free[freeCount++] = blockOf[(oldest - 1) / kBlockSize % blockOf.size()];
        }
    }

    // Of a number that is kept.
    StoredRecord& At(std::uint32_t number) { return blocks[PlaceOf(number)]; }
    const StoredRecord& At(std::uint32_t number) const { return blocks[PlaceOf(number)]; }

  private:
    static constexpr std::uint32_t kBlockSize = 256;
    static constexpr std::size_t kBlocks = kMost / kBlockSize + 1;  // the oldest may be the last of its block

    std::size_t PlaceOf(std::uint32_t number) const {
        return blockOf[number / kBlockSize % blockOf.size()] * std::size_t{kBlockSize} + number % kBlockSize;
    }

    std::unique_ptr<StoredRecord[]> blocks;  // not zeroed
    std::array<std::uint8_t, 256> blockOf{};
    std::array<std::uint8_t, kBlocks> free{};
    std::size_t freeCount = 0;
    std::uint32_t oldest = 0;
    std::uint32_t next = 0;
};

}  // namespace vexil
