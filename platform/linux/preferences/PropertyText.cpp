#include "platform/linux/preferences/PropertyText.h"

#include <algorithm>
#include <cstdint>
#include <optional>

#include "shared/System/Utf8.h"

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
