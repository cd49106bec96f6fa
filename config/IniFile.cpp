#include "config/IniFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "shared/System/svLog.h"

namespace vexil {
namespace {

bool IsEmptyName(const char* name) {
    return name == nullptr || *name == '\0';
}

// The section that a line is the header of; false when it is none. The name lies in the line.
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

// The key of a key line, trimmed, and where its value begins; false when the line is none.
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

bool IsPlainFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_size <= static_cast<off_t>(kMaxRewriteBytes);
}

// One read of at most kIniPieceLength characters. fgets does not tell how much it read, and text may hold NUL
// bytes: every byte that it did not write is still the line end that the buffer was filled with.
class PieceReader {
  public:
    PieceReader() { std::memset(buffer, '\n', sizeof buffer); }

    // False at the end of the file or after a failed read.
    bool Read(std::FILE* stream, svString& piece) {
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

  private:
    std::size_t ReadLength() const {
        const char* const end = buffer + sizeof buffer;
        const auto* lineEnd = static_cast<const char*>(std::memchr(buffer, '\n', sizeof buffer));
        if (lineEnd == nullptr) {
            return kIniPieceLength;
        }
        const auto index = static_cast<std::size_t>(lineEnd - buffer);
        const bool wasRead = lineEnd + 1 < end && lineEnd[1] == '\0';
        return wasRead ? index + 1 : index - 1;
    }

    char buffer[kIniPieceLength + 1];
};

}  // namespace

bool IniFile::Open(const char* newPath) {
    // The result is not needed: edits that could not be written are in the log, and this file is another
    // matter.
    Close();
    if (newPath != nullptr) {
        path = newPath;
    }
    struct stat status {};
    // Asked before opening, since opening a device can act on it or wait.
    if (::stat(path.c_str(), &status) == 0 && !IsPlainFile(status)) {
        return false;
    }
    if (SafeRewrite(calls).FinishPending(path.c_str()) == PendingSave::Blocked) {
        return false;
    }
    stream = std::fopen(path.c_str(), "a+");
    if (stream == nullptr) {
        return false;
    }
    // Asked again, of the file that was opened: the name may have been given to another file meanwhile.
    if (::fstat(::fileno(stream), &status) != 0 || !IsPlainFile(status)) {
        std::fclose(stream);
        stream = nullptr;
        return false;
    }
    std::rewind(stream);
    ReadLines();
    return true;
}

void IniFile::ReadLines() {
    PieceReader reader;
    svString piece;
    while (reader.Read(stream, piece)) {
        lines.push_back(piece);
    }
    readFailed = std::ferror(stream) != 0;
}

bool IniFile::Close() {
    if (stream == nullptr) {
        return true;
    }
    const bool saved = !modified || lines.empty() || WriteBack();
    modified = false;
    lines.clear();
    if (stream != nullptr) {
        // What was written has been flushed and synchronised by now, so closing has nothing left to lose.
        std::fclose(stream);
        stream = nullptr;
    }
    return saved;
}

bool IniFile::WriteBack() {
    if (readFailed) {
        LogPrintf("IniFile: not saved, since the file could not be read to its end: %s\n", path.c_str());
        return false;
    }
    std::string text;
    for (const svString& line : lines) {
        text.append(line.c_str(), static_cast<std::size_t>(line.GetLength()));
        text.push_back('\n');
    }

    SafeRewrite rewrite(calls);
    if (!rewrite.Begin(path.c_str(), text)) {
        return false;
    }
    stream = calls.reopen(path.c_str(), "w", stream);
    if (stream == nullptr) {
        LogPrintf("IniFile: not saved (%s): %s\n", std::strerror(errno), path.c_str());
        rewrite.Abandon();
        return false;
    }
    const bool written = calls.writeText(text.data(), 1, text.size(), stream) == text.size() &&
                         std::fflush(stream) == 0 && calls.syncData(::fileno(stream)) == 0;
    if (!written) {
        LogPrintf("IniFile: not saved whole (%s): %s\n", std::strerror(errno), path.c_str());
        return false;
    }
    rewrite.Commit();
    return true;
}

bool IniFile::FindSection(Position from, const char* wanted, Position& header, svString& name) const {
    for (header = from; header != lines.end(); ++header) {
        std::string_view found;
        if (HeaderName(*header, found) && (wanted == nullptr || found == wanted)) {
            name = svString(found.data(), static_cast<int>(found.size()));
            return true;
        }
    }
    return false;
}

bool IniFile::FindBody(const char* section, Position& bodyBegin, Position& bodyEnd) const {
    svString name;
    if (IsEmptyName(section) || !FindSection(lines.begin(), section, bodyBegin, name)) {
        return false;
    }
    ++bodyBegin;
    FindSection(bodyBegin, nullptr, bodyEnd, name);
    return true;
}

void IniFile::AppendHeader(const char* section) {
    lines.push_back(svString("[") + section + "]");
    modified = true;
}

bool IniFile::GetValue(const char* section, const char* key, svString& value) const {
    value.Empty();
    Position line;
    Position end;
    if (IsEmptyName(key) || !FindBody(section, line, end)) {
        return false;
    }
    for (; line != end; ++line) {
        svString found;
        const char* text = nullptr;
        if (KeyName(*line, found, text) && found == key) {
            value = text;
            value.TrimLeft();
            value.TrimRight();
            return true;
        }
    }
    return false;
}

void IniFile::SetValue(const char* section, const char* key, const char* value) {
    if (IsEmptyName(section) || IsEmptyName(key)) {
        return;
    }
    const bool removing = IsEmptyName(value);
    const svString newLine = removing ? svString() : svString(key) + "=" + value;
    Position line;
    Position end;
    if (!FindBody(section, line, end)) {
        if (!removing) {
            AppendHeader(section);
            lines.push_back(newLine);
        }
        return;
    }
    svString found;
    const char* text = nullptr;
    while (line != end && !(KeyName(*line, found, text) && found == key)) {
        ++line;
    }
    if (line == end && removing) {
        return;
    }
    if (line != end) {
        line = lines.erase(line);
    }
    if (!removing) {
        lines.insert(line, newLine);
    }
    modified = true;
}

std::size_t IniFile::GetSectionNames(StringList& names) const {
    names.clear();
    svString name;
    Position header;
    for (Position from = lines.begin(); FindSection(from, nullptr, header, name); from = std::next(header)) {
        names.push_back(name);
    }
    return names.size();
}

std::size_t IniFile::GetKeyNames(StringList& keys, const char* section) const {
    keys.clear();
    Position line;
    Position end;
    if (!FindBody(section, line, end)) {
        return 0;
    }
    for (; line != end; ++line) {
        svString key;
        const char* text = nullptr;
        if (KeyName(*line, key, text)) {
            keys.push_back(key);
        }
    }
    return keys.size();
}

std::size_t IniFile::GetSectionLines(StringList& body, const char* section) const {
    body.clear();
    Position line;
    Position end;
    if (!FindBody(section, line, end)) {
        return 0;
    }
    for (; line != end; ++line) {
        svString text(line->c_str());
        text.TrimLeft();
        text.TrimRight();
        if (!text.IsEmpty()) {
            body.push_back(text);
        }
    }
    return body.size();
}

void IniFile::AddLine(const char* section, const char* line) {
    if (IsEmptyName(section)) {
        return;
    }
    Position place;
    Position end;
    if (!FindBody(section, place, end)) {
        AppendHeader(section);
        place = end = lines.end();
    }
    if (IsEmptyName(line)) {
        return;
    }
    for (; place != end; ++place) {
        if (*place == line) {
            return;
        }
    }
    lines.insert(end, svString(line));
    modified = true;
}

void IniFile::RemoveLine(const char* section, const char* line) {
    if (IsEmptyName(section)) {
        return;
    }
    Position place;
    Position end;
    if (!FindBody(section, place, end)) {
        AppendHeader(section);
        return;
    }
    for (; line != nullptr && place != end; ++place) {
        if (*place == line) {
            lines.erase(place);
            modified = true;
            return;
        }
    }
}

}  // namespace vexil
