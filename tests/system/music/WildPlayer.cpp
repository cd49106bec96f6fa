#include "tests/system/music/WildPlayer.h"

#include <iterator>

namespace vexil {

MidiBytes WildPlayer::Next() {
    const auto channel = static_cast<std::uint8_t>(random() % 4);
    const auto data = static_cast<std::uint8_t>(random() & 0x7F);
    const auto status = [channel](int command) { return static_cast<std::uint8_t>(command | channel); };
    switch (random() % 16) {
        case 0:
            toPutBack.insert({status(0xB0), 64, 0});
            return {status(0xB0), 64, 127};
        case 1:
            toPutBack.insert({status(0xB0), 1, 0});
            return {status(0xB0), 1, data};
        case 2:
            toPutBack.insert({status(0xE0), 0, 64});
            return {status(0xE0), data, data};
        case 3:
            return {0xF0, 0x7D, data, 0xF7};
        case 4:
            return {0xF8};
        default:
            break;
    }
    if (held.size() < kMostHeld && random() % 2 == 0) {
        held.emplace(channel, data);
        return {status(0x90), data, 100};
    }
    if (held.empty()) {
        return {status(0xD0), data};
    }
    const auto one = std::next(held.begin(), static_cast<std::ptrdiff_t>(random() % held.size()));
    return Release(one->first, one->second);
}

MidiBytes WildPlayer::Release(std::uint8_t channel, std::uint8_t note) {
    held.erase({channel, note});
    return {static_cast<std::uint8_t>(0x80 | channel), note, 64};
}

MidiBytes WildPlayer::NextRelease() {
    if (!held.empty()) {
        return Release(held.begin()->first, held.begin()->second);
    }
    if (toPutBack.empty()) {
        return {};
    }
    MidiBytes message = *toPutBack.begin();
    toPutBack.erase(toPutBack.begin());
    return message;
}

void WildPlayer::Forget() {
    held.clear();
    toPutBack.clear();
}

}  // namespace vexil
