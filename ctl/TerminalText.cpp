#include "ctl/TerminalText.h"

#include <algorithm>
#include <array>
#include <optional>

#include "shared/System/PrintableText.h"
#include "shared/System/Utf8.h"

namespace vexil {

namespace {

struct Character {
    char32_t code = 0;
    std::size_t size = 1;  // bytes
    bool valid = false;
};

struct Range {
    char32_t first;
    char32_t last;
};

bool IsIn(const auto& ranges, char32_t code) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [code](const Range& range) { return range.first <= code && code <= range.last; });
}

// Marks that stand on the character before them, and joiners.
constexpr std::array kNarrowest = {Range{0x300, 0x36F},   Range{0x483, 0x489},   Range{0x591, 0x5BD},
                                   Range{0x64B, 0x65F},   Range{0x1AB0, 0x1AFF}, Range{0x1DC0, 0x1DFF},
                                   Range{0x200C, 0x200D}, Range{0x20D0, 0x20FF}, Range{0x3099, 0x309A},
                                   Range{0xFE00, 0xFE0F}, Range{0xFE20, 0xFE2F}};
// Characters of two columns: East Asian scripts, their full-width forms, pictures.
constexpr std::array kWidest = {Range{0x1100, 0x115F},   Range{0x2E80, 0x303E},   Range{0x3041, 0xA4CF},
                                Range{0xAC00, 0xD7A3},   Range{0xF900, 0xFAFF},   Range{0xFE30, 0xFE6F},
                                Range{0xFF00, 0xFF60},   Range{0xFFE0, 0xFFE6},   Range{0x1F300, 0x1F64F},
                                Range{0x1F680, 0x1F6FF}, Range{0x1F900, 0x1F9FF}, Range{0x20000, 0x3FFFD}};

// The character at the start of a text that is not empty.
Character FirstCharacter(std::string_view text) {
    std::string_view rest = text;
    const std::optional<char32_t> code = TakeUtf8(rest);
    return code ? Character{*code, text.size() - rest.size(), true} : Character{};
}

std::size_t WidthOf(char32_t code) {
    if (code < kNarrowest[0].first) {
        return 1;
    }
    return IsIn(kNarrowest, code) ? 0 : IsIn(kWidest, code) ? 2 : 1;
}

// How many bytes of the text fit into `width` columns; at least one character of a text that has any.
std::size_t FittingBytes(std::string_view text, std::size_t width) {
    std::size_t bytes = 0;
    std::size_t columns = 0;
    while (bytes < text.size()) {
        const Character character = FirstCharacter(text.substr(bytes));
        columns += WidthOf(character.code);
        if (columns > width && bytes != 0) {
            break;
        }
        bytes += character.size;
    }
    return bytes;
}

std::string JsonUnit(unsigned unit) {
    constexpr const char* kDigits = "0123456789abcdef";
    return {'\\',
            'u',
            kDigits[unit >> 12],
            kDigits[unit >> 8 & 0xF],
            kDigits[unit >> 4 & 0xF],
            kDigits[unit & 0xF]};
}

// A character in one or two UTF-16 units.
std::string JsonEscape(char32_t code) {
    if (code < 0x10000) {
        return JsonUnit(static_cast<unsigned>(code));
    }
    const auto above = static_cast<unsigned>(code - 0x10000);
    return JsonUnit(0xD800 + (above >> 10)) + JsonUnit(0xDC00 + (above & 0x3FF));
}

}  // namespace

std::string PrintableJson(std::string_view json) {
    std::string result;
    while (!json.empty()) {
        const Character character = FirstCharacter(json);
        const std::string_view bytes = json.substr(0, character.size);
        const bool isEscaped = character.valid && character.code >= 0x7F && Printable(bytes) != bytes;
        result += isEscaped ? JsonEscape(character.code) : std::string(bytes);
        json.remove_prefix(character.size);
    }
    return result;
}

std::size_t DisplayWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const Character character = FirstCharacter(text);
        width += WidthOf(character.code);
        text.remove_prefix(character.size);
    }
    return width;
}

std::vector<std::string> WrapText(std::string_view text, std::size_t width) {
    std::vector<std::string> lines;
    std::size_t end = FittingBytes(text, width);
    while (end < text.size()) {
        std::size_t next = end;
        const std::size_t blank = text.rfind(' ', end);
        if (blank != std::string_view::npos && blank != 0) {
            end = blank;
            next = blank + 1;
        }
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(next);
        end = FittingBytes(text, width);
    }
    if (!text.empty() || lines.empty()) {
        lines.emplace_back(text);
    }
    return lines;
}

}  // namespace vexil
