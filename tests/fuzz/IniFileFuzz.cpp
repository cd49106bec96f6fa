// Reading, edits and lookups of INI files against the naive model. The input is the file's text and, behind a
// line
// "%%", one operation on each line: a letter, then up to three texts separated by "|". A byte 1 in a text is
// a line end.
#include <algorithm>
#include <array>
#include <optional>
#include <sstream>

#include "config/IniFile.h"
#include "tests/config/NaiveIni.h"
#include "tests/fuzz/FuzzCheck.h"

namespace vexil::test {
namespace {

constexpr const char* kSplit = "\n%%\n";

std::vector<std::string> Texts(const IniFile::StringList& list) {
    std::vector<std::string> texts;
    for (const svString& text : list) {
        texts.emplace_back(text.c_str());
    }
    return texts;
}

void CheckLines(const IniFile& ini, const NaiveIni& model) {
    const auto same = [](const svString& line, const std::string& text) {
        return std::string(line.c_str(), static_cast<std::size_t>(line.GetLength())) == text;
    };
    Check(std::equal(ini.AllLines().begin(), ini.AllLines().end(), model.Lines().begin(), model.Lines().end(),
                     same),
          "the lines are the model's");
}

void CheckLookups(const IniFile& ini, const NaiveIni& model, const std::string& section,
                  const std::string& key) {
    svString value;
    const std::optional<std::string> expected = model.GetValue(section, key);
    const bool found = ini.GetValue(section.c_str(), key.c_str(), value);
    Check(found == expected.has_value(), "the model finds the value as well");
    Check(!found || *expected == value.c_str(), "the value is the model's");
    Check(found || value.IsEmpty(), "a value that is not found is empty");
    IniFile::StringList list;
    Check(ini.GetKeyNames(list, section.c_str()) == list.size() && Texts(list) == model.KeyNames(section),
          "the keys are the model's");
    Check(ini.GetSectionLines(list, section.c_str()) == list.size() &&
              Texts(list) == model.SectionLines(section),
          "the section's lines are the model's");
}

void Operate(IniFile& ini, NaiveIni& model, const std::string& line) {
    std::array<std::string, 3> texts;
    std::istringstream rest(line.substr(std::min<std::size_t>(1, line.size())));
    for (std::string& text : texts) {
        std::getline(rest, text, '|');
        std::replace(text.begin(), text.end(), '\1', '\n');
        text = text.substr(0, text.find('\0'));
    }
    const auto& [section, second, third] = texts;
    switch (line.empty() ? '\0' : line.front()) {
        case 'S':
            ini.SetValue(section.c_str(), second.c_str(), third.c_str());
            model.SetValue(section, second, third);
            break;
        case 'A':
            ini.AddLine(section.c_str(), second.c_str());
            model.AddLine(section, second);
            break;
        case 'R':
            ini.RemoveLine(section.c_str(), second.c_str());
            model.RemoveLine(section, second);
            break;
        default:
            break;
    }
    CheckLookups(ini, model, section, second);
}

}  // namespace
}  // namespace vexil::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    static WorkFile file;
    const std::string input(reinterpret_cast<const char*>(bytes), size);
    const std::size_t split = input.find(kSplit);
    const std::string text = input.substr(0, split);
    file.Write(text);

    IniFile ini;
    NaiveIni model(text);
    Check(ini.Open(file.Path().c_str()), "any text is opened");
    CheckLines(ini, model);
    std::istringstream operations(split == std::string::npos ? "" : input.substr(split + 4));
    for (std::string line; std::getline(operations, line);) {
        Operate(ini, model, line);
    }
    CheckLines(ini, model);
    IniFile::StringList names;
    Check(ini.GetSectionNames(names) == names.size() && Texts(names) == model.SectionNames(),
          "the sections are the model's");
    Check(ini.Close(), "the file is saved");
    const std::string saved = file.Read();
    Check(saved == model.Saved(text), "the saved text is the model's");
    Check(file.IsAlone(), "nothing is left beside the file");
    return 0;
}
