// The blocks behind the text type: exact fit, sharing, copying before a write, locking.
#include <gtest/gtest.h>

#include <string>

#include "shared/System/svString.h"

namespace vexil {
namespace {

const svString::Data* EmptyBlock() {
    return svString().GetHeader();
}

int Refs(const svString& string) {
    return string.GetHeader()->nRefs;
}

TEST(StringBlock, OfEveryEmptyStringIsTheSameUncountedOne) {
    const svString first;
    const svString second("");
    const svString copy(first);
    EXPECT_EQ(first.GetHeader(), second.GetHeader());
    EXPECT_EQ(first.GetHeader(), copy.GetHeader());
    EXPECT_EQ(Refs(first), -1);
    EXPECT_EQ(first.GetAllocLength(), 0);
}

TEST(StringBlock, OfTheEmptyStringIsLeftAsItIsByEveryEdit) {
    svString string;
    const svString empty;
    string += empty;
    string = empty;
    string = "";
    string.TrimLeft();
    string.TrimRight();
    string.Remove('x');
    string.Delete(0, 1);
    string.Insert(0, "");
    string.GetBufferSetLength(0);
    string.ReleaseBuffer();
    string.FreeExtra();
    string.Empty();
    string.LockBuffer();
    string.UnlockBuffer();
    EXPECT_EQ(string.GetHeader(), EmptyBlock());
    EXPECT_EQ(Refs(string), -1);
    EXPECT_STREQ(string.c_str(), "");
}

TEST(StringBlock, FitsExactly) {
    EXPECT_EQ(svString("abc").GetAllocLength(), 3);
    EXPECT_EQ(svString("abcdef", 4).GetAllocLength(), 4);
    EXPECT_EQ(svString('x', 5).GetAllocLength(), 5);
    EXPECT_EQ((svString("ab") + "cde").GetAllocLength(), 5);
    EXPECT_EQ((svString() + "").GetHeader(), EmptyBlock());
}

TEST(StringBlock, AppendedToGrowsExactlyEveryTime) {
    svString string("a");
    for (int length = 2; length < 20; ++length) {
        string += 'x';
        EXPECT_EQ(string.GetAllocLength(), length);
    }
}

TEST(StringBlock, AppendedToIsKeptWhenTheTextFits) {
    svString string("a");
    string.GetBuffer(10);
    const svString::Data* const block = string.GetHeader();
    string += "bcd";
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(string.GetAllocLength(), 10);
}

TEST(StringBlock, IsSharedByACopy) {
    const svString string("abc");
    {
        const svString copy(string);
        EXPECT_EQ(copy.GetHeader(), string.GetHeader());
        EXPECT_EQ(Refs(string), 2);
    }
    EXPECT_EQ(Refs(string), 1);
}

TEST(StringBlock, IsSharedByAssignment) {
    const svString string("abc");
    svString other("other");
    other = string;
    EXPECT_EQ(other.GetHeader(), string.GetHeader());
    EXPECT_EQ(Refs(string), 2);
}

TEST(StringBlock, IsSharedByTheWholeOfAnExtraction) {
    const svString string("abc");
    EXPECT_EQ(string.Mid(0, 3).GetHeader(), string.GetHeader());
    EXPECT_EQ(string.Mid(-1, 9).GetHeader(), string.GetHeader());
    EXPECT_EQ(string.Mid(0).GetHeader(), string.GetHeader());
    EXPECT_EQ(string.Left(3).GetHeader(), string.GetHeader());
    EXPECT_EQ(string.Right(8).GetHeader(), string.GetHeader());
    EXPECT_EQ(string.SpanExcluding("x").GetHeader(), string.GetHeader());
}

TEST(StringBlock, OfAnExtractionOfNothingIsTheEmptyOne) {
    EXPECT_EQ(svString("abc").Mid(1, 0).GetHeader(), EmptyBlock());
    EXPECT_EQ(svString("abc").Mid(9, 1).GetHeader(), EmptyBlock());
    EXPECT_EQ(svString("abc").Left(-3).GetHeader(), EmptyBlock());
}

TEST(StringBlock, AssignedATextIsReusedWhenItFits) {
    svString string("abcdef");
    const svString::Data* const block = string.GetHeader();
    string = "xy";
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(string.GetAllocLength(), 6);
    string = svString();
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(string.GetLength(), 0);
}

TEST(StringBlock, AssignedALongerTextIsReplacedByAnExactOne) {
    svString string("ab");
    string = "abcd";
    EXPECT_EQ(string.GetAllocLength(), 4);
}

TEST(StringBlock, SharedIsReplacedByAssigningAText) {
    svString string("abcdef");
    const svString copy(string);
    string = "xy";
    EXPECT_EQ(string.GetAllocLength(), 2);
    EXPECT_EQ(Refs(copy), 1);
    EXPECT_STREQ(copy.c_str(), "abcdef");
}

TEST(StringBlock, SharedIsReplacedByAssigningItsOwnTail) {
    svString string("abcdef");
    {
        const svString copy(string);
        string = string.c_str() + 3;
    }
    EXPECT_STREQ(string.c_str(), "def");
}

// An edit of a string whose block is shared leaves the other owner alone and makes an exact block first.
struct Edit {
    const char* name;
    void (*run)(svString& string);
    int allocLength;
};

class SharedStringEdit : public testing::TestWithParam<Edit> {};

TEST_P(SharedStringEdit, CopiesTheBlockFirst) {
    svString string("  text  ");
    const svString other(string);
    GetParam().run(string);
    EXPECT_STREQ(other.c_str(), "  text  ");
    EXPECT_EQ(Refs(other), 1);
    EXPECT_NE(string.GetHeader(), other.GetHeader());
    EXPECT_EQ(Refs(string), 1);
    EXPECT_EQ(string.GetAllocLength(), GetParam().allocLength);
}

INSTANTIATE_TEST_SUITE_P(
    Edits, SharedStringEdit,
    testing::Values(Edit{"SetAt", [](svString& string) { string.SetAt(0, 'x'); }, 8},
                    Edit{"Delete", [](svString& string) { string.Delete(0, 2); }, 8},
                    Edit{"TrimRight", [](svString& string) { string.TrimRight(); }, 8},
                    Edit{"TrimRightCharacter", [](svString& string) { string.TrimRight(' '); }, 8},
                    Edit{"TrimRightSet", [](svString& string) { string.TrimRight(" "); }, 8},
                    Edit{"TrimLeft", [](svString& string) { string.TrimLeft(); }, 8},
                    Edit{"ReleaseBuffer", [](svString& string) { string.ReleaseBuffer(); }, 8},
                    Edit{"InsertCharacter", [](svString& string) { string.Insert(2, 'x'); }, 9},
                    Edit{"InsertText", [](svString& string) { string.Insert(2, "xyz"); }, 11},
                    Edit{"InsertNothing", [](svString& string) { string.Insert(2, ""); }, 8},
                    Edit{"ReplaceCharacter", [](svString& string) { string.Replace('t', 'T'); }, 8},
                    Edit{"ReplaceTextShorter", [](svString& string) { string.Replace("text", "x"); }, 8},
                    Edit{"ReplaceTextLonger", [](svString& string) { string.Replace("t", "tt"); }, 10},
                    Edit{"Remove", [](svString& string) { string.Remove('t'); }, 8},
                    Edit{"GetBuffer", [](svString& string) { string.GetBuffer(0); }, 8},
                    Edit{"GetBufferLarger", [](svString& string) { string.GetBuffer(20); }, 20},
                    Edit{"Append", [](svString& string) { string += 'x'; }, 9},
                    Edit{"Format", [](svString& string) { string.Format("%d", 1); }, 32}),
    [](const auto& edit) { return edit.param.name; });

// An edit that finds nothing to change makes the block private nevertheless, and the text stays.
class SharedStringEditWithoutEffect : public testing::TestWithParam<Edit> {};

TEST_P(SharedStringEditWithoutEffect, CopiesTheBlockFirst) {
    svString string("a text");
    const svString other(string);
    GetParam().run(string);
    EXPECT_STREQ(string.c_str(), "a text");
    EXPECT_STREQ(other.c_str(), "a text");
    EXPECT_NE(string.GetHeader(), other.GetHeader());
    EXPECT_EQ(Refs(string), 1);
    EXPECT_EQ(Refs(other), 1);
    EXPECT_EQ(string.GetAllocLength(), GetParam().allocLength);
}

TEST_P(SharedStringEditWithoutEffect, LeavesAPrivateBlockInItsPlace) {
    svString string("a text");
    const svString::Data* const block = string.GetHeader();
    GetParam().run(string);
    EXPECT_STREQ(string.c_str(), "a text");
    EXPECT_EQ(string.GetHeader(), block);
}

INSTANTIATE_TEST_SUITE_P(
    Edits, SharedStringEditWithoutEffect,
    testing::Values(Edit{"TrimRight", [](svString& string) { string.TrimRight(); }, 6},
                    Edit{"TrimRightCharacter", [](svString& string) { string.TrimRight('x'); }, 6},
                    Edit{"TrimRightSet", [](svString& string) { string.TrimRight("xyz"); }, 6},
                    Edit{"TrimRightEmptySet", [](svString& string) { string.TrimRight(""); }, 6},
                    Edit{"TrimLeft", [](svString& string) { string.TrimLeft(); }, 6},
                    Edit{"ReplaceCharacter", [](svString& string) { string.Replace('z', 'y'); }, 6},
                    Edit{"ReplaceCharacterByItself", [](svString& string) { string.Replace('t', 't'); }, 6},
                    Edit{"ReplaceText", [](svString& string) { string.Replace("none", "some"); }, 6},
                    Edit{"ReplaceEmptyText", [](svString& string) { string.Replace("", "some"); }, 6},
                    Edit{"ReplaceNullText", [](svString& string) { string.Replace(nullptr, "some"); }, 6},
                    Edit{"Remove", [](svString& string) { string.Remove('z'); }, 6}),
    [](const auto& edit) { return edit.param.name; });

TEST(StringBlock, IsKeptByAnEditThatLeavesNothing) {
    svString string("   ");
    const svString::Data* const block = string.GetHeader();
    string.TrimRight();
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(string.GetLength(), 0);
    EXPECT_EQ(string.GetAllocLength(), 3);
}

TEST(StringBlock, IsGivenUpByEmpty) {
    svString string("abc");
    const svString other(string);
    string.Empty();
    EXPECT_EQ(string.GetHeader(), EmptyBlock());
    EXPECT_EQ(Refs(other), 1);
}

TEST(StringBlock, GrowsToExactlyTheNewLengthByInsertAndReplace) {
    svString string("ac");
    string.Insert(1, 'b');
    EXPECT_EQ(string.GetAllocLength(), 3);
    string.Replace("b", "xyz");
    EXPECT_EQ(string.GetAllocLength(), 5);
}

TEST(StringBlock, IsMadeAsLargeAsGetBufferAsksAndKeepsTheText) {
    svString string("abc");
    EXPECT_STREQ(string.GetBuffer(10), "abc");
    EXPECT_EQ(string.GetAllocLength(), 10);
    EXPECT_EQ(string.GetLength(), 3);
}

TEST(StringBlock, IsNeverMadeSmallerThanTheTextByGetBuffer) {
    svString string("abcdef");
    const svString other(string);
    EXPECT_STREQ(string.GetBuffer(2), "abcdef");
    EXPECT_EQ(string.GetAllocLength(), 6);
}

TEST(StringBlock, IsGivenBackWhatItHoldsTooMuchByFreeExtra) {
    svString string("abc");
    string.GetBuffer(100);
    string.FreeExtra();
    EXPECT_EQ(string.GetAllocLength(), 3);
    EXPECT_STREQ(string.c_str(), "abc");
}

TEST(StringBlock, WithoutTextIsGivenUpByFreeExtra) {
    svString string("   ");
    string.TrimRight();
    string.FreeExtra();
    EXPECT_EQ(string.GetHeader(), EmptyBlock());
}

TEST(StringBlock, ThatFitsIsKeptByFreeExtra) {
    svString string("abc");
    const svString other(string);
    string.FreeExtra();
    EXPECT_EQ(string.GetHeader(), other.GetHeader());
}

TEST(LockedString, IsMadePrivateFirst) {
    svString string("abc");
    const svString other(string);
    const char* const characters = string.LockBuffer();
    EXPECT_EQ(characters, string.c_str());
    EXPECT_NE(string.GetHeader(), other.GetHeader());
    EXPECT_EQ(Refs(string), -1);
}

TEST(LockedString, IsCopiedIntoAPrivateBlock) {
    svString string("abc");
    string.LockBuffer();
    const svString copy(string);
    EXPECT_NE(copy.GetHeader(), string.GetHeader());
    EXPECT_EQ(Refs(copy), 1);
    EXPECT_EQ(Refs(string), -1);
    EXPECT_STREQ(copy.c_str(), "abc");
}

TEST(LockedString, IsCopiedUpToItsFirstZeroByte) {
    svString string("abcdef");
    string.SetAt(3, '\0');
    string.LockBuffer();
    const svString copy(string);
    EXPECT_EQ(copy.GetLength(), 3);
}

TEST(LockedString, IsAssignedWithItsWholeLength) {
    svString string("abcdef");
    string.SetAt(3, '\0');
    string.LockBuffer();
    svString copy;
    copy = string;
    EXPECT_NE(copy.GetHeader(), string.GetHeader());
    EXPECT_EQ(copy.GetLength(), 6);
}

TEST(LockedString, TakesATextThatFitsIntoItsOwnBlock) {
    svString string("abcdef");
    string.LockBuffer();
    const svString::Data* const block = string.GetHeader();
    const svString source("xy");
    string = source;
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(Refs(string), -1);
    EXPECT_EQ(Refs(source), 1);
    EXPECT_STREQ(string.c_str(), "xy");
}

TEST(LockedString, IsWrittenInPlace) {
    svString string("abc");
    string.LockBuffer();
    const svString::Data* const block = string.GetHeader();
    string.SetAt(0, 'x');
    string.Delete(1, 1);
    string += 'y';
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_STREQ(string.c_str(), "xcy");
}

TEST(LockedString, ThatOutgrowsItsBlockIsLockedNoMore) {
    svString string("abc");
    string.LockBuffer();
    string += "def";
    EXPECT_EQ(Refs(string), 1);
    EXPECT_STREQ(string.c_str(), "abcdef");
}

TEST(LockedString, MadeEmptyKeepsItsBlock) {
    svString string("abc");
    string.LockBuffer();
    const svString::Data* const block = string.GetHeader();
    string.Empty();
    EXPECT_EQ(string.GetHeader(), block);
    EXPECT_EQ(string.GetLength(), 0);
    EXPECT_EQ(string.GetAllocLength(), 3);
    EXPECT_STREQ(string.c_str(), "");
}

TEST(LockedString, EmptyIsCopiedWithoutABlock) {
    svString string("abc");
    string.LockBuffer();
    string.Empty();
    EXPECT_EQ(svString(string).GetHeader(), EmptyBlock());
}

TEST(LockedString, UnlockedSharesAgain) {
    svString string("abc");
    string.LockBuffer();
    string.UnlockBuffer();
    EXPECT_EQ(Refs(string), 1);
    const svString copy(string);
    EXPECT_EQ(copy.GetHeader(), string.GetHeader());
}

}  // namespace
}  // namespace vexil
