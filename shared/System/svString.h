// The program's text type: 8-bit, zero-terminated, reference-counted, copy-on-write. A copy is O(1) until one
// of the two is written. Blocks fit exactly: nothing is rounded up or grown ahead, so every append that does
// not fit makes a new block.
//
// Every string is in one of three states. Shared: its block is counted more than once and is copied before
// this string is written, also by an edit that then finds nothing to change. Private: counted once, written
// in place. Locked: LockBuffer was called; the block is written in place and copies of the string get a block
// of their own. A string that is made empty, or emptied by Empty(), has the one static empty block; an edit
// that happens to leave nothing (Delete, TrimRight) keeps its block.
//
// Indices are byte positions from 0; -1 stands for "not found". A text argument may lie within the string
// that is written.
//
// Broken preconditions and invariants stop the program with an assertion line, in every build type.
// Allocation failure is std::bad_alloc and leaves the string as it was.
//
// Threads: blocks may be shared between threads for copying and destroying (the count is atomic). One
// svString object must not be written by two threads.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace vexil {

class svString {
  public:
    // The counted header that precedes the characters in their heap block.
    struct Data {
        std::atomic<std::int32_t> nRefs;  // number of strings sharing the block; -1: locked, not shareable
        std::int32_t nDataLength;         // characters in use, without the terminator
        std::int32_t nAllocLength;        // characters the block can hold, without the terminator

        char* Characters() { return static_cast<char*>(static_cast<void*>(this + 1)); }
    };

    svString();
    svString(const char* text);  // NOLINT(google-explicit-constructor): texts are literals
    svString(const char* lpch,
             int nLength);                  // null, or a negative length, is an assertion unless nLength is 0
    svString(char character, int nRepeat);  // empty when nRepeat < 1
    svString(const svString& stringSrc);    // of a locked string: its text up to the first zero byte
    ~svString();

    svString& operator=(const svString& stringSrc);
    svString& operator=(const char* lpsz);  // null counts as ""
    svString& operator=(char character);

    svString& operator+=(const svString& string);
    svString& operator+=(const char* lpsz);  // null counts as ""
    svString& operator+=(char character);

    // The characters; never null; valid until this string is written or destroyed.
    const char* c_str() const;
    int GetLength() const;
    int GetAllocLength() const;
    bool IsEmpty() const;
    // The header of this string's block, for checks of sharing and fit; owned by the string.
    const Data* GetHeader() const;
    // Byte-wise order as strcmp. A null `lpsz` is an assertion.
    int Compare(const char* lpsz) const;

    // The first match at or after nStart, which counts as 0 when negative. A start at the end finds no
    // character and only the empty text. Null is an assertion.
    int Find(char character) const;
    int Find(char character, int nStart) const;
    int Find(const char* lpszSub) const;
    int Find(const char* lpszSub, int nStart) const;
    int FindOneOf(const char* lpszCharSet) const;

    // Negative arguments count as 0, and the rest of the string is the most that is taken. The whole string
    // comes back as a copy that shares the block.
    svString Mid(int nFirst, int nCount) const;
    svString Mid(int nFirst) const;
    svString Left(int nCount) const;
    svString Right(int nCount) const;
    // The text in front of the first character that is in the set. Null is an assertion.
    svString SpanExcluding(const char* lpszCharSet) const;

    // Without an argument: the white space of the current locale. A null set is an assertion.
    void TrimRight();
    void TrimRight(char character);
    void TrimRight(const char* lpszCharSet);
    void TrimLeft();

    // nIndex must be within the text.
    void SetAt(int nIndex, char character);
    // Returns the length before the deletion. A negative nIndex counts as 0; nothing happens when it is
    // beyond the text or nCount < 1. The caller keeps nIndex + nCount within the string.
    int Delete(int nIndex, int nCount = 1);
    // Both return the new length. nIndex is limited to the text; a null text is not inserted.
    int Insert(int nIndex, char character);
    int Insert(int nIndex, const char* lpsz);
    // All three return the number of places changed. Nothing is replaced when lpszOld is null or empty; a
    // null lpszNew counts as "".
    int Replace(char chOld, char chNew);
    int Replace(const char* lpszOld, const char* lpszNew);
    int Remove(char character);
    // Gives the block up, or keeps it with length 0 when it is locked.
    void Empty();

    // Makes the block private and able to hold nMinBufLength characters, and hands out its characters, which
    // the caller may write, terminator included, until the next call of any member. ReleaseBuffer ends the
    // direct access and sets the length (-1: up to the first zero byte). On an empty string GetBuffer(0)
    // hands out nothing to write to.
    char* GetBuffer(int nMinBufLength);
    void ReleaseBuffer(int nNewLength = -1);
    char* GetBufferSetLength(int nNewLength);
    // Gives back what the block holds beyond the text.
    void FreeExtra();
    // Between the two, copies of this string do not share its block. A text that outgrows the block ends the
    // lock.
    char* LockBuffer();
    void UnlockBuffer();

    // printf-style formatting into this string. The block is first made as large as the format's greatest
    // length is estimated, far above the need for long texts and numbers; FreeExtra gives the rest back.
    // Conversions: s, hs, hS, d, i, o, u, x, X, p, e, g, G, f, n and %%, with l or h before the integers and
    // L before the floating ones. Any other (c among them), a negative width or precision, and a text longer
    // than the estimate are assertions.
    void Format(const char* lpszFormat, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* lpszFormat, va_list argList) __attribute__((format(printf, 2, 0)));

  private:
    static Data* AllocBuffer(std::int64_t nLen);
    static void FreeData(Data* pData);
    static svString Join(const char* left, std::int64_t nLeft, const char* right, std::int64_t nRight);

    Data* GetData() const;
    bool Owns(const char* text) const;
    void SetLength(std::int64_t nLength);
    void Adopt(Data* pData);
    void Share(const svString& stringSrc);
    void Release();
    void CopyBeforeWrite();
    Data* AllocBeforeWrite(std::int64_t nLength);
    void AssignCopy(std::int64_t nSrcLength, const char* src);
    void ConcatInPlace(std::int64_t nCount, const char* src);
    void Reserve(std::int64_t nMinBufLength);
    int InsertText(int nIndex, const char* text, std::int64_t nLength);
    void TruncateTo(int nLength);

    friend svString operator+(const svString& left, const svString& right);
    friend svString operator+(const svString& left, const char* right);
    friend svString operator+(const char* left, const svString& right);
    friend svString operator+(const svString& left, char right);
    friend svString operator+(char left, const svString& right);

    char* m_pchData;
};

// A null text counts as "".
svString operator+(const svString& left, const svString& right);
svString operator+(const svString& left, const char* right);
svString operator+(const char* left, const svString& right);
svString operator+(const svString& left, char right);
svString operator+(char left, const svString& right);

// Equality as Compare.
bool operator==(const svString& left, const svString& right);
bool operator==(const svString& left, const char* right);

}  // namespace vexil
