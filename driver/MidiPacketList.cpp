#include "driver/MidiPacketList.h"

#include <cstring>

#include "driver/LittleEndian.h"

namespace vexil {

namespace {

constexpr std::size_t kTimeSize = 8;
constexpr std::size_t kMaxPacketData = 0xFFFF;

}  // namespace

std::uint8_t* MidiPacketListInit(std::uint8_t* list, std::size_t listSize) {
    if (listSize < kPacketListHeaderSize) {
        return nullptr;
    }
    PutLittleEndian(list, 0, kPacketListHeaderSize);
    return list + kPacketListHeaderSize;
}

std::uint8_t* MidiPacketListAdd(std::uint8_t* list, std::size_t listSize, std::uint8_t* packet,
                                std::uint64_t time, std::size_t length, const std::uint8_t* data) {
    const std::size_t room = listSize - static_cast<std::size_t>(packet - list);
    if (length > kMaxPacketData || room < kPacketHeaderSize || room - kPacketHeaderSize < length) {
        return nullptr;
    }
    PutLittleEndian(packet, time, kTimeSize);
    PutLittleEndian(packet + kTimeSize, length, kPacketHeaderSize - kTimeSize);
    if (length != 0) {
        std::memcpy(packet + kPacketHeaderSize, data, length);
    }
    PutLittleEndian(list, Uint32At(list) + 1U, kPacketListHeaderSize);
    return packet + kPacketHeaderSize + length;
}

std::size_t MidiPacketListLength(const std::uint8_t* list) {
    const std::uint8_t* packet = list + kPacketListHeaderSize;
    for (std::uint32_t count = Uint32At(list); count > 0; --count) {
        packet += kPacketHeaderSize + Uint16At(packet + kTimeSize);
    }
    return static_cast<std::size_t>(packet - list);
}

}  // namespace vexil
