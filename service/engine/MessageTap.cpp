#include "service/engine/MessageTap.h"

#include "service/engine/Engine.h"

namespace vexil {

void MessageTap::Open() {
    if (!ring) {
        ring = std::make_unique<ByteRing<Head>>(kBytes);
    }
    for (TappedPiece old; Take(old);) {
    }
    isOpen.store(true, std::memory_order_release);
}

bool MessageTap::Take(TappedPiece& piece) {
    Head head;
    if (!ring || !ring->Take(head, piece.bytes)) {
        return false;
    }
    piece.time = head.time;
    piece.side = head.side;
    piece.port = head.port;
    piece.stream = head.stream;
    return true;
}

void MessageTap::Put(const TappedPiece& piece) {
    if (!ring->Fits(piece.bytes.size())) {
        leftOut.Add(1);
        return;
    }
    if (ring->Put({piece.time, piece.stream, piece.port, piece.side}, piece.bytes) && waker != nullptr) {
        waker->Wake();
    }
}

}  // namespace vexil
