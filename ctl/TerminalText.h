// How text lies on a terminal. All texts are UTF-8; nothing here depends on the locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// JSON text with the characters that JSON allows in strings and that are not Printable written as their
// escapes. Its meaning is unchanged.
std::string PrintableJson(std::string_view json);

// The columns that a printable text takes.
std::size_t DisplayWidth(std::string_view text);

// The text in lines of at most `width` columns, broken at blanks, or inside a word that is longer than a
// line. At least one line.
std::vector<std::string> WrapText(std::string_view text, std::size_t width);

}  // namespace vexil
