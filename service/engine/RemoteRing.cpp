#include "service/engine/RemoteRing.h"

#include <algorithm>
#include <utility>

namespace vexil {

RemoteRing::RemoteRing(std::size_t bytes, EngineWaker& reader) : waker(reader), ring(bytes) {}

std::size_t RemoteRing::Room(const Destination& to) const {
    const std::uint32_t used =
        delivered[to.from] - passedOn[to.from].load(std::memory_order_acquire) + kCostOfDelivery;
    return std::min(ring.Room(), kSourceBytes - std::min<std::size_t>(kSourceBytes, used));
}

void RemoteRing::Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    delivered[to.from] += kCostOfDelivery + static_cast<std::uint32_t>(bytes.size());
    isReaderAsleep = ring.Put({time, to}, bytes) || isReaderAsleep;
}

void RemoteRing::EndTurn() {
    if (std::exchange(isReaderAsleep, false)) {
        waker.Wake();
    }
}

bool RemoteRing::Take(Delivery& delivery) {
    Head head;
    if (!ring.Take(head, delivery.bytes)) {
        return false;
    }
    delivery.to = head.to;
    delivery.time = head.time;
    return true;
}

void RemoteRing::PassedOn(const Destination& to, std::size_t bytes) {
    passedOn[to.from].fetch_add(kCostOfDelivery + static_cast<std::uint32_t>(bytes),
                                std::memory_order_release);
}

}  // namespace vexil
