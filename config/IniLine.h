// The lines of an INI file: how they are read, and what each is. See IniFile.h for the syntax.
#pragma once

#include <cstddef>
#include <string_view>

#include "shared/System/svString.h"

namespace vexil {

// The longest piece of a file that becomes one line, line end included.
inline constexpr std::size_t kIniPieceLength = 1022;

// The section that a line is the header of; false when the line is no header. The name lies in the line.
bool HeaderName(const svString& line, std::string_view& name);

// The key of a key line, trimmed, and where its value begins, untrimmed; false for any other line. Both
// lie in the line.
bool KeyName(const svString& line, std::string_view& key, const char*& value);

// Takes the next piece off the front of a text that is not empty: a line, or as much of it as a piece may be
// long. Returned without the line ends behind it.
std::string_view TakePiece(std::string_view& text);

}  // namespace vexil
