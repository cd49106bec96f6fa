// Random texts and random edits: IniFile and the naive model agree on every line, lookup and saved byte.
#include <gtest/gtest.h>

#include <random>

#include "tests/config/IniFixture.h"
#include "tests/config/NaiveIni.h"

namespace vexil::test {
namespace {

constexpr int kRounds = 100;
constexpr int kEdits = 40;

class IniFileModelTest : public IniFixture {
  protected:
    std::string Pick(const std::vector<std::string>& choices) {
        return choices[generator() % choices.size()];
    }

    std::string RandomText() {
        const std::vector<std::string> parts = {
            "[a]\n", "[b]\r\n", "[",     "]",       "=",  " ",  "\t",   "\r",  "\n",
            "\n\n",  "a",       "k=1\n", " k = 2 ", "x=", "[]", "\xff", "\n=", std::string(500, 'w')};
        std::string text;
        for (std::size_t count = generator() % 40; count > 0; --count) {
            text += Pick(parts);
        }
        return text;
    }

    void Edit(NaiveIni& model) {
        const std::string section = Pick({"a", "b", "c", "", "]", "[a"});
        const std::string key = Pick({"k", "x", "a", "", "new", "k "});
        const std::string value = Pick({"", "1", " 2 ", "[c]", "=", "k=1", "two\nlines"});
        switch (generator() % 4) {
            case 0:
            case 1:
                ini.SetValue(section.c_str(), key.c_str(), value.c_str());
                model.SetValue(section, key, value);
                break;
            case 2:
                ini.AddLine(section.c_str(), value.c_str());
                model.AddLine(section, value);
                break;
            default:
                ini.RemoveLine(section.c_str(), value.c_str());
                model.RemoveLine(section, value);
                break;
        }
        ASSERT_EQ(FileLines(), model.Lines());
        ASSERT_EQ(Value(section.c_str(), key.c_str()), model.GetValue(section, key).value_or("(none)"));
        IniFile::StringList list;
        ini.GetSectionNames(list);
        ASSERT_EQ(Texts(list), model.SectionNames());
        ini.GetKeyNames(list, section.c_str());
        ASSERT_EQ(Texts(list), model.KeyNames(section));
        ini.GetSectionLines(list, section.c_str());
        ASSERT_EQ(Texts(list), model.SectionLines(section));
    }

    std::minstd_rand generator;  // the same numbers in every run
};

TEST_F(IniFileModelTest, RandomEditsAgreeWithTheModel) {
    for (int round = 0; round < kRounds; ++round) {
        const std::string text = RandomText();
        Open(text);
        NaiveIni model(text);
        ASSERT_EQ(FileLines(), model.Lines());
        for (std::size_t count = generator() % kEdits; count > 0 && !HasFatalFailure(); --count) {
            Edit(model);
        }
        ASSERT_EQ(Saved(), model.Saved(text)) << "round " << round;
    }
}

// Each of them becomes a header in front of the ones before it.
TEST_F(IniFileModelTest, ManyHeadersPutIntoOneSectionAgreeWithTheModel) {
    const std::string text = "[a]\n[h0]\nx=1\n[z]\n";
    Open(text);
    NaiveIni model(text);
    for (int number = 0; number < 200 && !HasFatalFailure(); ++number) {
        const std::string name = "h" + std::to_string(number % 150);
        ini.SetValue("a", "k", ("[" + name + "]").c_str());
        model.SetValue("a", "k", "[" + name + "]");
        ini.SetValue(name.c_str(), "n", std::to_string(number).c_str());
        model.SetValue(name, "n", std::to_string(number));
        ASSERT_EQ(FileLines(), model.Lines());
    }
    EXPECT_EQ(Saved(), model.Saved(text));
}

}  // namespace
}  // namespace vexil::test
