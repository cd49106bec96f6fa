// UTF-8, one character at a time. A character is a Unicode scalar value: U+0000 to U+10FFFF without the
// surrogates. Only its shortest form counts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vexil {

// Takes the character at the start of `text` off it. Null, with `text` as it was, when the text is empty or
// does not start with a well-formed character.
std::optional<char32_t> TakeUtf8(std::string_view& text);

// Appends the form of a character. A surrogate gives three bytes that are malformed.
void AppendUtf8(std::string& text, char32_t character);

// The first bytes of `text`, at most `longest` of them, that do not end inside a character.
std::string_view WholeCharacters(std::string_view text, std::size_t longest);

}  // namespace vexil
