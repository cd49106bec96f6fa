// Each broken precondition and invariant of the text type ends the process with its own text. Invariants that
// no operation breaks are broken here in the header.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "shared/System/svString.h"
#include "tests/foundation/FailedAssertion.h"

namespace vexil {
namespace {

svString::Data& Header(const svString& string) {
    return const_cast<svString::Data&>(*string.GetHeader());
}

// A string that lost its characters. Never destroyed: the death comes first.
svString& NullString() {
    alignas(svString) static unsigned char bytes[sizeof(svString)] = {};
    return *static_cast<svString*>(static_cast<void*>(bytes));
}

const char* const kNoText = nullptr;

TEST(StringAssertion, NullCharacters) {
    EXPECT_STRING_ASSERTION(NullString().c_str(), "m_pchData != 0");
    EXPECT_STRING_ASSERTION(NullString().GetLength(), "m_pchData != 0");
    EXPECT_STRING_ASSERTION(NullString() += "x", "m_pchData != 0");
    EXPECT_STRING_ASSERTION(NullString().Empty(), "m_pchData != 0");
    EXPECT_STRING_ASSERTION(svString{NullString()}, "m_pchData != 0");
}

TEST(StringAssertion, BlockTooLarge) {
    EXPECT_STRING_ASSERTION(svString('x', INT_MAX), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(svString().GetBuffer(INT_MAX), "nLen <= INT_MAX - 1");
    EXPECT_STRING_ASSERTION(svString().GetBufferSetLength(INT_MAX), "nLen <= INT_MAX - 1");
}

TEST(StringAssertion, ReleaseOfABlockThatNobodyCounts) {
    const auto releaseByEmpty = [] {
        svString string("abc");
        Header(string).nRefs = 0;
        string.Empty();
    };
    EXPECT_STRING_ASSERTION(releaseByEmpty(), "GetData()->nRefs != 0");
    const auto releaseByEnd = [] {
        const svString string("abc");
        Header(string).nRefs = 0;
    };
    EXPECT_STRING_ASSERTION(releaseByEnd(), "GetData()->nRefs != 0");
    const auto releaseByAssignment = [] {
        svString string("abc");
        Header(string).nRefs = 0;
        string = "longer than before";
    };
    EXPECT_STRING_ASSERTION(releaseByAssignment(), "GetData()->nRefs != 0");
    const auto releaseByAppending = [] {
        svString string("abc");
        Header(string).nRefs = 0;
        string += "def";
    };
    EXPECT_STRING_ASSERTION(releaseByAppending(), "pData->nRefs != 0");
    const auto releaseByGetBuffer = [] {
        svString string("abc");
        Header(string).nRefs = 0;
        string.GetBuffer(10);
    };
    EXPECT_STRING_ASSERTION(releaseByGetBuffer(), "pData->nRefs != 0");
}

TEST(StringAssertion, CopyOfABlockThatNobodyCounts) {
    const auto copy = [] {
        const svString string("abc");
        Header(string).nRefs = 0;
        const svString other(string);
    };
    EXPECT_STRING_ASSERTION(copy(), "stringSrc.GetData()->nRefs != 0");
    const auto assign = [] {
        const svString string("abc");
        Header(string).nRefs = 0;
        svString other;
        other = string;
    };
    EXPECT_STRING_ASSERTION(assign(), "stringSrc.GetData()->nRefs != 0");
}

TEST(StringAssertion, SharingOfTheEmptyBlock) {
    const auto copy = [] {
        const svString string;
        Header(string).nRefs = 1;
        const svString other(string);
    };
    EXPECT_STRING_ASSERTION(copy(), "stringSrc.GetData() != sDataNil");
}

TEST(StringAssertion, BlockThatIsStillSharedWhenItIsWritten) {
    const auto releaseBuffer = [] {
        svString string;
        Header(string).nRefs = 2;
        string.ReleaseBuffer();
    };
    EXPECT_STRING_ASSERTION(releaseBuffer(), "GetData()->nRefs <= 1");
    const auto assign = [] {
        svString string;
        Header(string).nRefs = 2;
        string = "";
    };
    EXPECT_STRING_ASSERTION(assign(), "GetData()->nRefs <= 1");
    const auto getBuffer = [] {
        svString string;
        Header(string).nRefs = 2;
        string.GetBuffer(0);
    };
    EXPECT_STRING_ASSERTION(getBuffer(), "GetData()->nRefs <= 1");
}

TEST(StringAssertion, EmptiedStringThatIsNotEmpty) {
    const auto length = [] {
        svString string;
        Header(string).nDataLength = 1;
        string.Empty();
    };
    EXPECT_STRING_ASSERTION(length(), "GetData()->nDataLength == 0");
    const auto allocation = [] {
        svString string;
        Header(string).nRefs = 1;
        Header(string).nAllocLength = 1;
        string.Empty();
    };
    EXPECT_STRING_ASSERTION(allocation(), "GetData()->nRefs < 0 || GetData()->nAllocLength == 0");
}

TEST(StringAssertion, LengthAboveTheAllocation) {
    const auto freeExtra = [] {
        svString string("abc");
        Header(string).nAllocLength = 2;
        string.FreeExtra();
    };
    EXPECT_STRING_ASSERTION(freeExtra(), "GetData()->nDataLength <= GetData()->nAllocLength");
}

TEST(StringAssertion, BadBufferLengths) {
    EXPECT_STRING_ASSERTION(svString("abc").GetBuffer(-1), "nMinBufLength >= 0");
    EXPECT_STRING_ASSERTION(svString("abc").GetBufferSetLength(-1), "nNewLength >= 0");
    EXPECT_STRING_ASSERTION(svString("abc").ReleaseBuffer(-2), "nNewLength >= 0");
    EXPECT_STRING_ASSERTION(svString("abc").ReleaseBuffer(4), "nNewLength <= (int)(GetData()->nAllocLength)");
    EXPECT_STRING_ASSERTION(svString().ReleaseBuffer(1), "nNewLength <= (int)(GetData()->nAllocLength)");
}

TEST(StringAssertion, BufferWrittenWithoutATerminator) {
    const auto overwrite = [] {
        svString string("abc");
        std::memset(string.GetBuffer(0), 'x', 4);
        string.ReleaseBuffer();
    };
    EXPECT_STRING_ASSERTION(overwrite(), "nNewLength <= (int)(GetData()->nAllocLength)");
}

TEST(StringAssertion, FreeExtraOfATextWithoutATerminator) {
    const auto overwrite = [] {
        svString string("abc");
        string.GetBuffer(0)[3] = 'x';
        string.FreeExtra();
    };
    EXPECT_STRING_ASSERTION(overwrite(), "m_pchData[GetData()->nDataLength] == '\\0'");
}

TEST(StringAssertion, UnlockOfAStringThatIsNotLocked) {
    EXPECT_STRING_ASSERTION(svString("abc").UnlockBuffer(), "GetData()->nRefs == -1");
}

TEST(StringAssertion, SetAtOutsideTheText) {
    EXPECT_STRING_ASSERTION(svString("abc").SetAt(-1, 'x'), "nIndex >= 0");
    EXPECT_STRING_ASSERTION(svString("abc").SetAt(3, 'x'), "nIndex < (int)(GetData()->nDataLength)");
    EXPECT_STRING_ASSERTION(svString().SetAt(0, 'x'), "nIndex < (int)(GetData()->nDataLength)");
}

TEST(StringAssertion, DeleteBeyondTheText) {
    EXPECT_STRING_ASSERTION(svString("abc").Delete(2, 2), "nIndex + nCount <= (int)(GetData()->nDataLength)");
    EXPECT_STRING_ASSERTION(svString("abc").Delete(1, INT_MAX),
                            "nIndex + nCount <= (int)(GetData()->nDataLength)");
}

TEST(StringAssertion, MissingTexts) {
    EXPECT_STRING_ASSERTION(svString("abc").Find(kNoText), "gIsValidString(lpszSub)");
    EXPECT_STRING_ASSERTION(svString("abc").Find(kNoText, 9), "gIsValidString(lpszSub)");
    EXPECT_STRING_ASSERTION(svString("abc").FindOneOf(kNoText), "gIsValidString(lpszCharSet)");
    EXPECT_STRING_ASSERTION(svString("abc").SpanExcluding(kNoText), "gIsValidString(lpszCharSet)");
    EXPECT_STRING_ASSERTION(svString("abc").TrimRight(kNoText), "gIsValidString(lpszCharSet)");
    EXPECT_STRING_ASSERTION(svString("abc").Compare(kNoText), "gIsValidString(lpsz)");
    EXPECT_STRING_ASSERTION(svString(nullptr, 3), "gIsValidAddress(lpch, nLength, FALSE)");
    EXPECT_STRING_ASSERTION(svString("abc", -1), "gIsValidAddress(lpch, nLength, FALSE)");
}

}  // namespace
}  // namespace vexil
