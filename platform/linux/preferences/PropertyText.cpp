#include "platform/linux/preferences/PropertyText.h"

#include <algorithm>
#include <cstdint>

namespace vexil {
namespace {

constexpr char32_t kFirstByteCharacter = 0xF700;
constexpr char32_t kLastByteCharacter = 0xF7FF;

bool StandsForAByte(char32_t character) {
    return character >= kFirstByteCharacter && character <= kLastByteCharacter;
}

void AppendByteCharacter(std::string& stored, char byte) {
    AppendUtf8(stored, kFirstByteCharacter + static_cast<std::uint8_t>(byte));
}

bool IsPlain(char byte) {
    return (byte >= ' ' && byte <= '~') || byte == '\t' || byte == '\n';
}

// `keepsPrivateUse`: the characters that stand for bytes are left as they are.
std::string Stored(std::string_view text, bool keepsPrivateUse) {
    if (std::all_of(text.begin(), text.end(), IsPlain)) {
        return std::string(text);
    }
    std::string stored;
    while (!text.empty()) {
        std::string_view rest = text;
        const std::optional<char32_t> character = TakeUtf8(rest);
        const std::size_t length = character ? text.size() - rest.size() : 1;
        const bool carried = character && IsXmlCharacter(*character) && *character != '\r';
        if (carried && (keepsPrivateUse || !StandsForAByte(*character))) {
            stored += text.substr(0, length);
        } else {
            for (const char byte : text.substr(0, length)) {
                AppendByteCharacter(stored, byte);
            }
        }
        text.remove_prefix(length);
    }
    return stored;
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
        const auto next = static_cast<std::uint8_t>(text[i]);
        if ((next & 0xC0U) != 0x80U) {
            return std::nullopt;
        }
        character = (character << 6U) | (next & 0x3FU);
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

bool IsXmlCharacter(char32_t character) {
    return character == '\t' || character == '\n' || character == '\r' ||
           (character >= 0x20 && character <= 0xD7FF) || (character >= 0xE000 && character <= 0xFFFD) ||
           (character >= 0x10000 && character <= 0x10FFFF);
}

std::string StoredText(std::string_view text) {
    return Stored(text, false);
}
std::string XmlSafeText(std::string_view text) {
    return Stored(text, true);
}

PropertyString TextOfStored(std::string_view stored) {
    if (std::all_of(stored.begin(), stored.end(), IsPlain)) {
        return {std::string(stored), true};
    }
    PropertyString result;
    for (std::string_view rest = stored; !rest.empty();) {
        const std::string_view before = rest;
        const std::optional<char32_t> character = TakeUtf8(rest);
        if (!character) {
            return {std::string(stored), true};
        }
        if (StandsForAByte(*character)) {
            result.text += static_cast<char>(static_cast<std::uint8_t>(*character - kFirstByteCharacter));
            result.direct = false;
        } else {
            result.text += before.substr(0, before.size() - rest.size());
        }
    }
    if (!result.direct && StoredText(result.text) != stored) {
        return {std::string(stored), true};
    }
    return result;
}

}  // namespace vexil
