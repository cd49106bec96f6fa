#include "service/backends/alsa/AlsaHeldMessages.h"

#include <algorithm>
#include <cstring>

namespace vexil {

std::uint8_t* AlsaHeldMessages::BytesOf(Place place) {
    return static_cast<std::uint8_t*>(static_cast<void*>(storage.data())) + place + sizeof(Header);
}

AlsaHeldMessages::Place AlsaHeldMessages::Find(int port, Place from) {
    if (IsEmpty(port)) {
        return kEnd;
    }
    for (Place place = from; place < used; place += At(place).size) {
        if (At(place).port == port) {
            return place;
        }
    }
    return kEnd;
}

bool AlsaHeldMessages::Add(int port, const HeldMessage& message) {
    constexpr std::size_t kUnit = sizeof(std::uint64_t);
    const std::size_t size = (sizeof(Header) + message.bytes.size() + kUnit - 1) / kUnit * kUnit;
    const std::size_t capacity = storage.size() * kUnit;
    if (waiting == 0) {
        used = 0;
    }
    if (used + size > capacity) {
        Compact();
        if (used + size > capacity) {
            return false;
        }
    }
    At(used) = {static_cast<std::uint32_t>(size), static_cast<std::uint32_t>(message.bytes.size()),
                static_cast<std::int16_t>(port), message.writer, message.exclusive};
    std::copy(message.bytes.begin(), message.bytes.end(), BytesOf(used));
    used += size;
    ++waiting;
    ++counts[static_cast<std::size_t>(port)];
    return true;
}

HeldMessage AlsaHeldMessages::Get(Place place) {
    const Header& header = At(place);
    return {header.writer, header.exclusive, std::span(BytesOf(place), header.length)};
}

void AlsaHeldMessages::Take(Place place) {
    --counts[static_cast<std::size_t>(At(place).port)];
    --waiting;
    At(place).port = -1;
}

void AlsaHeldMessages::Compact() {
    std::size_t end = 0;
    for (Place place = 0; place < used;) {
        const std::size_t size = At(place).size;
        if (At(place).port >= 0) {
            std::memmove(&At(end), &At(place), size);
            end += size;
        }
        place += size;
    }
    used = end;
}

}  // namespace vexil
