#include "config/IniFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string_view>
#include <thread>

#include "config/RewriteFiles.h"
#include "shared/System/Deadline.h"
#include "shared/System/svLog.h"

namespace vexil {
namespace {

bool IsEmptyName(const char* name) {
    return name == nullptr || *name == '\0';
}

bool IsPlainFile(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_size <= static_cast<off_t>(kMaxRewriteBytes);
}

bool IsSameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

}  // namespace

bool IniFile::Open(const char* newPath) {
    // The result is not needed: edits that could not be written are in the log, and this file is another
    // matter.
    Close();
    ForgetLines();
    if (newPath != nullptr) {
        path = newPath;
    }
    struct stat status {};
    isNew = ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
    const Deadline deadline = std::chrono::steady_clock::now() + kRewriteWait;
    std::string text;
    Reading reading = ReadOnce(text);
    while (reading == Reading::Overtaken && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(kRewritePause);
        reading = ReadOnce(text);
    }
    if (reading == Reading::Overtaken) {
        LogPrintf("IniFile: not opened, since other programs are saving the file: %s\n", path.c_str());
    }
    if (reading != Reading::Done) {
        return false;
    }
    TakeLines(text);
    return true;
}

IniFile::Reading IniFile::ReadOnce(std::string& text) {
    struct stat status {};
    // Asked before opening, since opening a device can act on it or wait.
    if (::stat(path.c_str(), &status) == 0 && !IsPlainFile(status)) {
        return Reading::Failed;
    }
    const PendingSave pending = SafeRewrite(calls).FinishPending(path.c_str());
    if (pending == PendingSave::Blocked) {
        return Reading::Failed;
    }
    stream = std::fopen(path.c_str(), "a+");
    if (stream == nullptr) {
        return Reading::Failed;
    }
    // Asked again, of the file that was opened: the name may have been given to another file meanwhile.
    std::rewind(stream);
    if (::fstat(::fileno(stream), &status) != 0 || !IsPlainFile(status) || !ReadText(text)) {
        CloseStream();
        return Reading::Failed;
    }
    // In this order: a save that is over by the look for its copy has changed the file by the second look.
    const bool isUnderWay = pending == PendingSave::None && SafeRewrite::HasCopy(path.c_str());
    if (isUnderWay || HasChangedSince(status, text.size())) {
        CloseStream();
        return Reading::Overtaken;
    }
    return Reading::Done;
}

bool IniFile::HasChangedSince(const struct stat& before, std::size_t length) const {
    struct stat now {};
    if (::fstat(::fileno(stream), &now) != 0) {
        return true;
    }
    // The clock of files is too coarse for changes that follow each other at once; the length tells then.
    const bool isShort = !readFailed && length < static_cast<std::size_t>(now.st_size);
    return isShort || !IsSameTime(now.st_mtim, before.st_mtim);
}

bool IniFile::ReadText(std::string& text) {
    // Piece by piece: most files are small, and their size may change meanwhile.
    constexpr std::size_t kReadAtOnce = 16384;
    std::size_t length = 0;
    std::size_t count = 0;
    do {
        text.resize(length + kReadAtOnce);
        count = calls.readText(text.data() + length, 1, kReadAtOnce, stream);
        length += count;
    } while (count == kReadAtOnce && length <= kMaxRewriteBytes);
    text.resize(length);
    readFailed = std::ferror(stream) != 0;
    return length <= kMaxRewriteBytes;
}

void IniFile::TakeLines(std::string_view text) {
    while (!text.empty()) {
        const std::string_view piece = TakePiece(text);
        AppendLine(svString(piece.data(), static_cast<int>(piece.size())));
    }
}

void IniFile::CloseStream() {
    std::fclose(stream);
    stream = nullptr;
}

void IniFile::ForgetLines() {
    sections.Clear();
    lines.clear();
    modified = false;
}

bool IniFile::Close() {
    if (stream == nullptr) {
        return true;
    }
    const bool saved = !modified || lines.empty() || WriteBack();
    if (!saved && isNew) {
        RemoveNewFile();
    }
    ForgetLines();
    if (stream != nullptr) {
        // What was written has been flushed and synchronised by now, so closing has nothing left to lose.
        CloseStream();
    }
    return saved;
}

// Opening made it, and nothing was saved in it.
void IniFile::RemoveNewFile() const {
    struct stat status {};
    // Another program may have filled it meanwhile.
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0 &&
        std::remove(path.c_str()) != 0) {
        LogPrintf("IniFile: an empty file is left behind (%s): %s\n", std::strerror(errno), path.c_str());
    }
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
        if (isNew && ::ftruncate(::fileno(stream), 0) == 0) {
            rewrite.Abandon();  // there is no older text that it would complete
        }
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

bool IniFile::FindBody(const char* section, IniSections::Body& body) const {
    return !IsEmptyName(section) && sections.Find(section, body);
}

void IniFile::AppendLine(const svString& line) {
    lines.push_back(line);
    sections.Append(std::prev(lines.end()));
}

void IniFile::InsertLine(Position before, const svString& line, const IniSections::Body& body) {
    sections.Insert(lines.insert(before, line), body);
}

void IniFile::AppendHeader(const char* section) {
    AppendLine(svString("[") + section + "]");
    modified = true;
}

bool IniFile::GetValue(const char* section, const char* key, svString& value) const {
    value.Empty();
    IniSections::Body body;
    if (IsEmptyName(key) || !FindBody(section, body)) {
        return false;
    }
    for (Position line = body.begin; line != body.end; ++line) {
        std::string_view found;
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
    IniSections::Body body;
    if (!FindBody(section, body)) {
        if (!removing) {
            AppendHeader(section);
            AppendLine(newLine);
        }
        return;
    }
    std::string_view found;
    const char* text = nullptr;
    Position line = body.begin;
    while (line != body.end && !(KeyName(*line, found, text) && found == key)) {
        ++line;
    }
    if (line == body.end && removing) {
        return;
    }
    if (line != body.end) {
        line = lines.erase(line);
    }
    if (!removing) {
        InsertLine(line, newLine, body);
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
    IniSections::Body body;
    if (!FindBody(section, body)) {
        return 0;
    }
    for (Position line = body.begin; line != body.end; ++line) {
        std::string_view key;
        const char* text = nullptr;
        if (KeyName(*line, key, text)) {
            keys.emplace_back(key.data(), static_cast<int>(key.size()));
        }
    }
    return keys.size();
}

std::size_t IniFile::GetSectionLines(StringList& texts, const char* section) const {
    texts.clear();
    IniSections::Body body;
    if (!FindBody(section, body)) {
        return 0;
    }
    for (Position line = body.begin; line != body.end; ++line) {
        svString text(line->c_str());
        text.TrimLeft();
        text.TrimRight();
        if (!text.IsEmpty()) {
            texts.push_back(text);
        }
    }
    return texts.size();
}

void IniFile::AddLine(const char* section, const char* line) {
    if (IsEmptyName(section)) {
        return;
    }
    IniSections::Body body;
    const bool isThere = FindBody(section, body);
    if (!isThere) {
        AppendHeader(section);
    }
    if (IsEmptyName(line)) {
        return;
    }
    if (!isThere) {
        AppendLine(line);
        return;
    }
    for (Position place = body.begin; place != body.end; ++place) {
        if (*place == line) {
            return;
        }
    }
    InsertLine(body.end, line, body);
    modified = true;
}

void IniFile::RemoveLine(const char* section, const char* line) {
    if (IsEmptyName(section)) {
        return;
    }
    IniSections::Body body;
    if (!FindBody(section, body)) {
        AppendHeader(section);
        return;
    }
    for (Position place = body.begin; line != nullptr && place != body.end; ++place) {
        if (*place == line) {
            lines.erase(place);
            modified = true;
            return;
        }
    }
}

}  // namespace vexil
