// The lines of an INI file: how they are read, and what each is. See IniFile.h for the syntax.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string_view>

#include "shared/System/svString.h"

namespace vexil {

// Most characters that one read of the file takes.
inline constexpr std::size_t kIniPieceLength = 1022;

// The section that a line is the header of; false when it is none. The name lies in the line.
bool HeaderName(const svString& line, std::string_view& name);

// The key of a key line, trimmed, and where its value begins in the line; false when the line is none.
bool KeyName(const svString& line, svString& key, const char*& value);

// Reads a file piece by piece. fgets does not tell how much it read, and text may hold NUL bytes: every byte
// that it did not write is still the line end that the buffer was filled with.
class PieceReader {
  public:
    PieceReader();

    // One read of at most kIniPieceLength characters, without the line ends behind it. False at the end of
    // the file or after a failed read.
    bool Read(std::FILE* stream, svString& piece);

  private:
    std::size_t ReadLength() const;

    char buffer[kIniPieceLength + 1];
};

}  // namespace vexil
