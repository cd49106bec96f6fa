// A line editor for INI text files. Open reads the whole file into a list of lines, the lookups and edits
// work on the list, and Close writes the whole file when something was edited. Lines are kept as they were
// read, less their line ends, so comments, blank lines and unknown lines survive an edit.
//
// Syntax, and there is no other:
// - A line of two or more characters that holds a "[" and a "]" somewhere after it is a section header,
//   wherever in the line they stand. The name is the text between the first "[" and the first "]" after it,
//   untrimmed.
// - A line whose first "=" is not its first character is a key line, unless its key is then empty. Key
//   and value are the texts before and behind that "=", both trimmed of white space; other "=" belong to the
//   value.
// - Every other line is carried along.
// Names are compared byte for byte. The first of several sections of one name, and in it the first of several
// keys of one name, is the one that is read and edited.
//
// Lines longer than kIniPieceLength are taken apart into pieces of that length, each a line of its own from
// then on. Text behind a NUL byte is not seen by the lookups but stays in the line and is written back.
//
// Opening a file costs time and memory in proportion to its size, a look-up or an edit time in proportion to
// its section's.
//
// One thread at a time. Other programs are not locked out of the file between Open and Close.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "config/IniLine.h"
#include "config/IniSections.h"
#include "config/SafeRewrite.h"
#include "shared/System/svString.h"

namespace vexil {

class IniFile {
  public:
    using Lines = IniSections::Lines;
    using Position = IniSections::Position;
    using StringList = std::vector<svString>;

    // `fileCalls` must outlive this object; the default is the system's own calls.
    explicit IniFile(const RewriteCalls& fileCalls = kSystemRewriteCalls) : calls(fileCalls) {}
    // Closes the file, which writes pending edits.
    ~IniFile() { Close(); }
    IniFile(const IniFile&) = delete;
    IniFile& operator=(const IniFile&) = delete;

    // Closes the file that is open, if any, and opens the one at `newPath` (null: the one of the last Open),
    // making an empty file where the file is absent. The list holds the file's lines and nothing that was
    // edited while no file was open. A save of it that was cut short is completed first. False, with nothing
    // open, when the file cannot be opened for reading and writing, is not a plain file, is larger than
    // kMaxRewriteBytes, is half written by a save that cannot be completed now, or is saved again and again
    // by other programs for kRewriteWait.
    bool Open(const char* newPath);

    // Writes the list into the file when it was edited and is not empty, then closes. The file is rewritten
    // in place: it keeps its owner, permissions and links. False when the edits did not all reach the disk:
    // either the file is unchanged, or the next Open completes the save (see SafeRewrite.h). The reason is in
    // the log. True when nothing is open.
    bool Close();

    bool IsOpen() const { return stream != nullptr; }

    // False, with `value` empty, when the section or the key is missing or a name is null or empty.
    bool GetValue(const char* section, const char* key, svString& value) const;

    // Sets, adds or, with an empty or null value, removes a key. A new key goes to the end of its section, a
    // new section to the end of the file. Nothing happens for a null or empty section or key.
    void SetValue(const char* section, const char* key, const char* value);

    // Each clears the list, fills it in file order and returns its length.
    std::size_t GetSectionNames(StringList& names) const;                  // duplicates included
    std::size_t GetKeyNames(StringList& keys, const char* section) const;  // of every key line
    std::size_t GetSectionLines(StringList& texts,
                                const char* section) const;  // trimmed, without blank lines

    // Adds a line to the end of a section unless the section holds exactly that line. The section is made
    // when it is missing, even for an empty or null line.
    void AddLine(const char* section, const char* line);
    // Removes the first line of a section that is exactly `line`. A missing section is made, nothing else.
    void RemoveLine(const char* section, const char* line);

    // The lines of the open file; empty when closed.
    const Lines& AllLines() const { return lines; }

    // Walks from `from` to the first header with the wanted name (null: to any header). True with its place
    // and name; `header` is the end of the lines when no header follows.
    bool FindSection(Position from, const char* wanted, Position& header, svString& name) const;

  private:
    enum class Reading { Done, Overtaken, Failed };

    // Opens the file and reads its text. Overtaken: another program saved it meanwhile, so that the text may
    // be half of it. Nothing is open unless it is done.
    Reading ReadOnce(std::string& text);
    // False when the file has grown beyond kMaxRewriteBytes.
    bool ReadText(std::string& text);
    // Whether the open file, of which `length` bytes were read, was written into since `before`.
    bool HasChangedSince(const struct stat& before, std::size_t length) const;
    void TakeLines(std::string_view text);
    void CloseStream();
    void ForgetLines();
    bool WriteBack();
    void RemoveNewFile() const;
    // False for a null or empty name or a missing section.
    bool FindBody(const char* section, IniSections::Body& body) const;
    void AppendLine(const svString& line);
    void InsertLine(Position before, const svString& line, const IniSections::Body& body);
    void AppendHeader(const char* section);

    const RewriteCalls& calls;
    svString path;
    Lines lines;
    IniSections sections{lines};
    std::FILE* stream = nullptr;  // null: not open
    bool modified = false;
    bool isNew = false;       // there was no file before it was opened
    bool readFailed = false;  // the list ends where the file could not be read on
};

}  // namespace vexil
