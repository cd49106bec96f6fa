#include "tests/system/music/MidiPattern.h"

#include <cstdio>

namespace vexil {

MidiBytes MidiPattern::Next() {
    const std::uint32_t kind = static_cast<std::uint32_t>(random()) % 10000;
    const auto channel = static_cast<std::uint8_t>(random() & 0x0F);
    const auto status = [channel](int command) { return static_cast<std::uint8_t>(command | channel); };
    if (kind == 0) {
        return SystemExclusive(kLongest);
    }
    if (kind < 100) {
        return SystemExclusive(2 + random() % 300);
    }
    if (kind < 200) {
        return {0xF1, Data()};
    }
    if (kind < 300) {
        return {0xF2, Data(), Data()};
    }
    if (kind < 350) {
        return {0xF6};
    }
    if (kind < 1000) {
        return {status(0xC0), Data()};
    }
    if (kind < 1500) {
        return {status(0xD0), Data()};
    }
    // Note off, note on, key pressure, controller (none of the channel modes), pitch bend.
    static constexpr int kCommands[] = {0x80, 0x90, 0x90, 0xA0, 0xB0, 0xE0};
    const int command = kCommands[kind % std::size(kCommands)];
    const auto first = static_cast<std::uint8_t>(command == 0xB0 ? Data() % 120 : Data());
    return {status(command), first, Data()};
}

MidiBytes MidiPattern::SystemExclusive(std::size_t size) {
    MidiBytes message = {0xF0};
    while (message.size() + 1 < size) {
        message.push_back(Data());
    }
    message.push_back(0xF7);
    return message;
}

void PatternListener::Hear(const std::uint8_t* bytes, std::size_t size) {
    for (std::size_t i = 0; i < size && fault.empty(); ++i) {
        if (bytes[i] >= 0xF8) {
            ++realtime;
            continue;
        }
        if (position == expected.size()) {
            expected = pattern.Next();
            position = 0;
        }
        if (bytes[i] != expected[position]) {
            char text[120];
            std::snprintf(text, sizeof text, "message %llu, byte %zu of %zu is %02X, not %02X",
                          static_cast<unsigned long long>(messages), position, expected.size(), bytes[i],
                          expected[position]);
            fault = text;
            return;
        }
        if (++position == expected.size()) {
            ++messages;
        }
    }
}

}  // namespace vexil
