#include "service/network/PieceStore.h"

#include <algorithm>

#include "service/network/Require.h"

namespace vexil {

PieceStore::PieceStore(std::size_t bytes)
    : count(BlocksOf(bytes)), blocks(new std::uint8_t[count * kBlockSize]), next(new std::uint16_t[count]) {
    Require(count < kNone, "count < kNone");
    Clear();
}

void PieceStore::Clear() {
    for (std::size_t block = 0; block < count; ++block) {
        next[block] = block + 1 < count ? static_cast<std::uint16_t>(block + 1) : kNone;
    }
    firstFree = count > 0 ? 0 : kNone;
    freeCount = count;
}

std::uint16_t PieceStore::Put(ByteView bytes) {
    Require(HasRoom(bytes.size()) && !bytes.empty(), "HasRoom(bytes.size())");
    const std::uint16_t place = firstFree;
    std::uint16_t block = place;
    while (true) {
        const std::size_t size = std::min(bytes.size(), kBlockSize);
        std::copy_n(bytes.begin(), size, &blocks[block * kBlockSize]);
        bytes = bytes.subspan(size);
        --freeCount;
        if (bytes.empty()) {
            break;
        }
        block = next[block];
    }
    firstFree = next[block];
    next[block] = kNone;
    return place;
}

void PieceStore::Get(std::uint16_t place, std::span<std::uint8_t> out) const {
    for (std::uint16_t block = place; !out.empty(); block = next[block]) {
        const std::size_t size = std::min(out.size(), kBlockSize);
        std::copy_n(&blocks[block * kBlockSize], size, out.begin());
        out = out.subspan(size);
    }
}

void PieceStore::Free(std::uint16_t place) {
    std::uint16_t last = place;
    ++freeCount;
    while (next[last] != kNone) {
        last = next[last];
        ++freeCount;
    }
    next[last] = firstFree;
    firstFree = place;
}

}  // namespace vexil
