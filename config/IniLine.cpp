#include "config/IniLine.h"

#include <cstring>

namespace vexil {

bool HeaderName(const svString& line, std::string_view& name) {
    if (line.GetLength() < 2) {
        return false;
    }
    const char* open = std::strchr(line.c_str(), '[');
    if (open == nullptr) {
        return false;
    }
    const char* close = std::strchr(open + 1, ']');
    if (close == nullptr) {
        return false;
    }
    name = std::string_view(open + 1, static_cast<std::size_t>(close - open - 1));
    return true;
}

bool KeyName(const svString& line, svString& key, const char*& value) {
    const int split = line.Find('=');
    if (split < 1) {
        return false;
    }
    key = line.Left(split);
    key.TrimLeft();
    key.TrimRight();
    value = line.c_str() + split + 1;
    return !key.IsEmpty();
}

PieceReader::PieceReader() {
    std::memset(buffer, '\n', sizeof buffer);
}

bool PieceReader::Read(std::FILE* stream, svString& piece) {
    if (std::fgets(buffer, sizeof buffer, stream) == nullptr) {
        return false;
    }
    const std::size_t length = ReadLength();
    std::size_t kept = length;
    while (kept > 0 && (buffer[kept - 1] == '\n' || buffer[kept - 1] == '\r')) {
        --kept;
    }
    piece = svString(buffer, static_cast<int>(kept));
    std::memset(buffer, '\n', length + 1);
    return true;
}

std::size_t PieceReader::ReadLength() const {
    const char* const end = buffer + sizeof buffer;
    const auto* lineEnd = static_cast<const char*>(std::memchr(buffer, '\n', sizeof buffer));
    if (lineEnd == nullptr) {
        return kIniPieceLength;
    }
    const auto index = static_cast<std::size_t>(lineEnd - buffer);
    const bool wasRead = lineEnd + 1 < end && lineEnd[1] == '\0';
    return wasRead ? index + 1 : index - 1;
}

}  // namespace vexil
