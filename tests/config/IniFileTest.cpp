// Reading, lookups and edits of INI files.
#include "config/IniFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/config/IniFixture.h"

namespace vexil::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class IniFileTest : public IniFixture {};

TEST_F(IniFileTest, OpeningAMissingFileMakesAnEmptyOne) {
    EXPECT_TRUE(ini.Open(path.c_str()));
    EXPECT_EQ(ReadText(path), "");
    EXPECT_THAT(FileLines(), IsEmpty());
}

TEST_F(IniFileTest, ClosingAnUneditedEmptyFileLeavesItEmpty) {
    Open("");
    EXPECT_EQ(Saved(), "");
}

TEST_F(IniFileTest, ClosingAnUneditedFileLeavesItsBytes) {
    Open("\r\n[a]\r\nx = 1 \r\nlast");
    EXPECT_EQ(Saved(), "\r\n[a]\r\nx = 1 \r\nlast");
}

TEST_F(IniFileTest, DeletingTheLastKeyKeepsTheHeader) {
    Open("[a]\nx=1\n");
    ini.SetValue("a", "x", "");
    EXPECT_EQ(Saved(), "[a]\n");
}

TEST_F(IniFileTest, AnEditOfNothingInAnEmptyFileDoesNotTouchIt) {
    Open("");
    const auto before = std::filesystem::last_write_time(path);
    ini.SetValue("a", "x", "");
    EXPECT_EQ(Saved(), "");
    EXPECT_EQ(std::filesystem::last_write_time(path), before);
}

TEST_F(IniFileTest, LinesAreReadWithoutTheirLineEnds) {
    Open("one\ntwo\r\n\r\n\nthree\r\r\n four \nlast");
    EXPECT_THAT(FileLines(), ElementsAre("one", "two", "", "", "three", " four ", "last"));
}

TEST_F(IniFileTest, AFileWithoutEditsIsReopenedWithANullPath) {
    Open("[a]\nx=1\n");
    ini.Close();
    EXPECT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(Value("a", "x"), "1");
}

TEST_F(IniFileTest, ANullPathBeforeAnyOtherIsRefused) {
    EXPECT_FALSE(ini.Open(nullptr));
    EXPECT_FALSE(ini.IsOpen());
}

TEST_F(IniFileTest, OpeningAnOpenFileWritesItsEditsFirst) {
    Open("");
    ini.SetValue("a", "x", "1");
    EXPECT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(ReadText(path), "[a]\nx=1\n");
    EXPECT_EQ(Value("a", "x"), "1");
}

TEST_F(IniFileTest, DestroyingAnOpenFileWritesItsEdits) {
    {
        IniFile other;
        ASSERT_TRUE(other.Open(path.c_str()));
        other.SetValue("a", "x", "1");
    }
    EXPECT_EQ(ReadText(path), "[a]\nx=1\n");
}

TEST_F(IniFileTest, ClosingAClosedFileDoesNothing) {
    EXPECT_TRUE(ini.Close());
    EXPECT_TRUE(ini.Close());
}

TEST_F(IniFileTest, AClosedFileHasNoLines) {
    Open("[a]\nx=1\n");
    ini.Close();
    EXPECT_EQ(Value("a", "x"), "(none)");
}

TEST_F(IniFileTest, OpeningBeginsWithoutTheEditsOfTheTimeWhenNothingWasOpen) {
    WriteText(path, "[a]\nx=1\n");
    ini.SetValue("before", "y", "2");
    ini.AddLine("before", "z");
    ASSERT_TRUE(ini.Open(path.c_str()));
    EXPECT_THAT(FileLines(), ElementsAre("[a]", "x=1"));
    EXPECT_EQ(Value("before", "y"), "(none)");
    EXPECT_EQ(Saved(), "[a]\nx=1\n");
}

TEST_F(IniFileTest, AFailedOpeningForgetsTheEditsOfTheTimeWhenNothingWasOpen) {
    ini.SetValue("before", "y", "2");
    ASSERT_FALSE(ini.Open(folder.Path().c_str()));
    EXPECT_THAT(FileLines(), IsEmpty());
    WriteText(path, "[a]\r\n");
    ASSERT_TRUE(ini.Open(path.c_str()));
    EXPECT_EQ(Saved(), "[a]\r\n");
}

