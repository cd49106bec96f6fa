// A temporary INI file and the editor on it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/IniFile.h"
#include "tests/config/TemporaryFolder.h"

namespace vexil::test {

inline std::vector<std::string> Texts(const IniFile::StringList& list) {
    std::vector<std::string> texts;
    for (const svString& text : list) {
        texts.emplace_back(text.c_str());
    }
    return texts;
}

class IniFixture : public ::testing::Test {
  protected:
    // Writes the file and opens it.
    void Open(const std::string& text) {
        WriteText(path, text);
        ASSERT_TRUE(ini.Open(path.c_str()));
    }

    // Closes the file and returns its bytes.
    std::string Saved() {
        EXPECT_TRUE(ini.Close());
        return ReadText(path);
    }

    // The value, or "(none)".
    std::string Value(const char* section, const char* key) {
        svString value("left over");
        return ini.GetValue(section, key, value) ? value.c_str()
               : value.IsEmpty()                 ? "(none)"
                                                 : "(not emptied)";
    }

    std::vector<std::string> FileLines() const {
        std::vector<std::string> texts;
        for (const svString& line : ini.AllLines()) {
            texts.emplace_back(line.c_str(), static_cast<std::size_t>(line.GetLength()));
        }
        return texts;
    }

    TemporaryFolder folder;
    const std::string path = folder / "settings.vexil3";
    IniFile ini;
};

}  // namespace vexil::test
