#include "shared/System/PrintableText.h"

#include <algorithm>
#include <array>
#include <optional>

#include "shared/System/Utf8.h"

namespace vexil {

namespace {

struct Range {
    char32_t first;
    char32_t last;
};

// Controls, direction marks, separators, and characters without a shape of their own.
constexpr std::array kUnprintable = {Range{0x00, 0x1F},     Range{0x7F, 0x9F},      Range{0xAD, 0xAD},
                                     Range{0x61C, 0x61C},   Range{0x200B, 0x200B},  Range{0x200E, 0x200F},
                                     Range{0x2028, 0x202E}, Range{0x2060, 0x206F},  Range{0xFEFF, 0xFEFF},
                                     Range{0xFFF9, 0xFFFB}, Range{0xE0000, 0xE007F}};

bool IsPrintable(char32_t code) {
    return std::none_of(kUnprintable.begin(), kUnprintable.end(),
                        [code](const Range& range) { return range.first <= code && code <= range.last; });
}

// How many bytes at the start of a text are printable ASCII, of which most texts consist.
std::size_t PlainBytes(std::string_view text) {
    std::size_t count = 0;
    while (count < text.size() && text[count] >= 0x20 && text[count] < 0x7F) {
        ++count;
    }
    return count;
}

std::string PrintableExcept(std::string_view text, char32_t kept) {
    std::string result;
    while (!text.empty()) {
        if (const std::size_t plain = PlainBytes(text); plain != 0) {
            result.append(text, 0, plain);
            text.remove_prefix(plain);
            continue;
        }
        std::string_view rest = text;
        const std::optional<char32_t> code = TakeUtf8(rest);
        if (!code) {
            rest.remove_prefix(1);
        }
        if (code && (*code == kept || IsPrintable(*code))) {
            result.append(text, 0, text.size() - rest.size());
        } else {
            result += '?';
        }
        text = rest;
    }
    return result;
}

}  // namespace

std::string Printable(std::string_view text) {
    return PrintableExcept(text, U' ');
}

std::string PrintableLines(std::string_view text) {
    return PrintableExcept(text, U'\n');
}

}  // namespace vexil