TEST_F(IniFileTest, OneOpenedAnewIsNotModified) {
    Open("[a]\n");
    ini.SetValue("a", "x", "1");
    ini.Close();
    WriteText(path, "[a]\r\n");
    ASSERT_TRUE(ini.Open(nullptr));
    EXPECT_EQ(Saved(), "[a]\r\n");
}

TEST_F(IniFileTest, ALongLineComesBackAsTwo) {
    const std::string text(2000, 'x');
    Open(text + "\n[a]\n");
    EXPECT_THAT(FileLines(), ElementsAre(std::string(1022, 'x'), std::string(978, 'x'), "[a]"));
    ini.SetValue("a", "k", "1");
    EXPECT_EQ(Saved(), std::string(1022, 'x') + "\n" + std::string(978, 'x') + "\n[a]\nk=1\n");
}

TEST_F(IniFileTest, ALineOf1021CharactersIsOneLine) {
    Open(std::string(1021, 'x') + "\nnext\n");
    EXPECT_THAT(FileLines(), ElementsAre(std::string(1021, 'x'), "next"));
}

TEST_F(IniFileTest, TheLineEndOfALineOf1022CharactersIsReadAsALineOfItsOwn) {
    Open(std::string(1022, 'x') + "\nnext\n");
    EXPECT_THAT(FileLines(), ElementsAre(std::string(1022, 'x'), "", "next"));
}

TEST_F(IniFileTest, AFileThatEndsAtAFullPieceHasNoLineBehindIt) {
    Open(std::string(1022, 'x'));
    EXPECT_THAT(FileLines(), ElementsAre(std::string(1022, 'x')));
    Open(std::string(1021, 'x'));
    EXPECT_THAT(FileLines(), ElementsAre(std::string(1021, 'x')));
}

TEST_F(IniFileTest, BytesThatAreNotUtf8SurviveAnEdit) {
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        if (byte != '\n' && byte != '\r' && byte != '[' && byte != ']' && byte != '=') {
            text += static_cast<char>(byte);
        }
    }
    Open(text + "\n[\xff]\nn=\xc3\x28\n");
    EXPECT_EQ(Value("\xff", "n"), "\xc3\x28");
    ini.SetValue("\xff", "k", "1");
    EXPECT_EQ(Saved(), text + "\n[\xff]\nn=\xc3\x28\nk=1\n");
}

TEST_F(IniFileTest, TextBehindANulByteSurvivesAnEditOfAnotherLine) {
    using namespace std::string_literals;
    Open("a\0b\0\n\0\n[s]\nk=v\0w\nend\0"s);
    EXPECT_EQ(Value("s", "k"), "v");
    ini.SetValue("s", "n", "1");
    EXPECT_EQ(Saved(), "a\0b\0\n\0\n[s]\nk=v\0w\nend\0\nn=1\n"s);
}

TEST_F(IniFileTest, CrlfLineEndsAreRewrittenAsLf) {
    Open("[a]\r\nx=1\r\n\r\n");
    ini.SetValue("a", "y", "2");
    EXPECT_EQ(Saved(), "[a]\nx=1\n\ny=2\n");
}

// Keys and values.

TEST_F(IniFileTest, BlanksAroundKeyAndValueAreRemoved) {
    Open("[a]\n \tPort \t= \v5\f \n");
    EXPECT_EQ(Value("a", "Port"), "5");
}

TEST_F(IniFileTest, ALineThatStartsWithTheSplitIsNoKeyLine) {
    Open("[a]\n=5\nPort\n =6\n");
    IniFile::StringList keys;
    EXPECT_EQ(ini.GetKeyNames(keys, "a"), 0U);
    EXPECT_EQ(Value("a", "Port"), "(none)");
}

TEST_F(IniFileTest, OnlyTheFirstSplitSplits) {
    Open("[a]\na=b=c\n");
    EXPECT_EQ(Value("a", "a"), "b=c");
}

