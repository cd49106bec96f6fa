// Columns of text for a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace vexil {

class TextTable {
  public:
    struct Column {
        std::string title;
        std::size_t width = 0;  // in characters of a terminal; one blank stands between columns
        bool numbers = false;   // set to the right
    };

    explicit TextTable(std::vector<Column> tableColumns);

    // One cell for each column, of printable text. A cell that is too long goes on in the next line.
    void AddRow(const std::vector<std::string>& cells);
    // A text below the last row, from the column of this index to the end of the line.
    void AddNote(std::size_t column, const std::string& text);

    // Title line and rows; no line ends with blanks.
    const std::string& Text() const { return text; }

  private:
    std::vector<Column> columns;
    std::string text;
};

// A label and what it says, the lines after the first one indented: "MIDI system    JACK, running".
std::string LabelledText(const std::string& label, const std::string& text);

// Columns of the narrowest terminal that the layout is made for.
inline constexpr std::size_t kTerminalWidth = 80;

}  // namespace vexil
