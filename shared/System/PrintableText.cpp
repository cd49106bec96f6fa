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

std::string PrintableExcept(std::string_view text, char32_t kept) {
    std::string result;
    while (!text.empty()) {
        std::string_view rest = text;
        const std::optional<char32_t> code = TakeUtf8(rest);
        if (!code) {
            rest.remove_prefix(1);
        }
        if (code && (*code == kept || IsPrintable(*code))) {
            result += text.substr(0, text.size() - rest.size());
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
