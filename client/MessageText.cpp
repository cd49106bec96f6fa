#include "client/MessageText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>

namespace vexil {

namespace {

struct Named {
    std::uint8_t number;
    const char* name;
};
constexpr Named kControllers[] = {
    {0, "bank"},
    {1, "modulation"},
    {2, "breath"},
    {4, "foot"},
    {5, "glide time"},
    {6, "data entry"},
    {7, "volume"},
    {8, "balance"},
    {10, "pan"},
    {11, "expression"},
    {32, "bank, low"},
    {38, "data entry, low"},
    {64, "sustain"},
    {65, "glide"},
    {66, "sostenuto"},
    {67, "soft pedal"},
    {68, "legato"},
    {69, "hold 2"},
    {71, "resonance"},
    {72, "release"},
    {73, "attack"},
    {74, "brightness"},
    {91, "reverb"},
    {93, "chorus"},
    {96, "data up"},
    {97, "data down"},
    {98, "NRPN, low"},
    {99, "NRPN"},
    {100, "RPN, low"},
    {101, "RPN"},
    {120, "all sound off"},
    {121, "reset controllers"},
    {122, "local control"},
    {123, "all notes off"},
    {124, "omni off"},
    {125, "omni on"},
    {126, "mono"},
    {127, "poly"},
};
constexpr Named kSystemMessages[] = {
    {0xF6, "tune request"}, {0xF8, "clock"},          {0xFA, "start"}, {0xFB, "continue"},
    {0xFC, "stop"},         {0xFE, "active sensing"}, {0xFF, "reset"},
};

template <std::size_t kCount>
const char* NameOf(const Named (&list)[kCount], std::uint8_t number) {
    const auto* const found = std::find_if(std::begin(list), std::end(list),
                                           [&](const Named& each) { return each.number == number; });
    return found == std::end(list) ? nullptr : found->name;
}

std::string NoteText(std::uint8_t note) {
    constexpr std::array kNames = {"C", "C#", "D", "D#", "E", "F", "F#", "G", "G#", "A", "A#", "B"};
    return std::string(kNames[note % kNames.size()]) + std::to_string(note / 12 - 1);
}

std::string ControlText(std::uint8_t number, std::uint8_t value) {
    const char* name = NameOf(kControllers, number);
    return "control change " + std::to_string(number) +
           (name != nullptr ? " (" + std::string(name) + ") " : " ") + std::to_string(value);
}

std::string LengthText(std::size_t length) {
    return std::to_string(length) + (length == 1 ? " byte" : " bytes");
}

std::string ExclusiveText(std::span<const std::uint8_t> message) {
    if (message[0] != 0xF0) {
        return "rest of a system exclusive, " + LengthText(message.size());
    }
    return "system exclusive, " + LengthText(message.size()) + (message.back() == 0xF7 ? "" : ", not ended");
}

int FourteenBits(std::uint8_t low, std::uint8_t high) {
    return high << 7 | low;
}

std::string ChannelMessageText(std::uint8_t status, std::uint8_t first, std::uint8_t second) {
    switch (status & 0xF0) {
        case 0x80:
            return "note off " + NoteText(first) + " velocity " + std::to_string(second);
        case 0x90:
            return "note on " + NoteText(first) + " velocity " + std::to_string(second);
        case 0xA0:
            return "pressure of " + NoteText(first) + " " + std::to_string(second);
        case 0xB0:
            return ControlText(first, second);
        case 0xC0:
            return "program " + std::to_string(first);
        case 0xD0:
            return "channel pressure " + std::to_string(first);
        default:
            return "pitch bend " + std::to_string(FourteenBits(first, second) - 8192);
    }
}

}  // namespace

std::string MessageText(std::span<const std::uint8_t> message) {
    const std::uint8_t status = message[0];
    const std::uint8_t first = message.size() > 1 ? message[1] : std::uint8_t{0};
    const std::uint8_t second = message.size() > 2 ? message[2] : std::uint8_t{0};
    if (ChannelOf(message)) {
        return ChannelMessageText(status, first, second);
    }
    switch (status) {
        case 0xF1:
            return "time code quarter frame " + std::to_string(first);
        case 0xF2:
            return "song position " + std::to_string(FourteenBits(first, second));
        case 0xF3:
            return "song " + std::to_string(first);
        default:
            break;
    }
    const char* name = NameOf(kSystemMessages, status);
    return name != nullptr ? name : ExclusiveText(message);
}

std::optional<int> ChannelOf(std::span<const std::uint8_t> message) {
    return message[0] >= 0x80 && message[0] < 0xF0 ? std::optional((message[0] & 0x0F) + 1) : std::nullopt;
}

std::string BytesText(std::span<const std::uint8_t> bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : " ";
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

}  // namespace vexil
