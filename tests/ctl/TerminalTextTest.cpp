#include "ctl/TerminalText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/TextTable.h"
#include "shared/System/PrintableText.h"

namespace vexil {
namespace {

using testing::ElementsAre;

TEST(TerminalText, LettersOfAnyScriptStay) {
    EXPECT_EQ(Printable("Bühne, 舞台, сцена \U0001F3B9"), "Bühne, 舞台, сцена \U0001F3B9");
}

TEST(TerminalText, ControlCharactersBecomeQuestionMarks) {
    EXPECT_EQ(Printable("a\x1b[2Jb\nc\td\x7f"), "a?[2Jb?c?d?");
    EXPECT_EQ(Printable("csi \u009b31m nel \u0085"), "csi ?31m nel ?");
}

TEST(TerminalText, MarksThatTurnTheDirectionBecomeQuestionMarks) {
    EXPECT_EQ(Printable("a\u202eb\u2066c\u200fd\u2028e\ufefff"), "a?b?c?d?e?f");
}

TEST(TerminalText, BytesThatAreNoUtf8BecomeQuestionMarksOneByOne) {
    EXPECT_EQ(Printable("a\xff\xc3"), "a??");
    EXPECT_EQ(Printable("\xc0\x9b"), "??") << "an overlong control character";
    EXPECT_EQ(Printable("\xed\xa0\x80"), "???") << "a surrogate";
    EXPECT_EQ(Printable("\xf4\x90\x80\x80"), "????") << "beyond the last character";
}

TEST(TerminalText, LineFeedsStayWhereLinesAreWanted) {
    EXPECT_EQ(PrintableLines("one\ntwo\r\n"), "one\ntwo?\n");
}

TEST(TerminalText, JsonKeepsItsMeaningAndLosesItsControlCharacters) {
    EXPECT_EQ(PrintableJson("{\"ü\": \"a\x7f\u009b\"}"), "{\"ü\": \"a\\u007f\\u009b\"}");
    EXPECT_EQ(PrintableJson("\"\u202e\U000E0001\""), "\"\\u202e\\udb40\\udc01\"");
}

TEST(TerminalText, WidthCountsColumns) {
    EXPECT_EQ(DisplayWidth("piano"), 5U);
    EXPECT_EQ(DisplayWidth("Bühne"), 5U);
    EXPECT_EQ(DisplayWidth("Bu\u0308hne"), 5U) << "a mark on the letter before it";
    EXPECT_EQ(DisplayWidth("舞台"), 4U);
}

TEST(TerminalText, LinesAreBrokenAtBlanks) {
    EXPECT_THAT(WrapText("to the stage, port 12", 10), ElementsAre("to the", "stage,", "port 12"));
    EXPECT_THAT(WrapText("exactly 10", 10), ElementsAre("exactly 10"));
    EXPECT_THAT(WrapText("exactly 10 more", 10), ElementsAre("exactly 10", "more"));
}

TEST(TerminalText, LongWordsAreBrokenBetweenCharacters) {
    EXPECT_THAT(WrapText("ääääää", 4), ElementsAre("ääää", "ää"));
    EXPECT_THAT(WrapText("舞台舞", 3), ElementsAre("舞", "台", "舞"));
}

TEST(TerminalText, AWidthBelowACharacterStillGoesOn) {
    EXPECT_THAT(WrapText("舞台", 1), ElementsAre("舞", "台"));
}

TEST(TerminalText, AnEmptyTextIsOneEmptyLine) {
    EXPECT_THAT(WrapText("", 5), ElementsAre(""));
}

TEST(TextTable, CellsStandInTheirColumns) {
    TextTable table({{"NAME", 6}, {"COUNT", 5, true}, {"END", 3}});
    table.AddRow({"ab", "12", "x"});
    EXPECT_EQ(table.Text(), "NAME   COUNT END\nab        12 x\n");
}

TEST(TextTable, LongCellsGoOnInTheNextLine) {
    TextTable table({{"A", 5}, {"B", 3}});
    table.AddRow({"one two", "x"});
    EXPECT_EQ(table.Text(), "A     B\none   x\ntwo\n");
}

TEST(TextTable, NotesStandFromTheirColumnOn) {
    TextTable table({{"A", 3}, {"B", 3}});
    table.AddNote(1, std::string(70, 'x') + " and on and on");
    EXPECT_EQ(table.Text(), "A   B\n    " + std::string(70, 'x') + " and\n    on and on\n");
}

TEST(TextTable, LabelledTextIsIndented) {
    EXPECT_EQ(LabelledText("Memory", std::string(65, 'x') + " y"),
              "Memory         " + std::string(65, 'x') + "\n               y\n");
    EXPECT_EQ(LabelledText("Names", ""), "Names\n");
}

}  // namespace
}  // namespace vexil
