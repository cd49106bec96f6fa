#include "config/IniLine.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace vexil {
namespace {

bool IsWhiteSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

}  // namespace

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

bool KeyName(const svString& line, std::string_view& key, const char*& value) {
    const int split = line.Find('=');
    if (split < 1) {
        return false;
    }
    // As svString trims, without a string for each line that is looked at.
    const char* begin = line.c_str();
    const char* end = begin + split;
    value = end + 1;
    while (begin != end && IsWhiteSpace(end[-1])) {
        --end;
    }
    while (begin != end && IsWhiteSpace(*begin)) {
        ++begin;
    }
    key = std::string_view(begin, static_cast<std::size_t>(end - begin));
    return !key.empty();
}

std::string_view TakePiece(std::string_view& text) {
    std::string_view piece = text.substr(0, kIniPieceLength);
    piece = piece.substr(0, std::min(piece.find('\n'), piece.size() - 1) + 1);
    text.remove_prefix(piece.size());
    while (!piece.empty() && (piece.back() == '\n' || piece.back() == '\r')) {
        piece.remove_suffix(1);
    }
    return piece;
}

}  // namespace vexil