TEST_F(IniFileTest, NothingBehindTheSplitIsTheEmptyValue) {
    Open("[a]\nx=\n");
    EXPECT_EQ(Value("a", "x"), "");
}

TEST_F(IniFileTest, TheFirstOfTwoKeysWins) {
    Open("[a]\nx=1\nx=2\n");
    EXPECT_EQ(Value("a", "x"), "1");
}

TEST_F(IniFileTest, NamesAreComparedByteForByte) {
    Open("[a]\nx=1\n");
    EXPECT_EQ(Value("A", "x"), "(none)");
    EXPECT_EQ(Value("a", "X"), "(none)");
}

TEST_F(IniFileTest, NullAndEmptyNamesAreNotFound) {
    Open("[]\nx=1\n[a]\ny=2\n");
    EXPECT_EQ(Value("", "x"), "(none)");
    EXPECT_EQ(Value(nullptr, "x"), "(none)");
    EXPECT_EQ(Value("a", ""), "(none)");
    EXPECT_EQ(Value("a", nullptr), "(none)");
}

// Headers.

TEST_F(IniFileTest, AHeaderMayStandAnywhereInALine) {
    Open("before [ a ] after ]\nx=1\n");
    EXPECT_EQ(Value(" a ", "x"), "1");
}

TEST_F(IniFileTest, BracketsInAValueMakeTheLineAHeader) {
    Open("[a]\ny=0\nname=[x]\nz=1\n");
    EXPECT_EQ(Value("a", "name"), "(none)");
    EXPECT_EQ(Value("a", "z"), "(none)");
    EXPECT_EQ(Value("x", "z"), "1");
}

TEST_F(IniFileTest, ANameEndsAtTheFirstClosingBracket) {
    Open("][a[b]c]\nx=1\n");
    EXPECT_EQ(Value("a[b", "x"), "1");
}

TEST_F(IniFileTest, OnlyTheFirstSectionOfANameIsSearched) {
    Open("[a]\nx=1\n[b]\n[a]\ny=2\nx=3\n");
    EXPECT_EQ(Value("a", "x"), "1");
    EXPECT_EQ(Value("a", "y"), "(none)");
}

TEST_F(IniFileTest, SectionNamesComeInFileOrderWithDuplicates) {
    Open("[b]\n[a]\n[]\nno header ][\n[b]\n");
    IniFile::StringList names{"left over"};
    EXPECT_EQ(ini.GetSectionNames(names), 4U);
    EXPECT_THAT(Texts(names), ElementsAre("b", "a", "", "b"));
}

TEST_F(IniFileTest, FindSectionStartsAtTheGivenLine) {
    Open("[a]\n[b]\n[a]\n");
    IniFile::Position header;
    svString name;
    ASSERT_TRUE(ini.FindSection(std::next(ini.AllLines().begin()), "a", header, name));
    EXPECT_EQ(std::distance(ini.AllLines().begin(), header), 2);
    EXPECT_TRUE(name == "a");
}

TEST_F(IniFileTest, FindSectionWithoutANameStopsAtAnyHeader) {
    Open("x\n[b]\n[a]\n");
    IniFile::Position header;
    svString name;
    ASSERT_TRUE(ini.FindSection(ini.AllLines().begin(), nullptr, header, name));
    EXPECT_TRUE(name == "b");
}

TEST_F(IniFileTest, FindSectionYieldsTheEndForAMissingName) {
    Open("[a]\n");
    IniFile::Position header;
    svString name;
    EXPECT_FALSE(ini.FindSection(ini.AllLines().begin(), "b", header, name));
    EXPECT_EQ(header, ini.AllLines().end());
}

// SetValue.

TEST_F(IniFileTest, AMissingSectionIsAppendedWithItsKey) {
    Open("[a]\nx=1\n\n");
    ini.SetValue("b", "y", "2");
    EXPECT_EQ(Saved(), "[a]\nx=1\n\n[b]\ny=2\n");
}

