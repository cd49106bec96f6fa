// Text that others chose, made fit for a terminal. All texts are UTF-8; nothing here depends on the locale.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace vexil {

// The text with a "?" for everything that could act on a terminal or garble a line: control characters, marks
// that change the direction of writing, line and paragraph separators, bytes that are no UTF-8.
std::string Printable(std::string_view text);

// The same for text of several lines: line feeds stay.
std::string PrintableLines(std::string_view text);

// JSON text with the control characters that JSON allows in strings (from U+007F to U+009F) written as their
// escapes. Its meaning is unchanged.
std::string PrintableJson(std::string_view json);

// The columns that a printable text takes.
std::size_t DisplayWidth(std::string_view text);

// The text in lines of at most `width` columns, broken at blanks, or inside a word that is longer than a
// line. At least one line.
std::vector<std::string> WrapText(std::string_view text, std::size_t width);

}  // namespace vexil
