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

bool IsPlainFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_size <= static_cast<off_t>(kMaxRewriteBytes);
}

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