TEST_F(IniFileTest, AnEmptyValueMakesNoSection) {
    Open("[a]\r\n");
    ini.SetValue("b", "y", "");
    EXPECT_EQ(Saved(), "[a]\r\n");
}

TEST_F(IniFileTest, AnEmptyValueDeletesTheKeyLine) {
    Open("[a]\nx=1\ny=2\nx=3\n");
    ini.SetValue("a", "x", "");
    EXPECT_EQ(Saved(), "[a]\ny=2\nx=3\n");
}

TEST_F(IniFileTest, AnEmptyValueForAMissingKeyDoesNothing) {
    Open("[a]\r\nx=1\r\n");
    ini.SetValue("a", "y", "");
    EXPECT_EQ(Saved(), "[a]\r\nx=1\r\n");
}

TEST_F(IniFileTest, ANullValueIsAnEmptyOne) {
    Open("[a]\nx=1\n");
    ini.SetValue("a", "x", nullptr);
    EXPECT_EQ(Saved(), "[a]\n");
}

TEST_F(IniFileTest, AKeyIsReplacedWhereItStandsWithoutBlanks) {
    Open("[a]\n  x = 1 \ny=2\n");
    ini.SetValue("a", "x", "3");
    EXPECT_EQ(Saved(), "[a]\nx=3\ny=2\n");
}

TEST_F(IniFileTest, AValueIsWrittenWithItsBlanks) {
    Open("");
    ini.SetValue("a", "x", " 3 ");
    EXPECT_EQ(Value("a", "x"), "3");
    EXPECT_EQ(Saved(), "[a]\nx= 3 \n");
}

TEST_F(IniFileTest, SettingTheSameTextCountsAsAnEdit) {
    Open("[a]\r\nx=1\r\n");
    ini.SetValue("a", "x", "1");
    EXPECT_EQ(Saved(), "[a]\nx=1\n");
}

TEST_F(IniFileTest, ANewKeyGoesBehindTheBlankLinesOfItsSection) {
    Open("[a]\nx=1\n\n\n[b]\n");
    ini.SetValue("a", "y", "2");
    EXPECT_EQ(Saved(), "[a]\nx=1\n\n\ny=2\n[b]\n");
}

TEST_F(IniFileTest, ANewKeyOfTheLastSectionGoesToTheEnd) {
    Open("[b]\n[a]\nx=1\n\n");
    ini.SetValue("a", "y", "2");
    EXPECT_EQ(Saved(), "[b]\n[a]\nx=1\n\ny=2\n");
}

TEST_F(IniFileTest, ANewKeyGoesBeforeALineThatItsBracketsMakeAHeader) {
    Open("[a]\nname=[x]\n");
    ini.SetValue("a", "name", "z");
    EXPECT_EQ(Saved(), "[a]\nname=z\nname=[x]\n");
}

TEST_F(IniFileTest, NullAndEmptyNamesSetNothing) {
    Open("[]\r\nx=1\r\n");
    ini.SetValue("", "x", "2");
    ini.SetValue(nullptr, "x", "2");
    ini.SetValue("a", "", "2");
    ini.SetValue("a", nullptr, "2");
    EXPECT_EQ(Saved(), "[]\r\nx=1\r\n");
}

TEST_F(IniFileTest, CommentsBlankAndUnknownLinesSurviveAnEdit) {
    Open("; head\n\n# x\n[a]\n  indented \n;c=1\nx=1\n=odd\n\n[b]\nrest");
    ini.SetValue("a", "x", "2");
    EXPECT_EQ(Saved(), "; head\n\n# x\n[a]\n  indented \n;c=1\nx=2\n=odd\n\n[b]\nrest\n");
}

// Lists and lines of a section.

TEST_F(IniFileTest, KeyNamesAreThoseOfEveryKeyLineOfTheBody) {
    Open("[a]\n x =1\nno key\ny=2\nx=3\n[b]\nz=4\n");
    IniFile::StringList keys{"left over"};
    EXPECT_EQ(ini.GetKeyNames(keys, "a"), 3U);
    EXPECT_THAT(Texts(keys), ElementsAre("x", "y", "x"));
}

