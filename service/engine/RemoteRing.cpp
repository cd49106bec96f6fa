#include "service/engine/RemoteRing.h"

#include <algorithm>
#include <cstring>

namespace vexil {

RemoteRing::RemoteRing(std::size_t bytes, EngineWaker& reader) : waker(reader), ring(bytes), taken(bytes) {}

void RemoteRing::Put(std::size_t at, const void* from, std::size_t count) {
    const std::size_t place = at % ring.size();
    const std::size_t first = std::min(count, ring.size() - place);
    std::memcpy(&ring[place], from, first);
    std::memcpy(ring.data(), static_cast<const std::uint8_t*>(from) + first, count - first);
}

void RemoteRing::Get(std::size_t at, void* to, std::size_t count) const {
    const std::size_t place = at % ring.size();
    const std::size_t first = std::min(count, ring.size() - place);
    std::memcpy(to, &ring[place], first);
    std::memcpy(static_cast<std::uint8_t*>(to) + first, ring.data(), count - first);
}

std::size_t RemoteRing::Room(const Destination&) const {
    const std::size_t used =
        head.load(std::memory_order_relaxed) - tail.load(std::memory_order_acquire) + sizeof(Header);
    return ring.size() - std::min(ring.size(), used);
}

void RemoteRing::Deliver(const Destination& to, std::uint64_t time, std::span<const std::uint8_t> bytes) {
    const std::size_t at = head.load(std::memory_order_relaxed);
    const Header header{time, to, static_cast<std::uint32_t>(bytes.size())};
    Put(at, &header, sizeof header);
    Put(at + sizeof header, bytes.data(), bytes.size());
    // In one order with the reader's: either it sees this delivery, or this sees that it has emptied the
    // ring.
    head.store(at + sizeof header + bytes.size(), std::memory_order_seq_cst);
    if (tail.load(std::memory_order_seq_cst) == at) {
        waker.Wake();
    }
}

bool RemoteRing::Take(Delivery& delivery) {
    const std::size_t at = tail.load(std::memory_order_relaxed);
    if (at == head.load(std::memory_order_seq_cst)) {
        return false;
    }
    Header header;
    Get(at, &header, sizeof header);
    Get(at + sizeof header, taken.data(), header.length);
    delivery = {header.to, header.time, std::span<const std::uint8_t>(taken).first(header.length)};
    tail.store(at + sizeof header + header.length, std::memory_order_seq_cst);
    return true;
}

}  // namespace vexil
