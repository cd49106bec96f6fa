// Text that others chose, made fit for a terminal and for a log. All texts are UTF-8; nothing here depends on
// the locale.
#pragma once

#include <string>
#include <string_view>

namespace vexil {

// The text with a "?" for everything that could act on a terminal or garble a line: control characters, marks
// that change the direction of writing, line and paragraph separators, bytes that are no UTF-8.
std::string Printable(std::string_view text);

// The same for text of several lines: line feeds stay.
std::string PrintableLines(std::string_view text);

}  // namespace vexil