TEST_F(IniFileTest, KeyNamesOfNullEmptyAndMissingSectionsAreNone) {
    Open("[]\nx=1\n");
    for (const char* section : {static_cast<const char*>(nullptr), "", "b"}) {
        IniFile::StringList keys{"left over"};
        EXPECT_EQ(ini.GetKeyNames(keys, section), 0U);
        EXPECT_TRUE(keys.empty());
    }
}

TEST_F(IniFileTest, SectionLinesAreTrimmedAndNotBlank) {
    Open("[a]\n  one \n\n \t\nx = 1\n[b]\nz\n");
    IniFile::StringList body{"left over"};
    EXPECT_EQ(ini.GetSectionLines(body, "a"), 2U);
    EXPECT_THAT(Texts(body), ElementsAre("one", "x = 1"));
}

TEST_F(IniFileTest, SectionLinesOfNullEmptyAndMissingSectionsAreNone) {
    Open("[]\nx=1\n");
    for (const char* section : {static_cast<const char*>(nullptr), "", "b"}) {
        IniFile::StringList body{"left over"};
        EXPECT_EQ(ini.GetSectionLines(body, section), 0U);
        EXPECT_TRUE(body.empty());
    }
}

TEST_F(IniFileTest, ALineIsAddedAtTheEndOfItsSection) {
    Open("[a]\nx\n\n[b]\n");
    ini.AddLine("a", "y");
    EXPECT_EQ(Saved(), "[a]\nx\n\ny\n[b]\n");
}

TEST_F(IniFileTest, ALineThatIsThereIsNotAddedAgain) {
    Open("[a]\r\nx\r\n");
    ini.AddLine("a", "x");
    EXPECT_EQ(Saved(), "[a]\r\nx\r\n");
}

TEST_F(IniFileTest, ALineThatDiffersInBlanksIsAdded) {
    Open("[a]\nx \n");
    ini.AddLine("a", "x");
    EXPECT_EQ(Saved(), "[a]\nx \nx\n");
}

TEST_F(IniFileTest, AddingALineMakesItsSection) {
    Open("z\n");
    ini.AddLine("a", "x");
    EXPECT_EQ(Saved(), "z\n[a]\nx\n");
}

TEST_F(IniFileTest, AddingAnEmptyOrNullLineMakesOnlyTheSection) {
    Open("");
    ini.AddLine("a", "");
    ini.AddLine("b", nullptr);
    ini.AddLine("b", "");
    EXPECT_EQ(Saved(), "[a]\n[b]\n");
}

TEST_F(IniFileTest, TheFirstExactLineIsRemoved) {
    Open("x\n[a]\nx \nx\ny\nx\n");
    ini.RemoveLine("a", "x");
    EXPECT_EQ(Saved(), "x\n[a]\nx \ny\nx\n");
}

TEST_F(IniFileTest, RemovingFromAMissingSectionMakesIt) {
    Open("x\n");
    ini.RemoveLine("a", "x");
    EXPECT_EQ(Saved(), "x\n[a]\n");
}

TEST_F(IniFileTest, RemovingAMissingLineDoesNothing) {
    Open("[a]\r\nx\r\n");
    ini.RemoveLine("a", "y");
    ini.RemoveLine("a", nullptr);
    EXPECT_EQ(Saved(), "[a]\r\nx\r\n");
}

TEST_F(IniFileTest, RemovingTheEmptyLineRemovesTheFirstBlankOne) {
    Open("[a]\nx\n\n\ny\n");
    ini.RemoveLine("a", "");
    EXPECT_EQ(Saved(), "[a]\nx\n\ny\n");
}

TEST_F(IniFileTest, LinesOfANullOrEmptySectionAreNeitherAddedNorRemoved) {
    Open("[]\r\nx\r\n");
    ini.AddLine("", "y");
    ini.AddLine(nullptr, "y");
    ini.RemoveLine("", "x");
    ini.RemoveLine(nullptr, "x");
    EXPECT_EQ(Saved(), "[]\r\nx\r\n");
}

}  // namespace
}  // namespace vexil::test
