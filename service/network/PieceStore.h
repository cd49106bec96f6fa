// Bytes of system exclusive pieces and names, in blocks of one store that is made once and never grows. One
// thread at a time; nothing is allocated once it is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "service/network/LinkBytes.h"

namespace vexil {

class PieceStore {
  public:
    static constexpr std::uint16_t kNone = 0xFFFF;

    // Room for `bytes`, in blocks; fewer than kNone blocks.
    explicit PieceStore(std::size_t bytes);

    // Bytes that can be put in, in one piece, so that `kept` bytes more stay free.
    bool HasRoom(std::size_t bytes, std::size_t kept = 0) const {
        return BlocksOf(bytes) + BlocksOf(kept) <= freeCount;
    }
    std::size_t FreeBytes() const { return freeCount * kBlockSize; }
    // Copies bytes in and returns where they are; there is room. Not for nothing.
    std::uint16_t Put(ByteView bytes);
    // Copies them out again: as many as were put in.
    void Get(std::uint16_t place, std::span<std::uint8_t> out) const;
    void Free(std::uint16_t place);
    void Clear();

  private:
    static constexpr std::size_t kBlockSize = 256;
    static std::size_t BlocksOf(std::size_t bytes) { return (bytes + kBlockSize - 1) / kBlockSize; }

    std::size_t count;
    // Not zeroed: memory that is never used costs nothing.
    std::unique_ptr<std::uint8_t[]> blocks;
    std::unique_ptr<std::uint16_t[]> next;  // behind a block, in its bytes or among the free ones
    std::uint16_t firstFree = kNone;
    std::size_t freeCount = 0;
};

}  // namespace vexil
