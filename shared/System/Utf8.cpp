#include "shared/System/Utf8.h"

#include <cstdint>

namespace vexil {

namespace {

bool IsContinuation(char byte) {
    return (static_cast<std::uint8_t>(byte) & 0xC0U) == 0x80U;
}

}  // namespace

std::optional<char32_t> TakeUtf8(std::string_view& text) {
    if (text.empty()) {
        return std::nullopt;
    }
    const auto lead = static_cast<std::uint8_t>(text.front());
    if (lead < 0x80) {
        text.remove_prefix(1);
        return lead;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    // Below 0xC2 are continuation bytes and the two leads of overlong forms; above 0xF4 is past U+10FFFF.
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return std::nullopt;
    }
    char32_t character = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (!IsContinuation(text[i])) {
            return std::nullopt;
        }
        character = (character << 6U) | (static_cast<std::uint8_t>(text[i]) & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < kSmallest[length] || character > 0x10FFFF || surrogate) {
        return std::nullopt;
    }
    text.remove_prefix(length);
    return character;
}

void AppendUtf8(std::string& text, char32_t character) {
    const auto tail = [&](unsigned shift) {
        text += static_cast<char>(0x80U | ((character >> shift) & 0x3FU));
    };
    if (character < 0x80) {
        text += static_cast<char>(character);
    } else if (character < 0x800) {
        text += static_cast<char>(0xC0U | (character >> 6U));
        tail(0);
    } else if (character < 0x10000) {
        text += static_cast<char>(0xE0U | (character >> 12U));
        tail(6);
        tail(0);
    } else {
        text += static_cast<char>(0xF0U | (character >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
}

std::string_view WholeCharacters(std::string_view text, std::size_t longest) {
    if (text.size() <= longest) {
        return text;
    }
    std::size_t end = longest;
    while (end > 0 && IsContinuation(text[end])) {
        --end;
    }
    return text.substr(0, end);
}

}  // namespace vexil
