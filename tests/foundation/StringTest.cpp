// What each operation of the text type does to the text. Blocks and sharing: StringBlockTest.
#include "shared/System/svString.h"

#include <gtest/gtest.h>

#include <string>

namespace vexil {
namespace {

std::string Text(const svString& string) {
    return {string.c_str(), static_cast<std::size_t>(string.GetLength())};
}

TEST(StringConstruction, OfNothingIsEmpty) {
    const svString string;
    EXPECT_STREQ(string.c_str(), "");
    EXPECT_EQ(string.GetLength(), 0);
    EXPECT_TRUE(string.IsEmpty());
}

TEST(StringConstruction, OfANullTextIsEmpty) {
    EXPECT_EQ(Text(svString(static_cast<const char*>(nullptr))), "");
}

TEST(StringConstruction, OfATextCopiesIt) {
    EXPECT_EQ(Text(svString("Port 23")), "Port 23");
}

TEST(StringConstruction, OfPointerAndLengthTakesThatManyCharacters) {
    EXPECT_EQ(Text(svString("abcdef", 3)), "abc");
}

TEST(StringConstruction, OfANullPointerAndLengthZeroIsEmpty) {
    EXPECT_EQ(Text(svString(nullptr, 0)), "");
}

TEST(StringConstruction, OfACharacterRepeatsIt) {
    EXPECT_EQ(Text(svString('x', 4)), "xxxx");
}

TEST(StringConstruction, OfACharacterRepeatedLessThanOnceIsEmpty) {
    EXPECT_EQ(Text(svString('x', 0)), "");
    EXPECT_EQ(Text(svString('x', -3)), "");
}

TEST(StringAssignment, OfItselfChangesNothing) {
    svString string("text");
    const svString& same = string;
    string = same;
    EXPECT_EQ(Text(string), "text");
    EXPECT_EQ(string.GetHeader()->nRefs, 1);
}

TEST(StringAssignment, OfANullTextIsEmpty) {
    svString string("text");
    string = static_cast<const char*>(nullptr);
    EXPECT_EQ(Text(string), "");
}

TEST(StringAssignment, OfACharacterIsThatCharacter) {
    svString string("text");
    string = 'x';
    EXPECT_EQ(Text(string), "x");
}

TEST(StringAssignment, OfItsOwnTailKeepsTheTail) {
    svString string("abcdef");
    string = string.c_str() + 2;
    EXPECT_EQ(Text(string), "cdef");
}

TEST(StringConcatenation, JoinsStringsTextsAndCharacters) {
    const svString string("ab");
    EXPECT_EQ(Text(string + svString("cd")), "abcd");
    EXPECT_EQ(Text(string + "cd"), "abcd");
    EXPECT_EQ(Text("cd" + string), "cdab");
    EXPECT_EQ(Text(string + 'c'), "abc");
    EXPECT_EQ(Text('c' + string), "cab");
}

TEST(StringConcatenation, OfNullTextsAddsNothing) {
    const svString string("ab");
    const char* const none = nullptr;
    EXPECT_EQ(Text(string + none), "ab");
    EXPECT_EQ(Text(none + string), "ab");
}

TEST(StringConcatenation, InPlaceAppendsStringsTextsAndCharacters) {
    svString string("a");
    string += svString("b");
    string += "c";
    string += 'd';
    string += static_cast<const char*>(nullptr);
    EXPECT_EQ(Text(string), "abcd");
}

TEST(StringConcatenation, OfItselfDoublesTheText) {
    svString string("abc");
    string += string;
    EXPECT_EQ(Text(string), "abcabc");
    string += string.c_str() + 4;
    EXPECT_EQ(Text(string), "abcabcbc");
}

TEST(StringConcatenation, OfItselfInASpaciousBlockDoublesTheText) {
    svString string("abc");
    string.GetBuffer(20);
    string += string;
    EXPECT_EQ(Text(string), "abcabc");
}

TEST(StringCompare, OrdersByBytesAsUnsigned) {
    const svString string("b");
    EXPECT_LT(string.Compare("c"), 0);
    EXPECT_EQ(string.Compare("b"), 0);
    EXPECT_GT(string.Compare("a"), 0);
    EXPECT_GT(svString("\xC3").Compare("z"), 0);
}

TEST(StringCompare, EqualityIsOfTheText) {
    EXPECT_TRUE(svString("ab") == svString("ab"));
    EXPECT_TRUE(svString("ab") == "ab");
    EXPECT_FALSE(svString("ab") == svString("abc"));
    EXPECT_FALSE(svString("ab") == "aB");
}

TEST(StringFind, OfACharacterIsItsFirstPlace) {
    EXPECT_EQ(svString("abcabc").Find('c'), 2);
    EXPECT_EQ(svString("abcabc").Find('x'), -1);
}

TEST(StringFind, OfACharacterFromAStartIsTheFirstPlaceThere) {
    EXPECT_EQ(svString("abcabc").Find('c', 2), 2);
    EXPECT_EQ(svString("abcabc").Find('c', 3), 5);
}

TEST(StringFind, OfACharacterFromTheEndOrLaterIsNone) {
    EXPECT_EQ(svString("abc").Find('c', 3), -1);
    EXPECT_EQ(svString("abc").Find('\0', 3), -1);
    EXPECT_EQ(svString("abc").Find('c', 100), -1);
    EXPECT_EQ(svString().Find('a'), -1);
    EXPECT_EQ(svString().Find('\0'), -1);
}

TEST(StringFind, OfATextIsItsFirstPlace) {
    EXPECT_EQ(svString("abcabc").Find("bc"), 1);
    EXPECT_EQ(svString("abcabc").Find("bc", 2), 4);
    EXPECT_EQ(svString("abcabc").Find("cb"), -1);
}

TEST(StringFind, OfATextFromTheEndSearchesTheEmptyTail) {
    EXPECT_EQ(svString("abc").Find("c", 3), -1);
    EXPECT_EQ(svString("abc").Find("", 3), 3);
    EXPECT_EQ(svString().Find(""), 0);
}

TEST(StringFind, OfATextBeyondTheEndIsNone) {
    EXPECT_EQ(svString("abc").Find("", 4), -1);
}

TEST(StringFind, FromANegativeStartSearchesFromTheFront) {
    EXPECT_EQ(svString("abc").Find('a', -5), 0);
    EXPECT_EQ(svString("abc").Find("a", -5), 0);
}

TEST(StringFind, OneOfASetIsTheFirstCharacterInIt) {
    EXPECT_EQ(svString("key = value").FindOneOf("=;"), 4);
    EXPECT_EQ(svString("key").FindOneOf("=;"), -1);
    EXPECT_EQ(svString("key").FindOneOf(""), -1);
}

TEST(StringExtraction, MidTakesCountFromFirst) {
    EXPECT_EQ(Text(svString("abcdef").Mid(2, 3)), "cde");
    EXPECT_EQ(Text(svString("abcdef").Mid(2)), "cdef");
}

TEST(StringExtraction, MidCountsNegativeArgumentsAsZero) {
    EXPECT_EQ(Text(svString("abcdef").Mid(-2, 3)), "abc");
    EXPECT_EQ(Text(svString("abcdef").Mid(2, -3)), "");
    EXPECT_EQ(Text(svString("abcdef").Mid(-2)), "abcdef");
}

TEST(StringExtraction, MidIsCutToWhatRemains) {
    EXPECT_EQ(Text(svString("abcdef").Mid(4, 100)), "ef");
    EXPECT_EQ(Text(svString("abcdef").Mid(4, 2147483647)), "ef");
    EXPECT_EQ(Text(svString("abcdef").Mid(6, 1)), "");
}

TEST(StringExtraction, MidFromBeyondTheEndIsEmpty) {
    EXPECT_EQ(Text(svString("abcdef").Mid(7, 1)), "");
    EXPECT_EQ(Text(svString("abcdef").Mid(2147483647)), "");
}

TEST(StringExtraction, LeftAndRightTakeTheEnds) {
    EXPECT_EQ(Text(svString("abcdef").Left(2)), "ab");
    EXPECT_EQ(Text(svString("abcdef").Right(2)), "ef");
}

TEST(StringExtraction, LeftAndRightOfANegativeCountAreEmpty) {
    EXPECT_EQ(Text(svString("abc").Left(-3)), "");
    EXPECT_EQ(Text(svString("abc").Right(-3)), "");
}

TEST(StringExtraction, LeftAndRightOfMoreThanTheLengthAreTheWholeString) {
    EXPECT_EQ(Text(svString("abc").Left(3 + 5)), "abc");
    EXPECT_EQ(Text(svString("abc").Right(3 + 5)), "abc");
}

TEST(StringExtraction, SpanExcludingStopsAtTheSet) {
    EXPECT_EQ(Text(svString("key = value").SpanExcluding("=;")), "key ");
    EXPECT_EQ(Text(svString("key").SpanExcluding("=;")), "key");
    EXPECT_EQ(Text(svString("=key").SpanExcluding("=;")), "");
}

TEST(StringTrim, RightRemovesTrailingWhiteSpace) {
    svString string(" a b \t\r\n\v\f ");
    string.TrimRight();
    EXPECT_EQ(Text(string), " a b");
}

TEST(StringTrim, RightOfThreeBlanksIsEmpty) {
    svString string("   ");
    string.TrimRight();
    EXPECT_EQ(Text(string), "");
}

TEST(StringTrim, RightKeepsBytesAboveAscii) {
    svString string("M\xC3\xBC\xA0");
    string.TrimRight();
    EXPECT_EQ(Text(string), "M\xC3\xBC\xA0");
}

TEST(StringTrim, RightOfACharacterRemovesItsRun) {
    svString string("a/b//");
    string.TrimRight('/');
    EXPECT_EQ(Text(string), "a/b");
}

TEST(StringTrim, RightOfASetRemovesTheRunOfItsCharacters) {
    svString string("a/b:/:");
    string.TrimRight("/:");
    EXPECT_EQ(Text(string), "a/b");
    string.TrimRight("");
    EXPECT_EQ(Text(string), "a/b");
}

TEST(StringTrim, RightOfASetWithinTheStringItself) {
    svString string("ab ba");
    string.TrimRight(string.c_str());
    EXPECT_EQ(Text(string), "");
}

TEST(StringTrim, LeftMovesTheRestToTheFront) {
    svString string(" \tab ");
    string.TrimLeft();
    EXPECT_EQ(Text(string), "ab ");
}

TEST(StringTrim, LeftOfBlanksAloneIsEmpty) {
    svString string("  ");
    string.TrimLeft();
    EXPECT_EQ(Text(string), "");
}

TEST(StringTrim, LeftLeavesAStringThatStartsWithALetterUntouched) {
    svString string("a b");
    const svString::Data* const block = string.GetHeader();
    string.TrimLeft();
    EXPECT_EQ(Text(string), "a b");
    EXPECT_EQ(string.GetHeader(), block);
}

TEST(StringEditing, SetAtReplacesOneCharacter) {
    svString string("abc");
    string.SetAt(0, 'x');
    string.SetAt(2, 'z');
    EXPECT_EQ(Text(string), "xbz");
}

TEST(StringEditing, DeleteClosesTheGapAndReturnsTheOldLength) {
    svString string("abcdefg");
    EXPECT_EQ(string.Delete(2, 3), 7);
    EXPECT_EQ(Text(string), "abfg");
}

TEST(StringEditing, DeleteCountsANegativeIndexAsZero) {
    svString string("abc");
    EXPECT_EQ(string.Delete(-5, 2), 3);
    EXPECT_EQ(Text(string), "c");
}

TEST(StringEditing, DeleteBeyondTheEndOrOfNothingDoesNothing) {
    svString string("abc");
    EXPECT_EQ(string.Delete(3, 1), 3);
    EXPECT_EQ(string.Delete(0, 0), 3);
    EXPECT_EQ(string.Delete(0, -1), 3);
    EXPECT_EQ(Text(string), "abc");
}

TEST(StringEditing, InsertPutsACharacterOrATextAtTheIndex) {
    svString string("ad");
    EXPECT_EQ(string.Insert(1, 'b'), 3);
    EXPECT_EQ(string.Insert(2, "cc"), 5);
    EXPECT_EQ(Text(string), "abccd");
}

TEST(StringEditing, InsertLimitsTheIndexToTheText) {
    svString string("b");
    string.Insert(-4, "a");
    string.Insert(100, 'c');
    EXPECT_EQ(Text(string), "abc");
}

TEST(StringEditing, InsertOfANullTextInsertsNothing) {
    svString string("b");
    EXPECT_EQ(string.Insert(0, static_cast<const char*>(nullptr)), 1);
    EXPECT_EQ(Text(string), "b");
}

TEST(StringEditing, InsertOfItsOwnTextInsertsWhatItWas) {
    svString string("abc");
    string.Insert(1, string.c_str());
    EXPECT_EQ(Text(string), "aabcbc");
    string.GetBuffer(40);
    string.Insert(2, string.c_str() + 3);
    EXPECT_EQ(Text(string), "aacbcbcbc");
}

TEST(StringEditing, ReplaceOfACharacterChangesEveryOne) {
    svString string("a\\b\\c");
    EXPECT_EQ(string.Replace('\\', '/'), 2);
    EXPECT_EQ(Text(string), "a/b/c");
    EXPECT_EQ(string.Replace('x', 'y'), 0);
}

TEST(StringEditing, ReplaceOfATextByALongerOne) {
    svString string("a-b-");
    EXPECT_EQ(string.Replace("-", "+++"), 2);
    EXPECT_EQ(Text(string), "a+++b+++");
}

TEST(StringEditing, ReplaceOfATextByAShorterOneOrNone) {
    svString string("a---b---");
    EXPECT_EQ(string.Replace("--", "+"), 2);
    EXPECT_EQ(Text(string), "a+-b+-");
    EXPECT_EQ(string.Replace("+-", ""), 2);
    EXPECT_EQ(string.Replace("b", nullptr), 1);
    EXPECT_EQ(Text(string), "a");
    EXPECT_EQ(string.Replace("a", ""), 1);
    EXPECT_EQ(Text(string), "");
}

TEST(StringEditing, ReplaceDoesNotLookAtWhatItPutIn) {
    svString string("aa");
    EXPECT_EQ(string.Replace("a", "aa"), 2);
    EXPECT_EQ(Text(string), "aaaa");
}

TEST(StringEditing, ReplaceOfAnEmptyOrNullTextDoesNothing) {
    svString string("abc");
    EXPECT_EQ(string.Replace("", "x"), 0);
    EXPECT_EQ(string.Replace(nullptr, "x"), 0);
    EXPECT_EQ(string.Replace("x", "y"), 0);
    EXPECT_EQ(Text(string), "abc");
}

TEST(StringEditing, ReplaceWithItsOwnText) {
    svString string("a.b");
    EXPECT_EQ(string.Replace(".", string.c_str()), 1);
    EXPECT_EQ(Text(string), "aa.bb");
    EXPECT_EQ(string.Replace(string.c_str(), "x"), 1);
    EXPECT_EQ(Text(string), "x");
}

TEST(StringEditing, RemoveTakesEveryOneOut) {
    svString string("a\"b\"");
    EXPECT_EQ(string.Remove('"'), 2);
    EXPECT_EQ(Text(string), "ab");
    EXPECT_EQ(string.Remove('"'), 0);
}

TEST(StringEditing, EmptyLeavesNothing) {
    svString string("abc");
    string.Empty();
    EXPECT_EQ(Text(string), "");
    string.Empty();
    EXPECT_EQ(Text(string), "");
}

TEST(StringBuffer, WrittenDirectlyIsTakenUpToItsTerminator) {
    svString string;
    char* const buffer = string.GetBuffer(8);
    std::char_traits<char>::copy(buffer, "abcd", 5);
    string.ReleaseBuffer();
    EXPECT_EQ(Text(string), "abcd");
}

TEST(StringBuffer, ReleasedWithALengthIsCutThere) {
    svString string("abcdef");
    string.GetBuffer(0);
    string.ReleaseBuffer(2);
    EXPECT_EQ(Text(string), "ab");
}

TEST(StringBuffer, WithASetLengthHoldsThatManyCharacters) {
    svString string("ab");
    char* const buffer = string.GetBufferSetLength(3);
    buffer[2] = 'c';
    EXPECT_EQ(Text(string), "abc");
}

}  // namespace
}  // namespace vexil
