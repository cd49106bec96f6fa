#include "driver/OwedNoteOffs.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "config/DriverConfiguration.h"
#include "driver/LittleEndian.h"
#include "driver/MidiPacketList.h"

namespace vexil {

namespace {

constexpr std::size_t kMessageSize = 3;
constexpr std::size_t kVelocity = 2;
constexpr std::size_t kTimeSize = 8;

// The bytes of all packets in a row; empty for what is no packet list.
std::optional<std::vector<std::uint8_t>> MessagesOf(std::span<const std::uint8_t> list) {
    if (list.size() < kPacketListHeaderSize) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> messages;
    std::uint32_t count = Uint32At(list.data());
    std::span<const std::uint8_t> rest = list.subspan(kPacketListHeaderSize);
    for (; count > 0 && rest.size() >= kPacketHeaderSize; --count) {
        const std::size_t length = Uint16At(rest.data() + kTimeSize);
        rest = rest.subspan(kPacketHeaderSize);
        if (length > rest.size()) {
            return std::nullopt;
        }
        messages.insert(messages.end(), rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(length));
        rest = rest.subspan(length);
    }
    if (count != 0 || !rest.empty()) {
        return std::nullopt;
    }
    return messages;
}

bool IsSame(const DriverSetting& noteOff, const DriverSetting& other) {
    return noteOff.option == other.option && MessagesOf(noteOff.payload) == MessagesOf(other.payload);
}

}  // namespace

bool EndsNotes(std::uint32_t option, std::span<const std::uint8_t> payload) {
    const auto messages = option < static_cast<std::uint32_t>(kMaxPorts) ? MessagesOf(payload) : std::nullopt;
    if (!messages || messages->empty() || messages->size() % kMessageSize != 0) {
        return false;
    }
    for (std::size_t velocity = kVelocity; velocity < messages->size(); velocity += kMessageSize) {
        if ((*messages)[velocity] != 0) {
            return false;
        }
    }
    return true;
}

void OwedNoteOffs::Owe(std::uint32_t option, std::span<const std::uint8_t> payload) {
    const DriverSetting added{option, {payload.begin(), payload.end()}};
    const bool known = std::any_of(owed.begin(), owed.end(),
                                   [&](const DriverSetting& noteOff) { return IsSame(noteOff, added); });
    if (!known) {
        owed.push_back(added);
    }
}

void OwedNoteOffs::Done(const DriverSetting& noteOff) {
    std::erase_if(owed, [&](const DriverSetting& other) { return IsSame(noteOff, other); });
}

}  // namespace vexil
