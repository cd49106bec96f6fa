#include "ctl/TextTable.h"

#include <algorithm>
#include <utility>

#include "ctl/TerminalText.h"

namespace vexil {

namespace {

constexpr std::size_t kLabelWidth = 15;

void EndLine(std::string& text) {
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
}

}  // namespace

TextTable::TextTable(std::vector<Column> tableColumns) : columns(std::move(tableColumns)) {
    std::vector<std::string> titles;
    for (const Column& column : columns) {
        titles.push_back(column.title);
    }
    AddRow(titles);
}

void TextTable::AddRow(const std::vector<std::string>& cells) {
    std::vector<std::vector<std::string>> lines;
    std::size_t height = 1;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        lines.push_back(WrapText(cells[i], columns[i].width));
        height = std::max(height, lines.back().size());
    }
    for (std::size_t line = 0; line < height; ++line) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::string cell = line < lines[i].size() ? lines[i][line] : "";
            const std::size_t used = DisplayWidth(cell);
            const std::string padding(columns[i].width > used ? columns[i].width - used : 0, ' ');
            text += columns[i].numbers ? padding + cell : cell + padding;
            text += ' ';
        }
        EndLine(text);
    }
}

void TextTable::AddNote(std::size_t column, const std::string& note) {
    std::size_t indent = 0;
    for (std::size_t i = 0; i < column; ++i) {
        indent += columns[i].width + 1;
    }
    for (const std::string& line : WrapText(note, kTerminalWidth - indent)) {
        text += std::string(indent, ' ') + line + '\n';
    }
}

std::string LabelledText(const std::string& label, const std::string& text) {
    std::string result;
    std::string head = label;
    for (const std::string& line : WrapText(text, kTerminalWidth - kLabelWidth)) {
        head.resize(kLabelWidth, ' ');
        result += head + line;
        EndLine(result);
        head.clear();
    }
    return result;
}

}  // namespace vexil
