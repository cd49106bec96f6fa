// The program's text type: 8-bit, zero-terminated, reference-counted, copy-on-write. A copy is O(1) until one
// of the two is written. Blocks fit exactly: nothing is rounded up or grown ahead.
//
// Broken preconditions and invariants stop the program with an assertion line, in every build type.
//
// Threads: blocks may be shared between threads for copying and destroying (the count is atomic). One svString object
// must not be written by two threads.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

namespace vexil {

class svString {
  public:
    // The counted header that precedes the characters in their heap block.
    struct Data {
        std::atomic<std::int32_t> nRefs;   // number of strings sharing the block; -1: locked, not shareable
        std::int32_t nDataLength;          // characters in use, without the terminator
        std::int32_t nAllocLength;         // characters the block can hold, without the terminator

        char* Characters() { return reinterpret_cast<char*>(this + 1); }
    };

    svString();
    svString(const char* text);                    // NOLINT(google-explicit-constructor): texts are literals
    svString(const char* lpch, int nLength);       // null with a non-zero length is an assertion
    svString(char character, int nRepeat);         // empty when nRepeat < 1
    svString(const svString& stringSrc);
    ~svString();

    svString& operator=(const svString& stringSrc);
    svString& operator=(const char* lpsz);
    svString& operator=(char character);

    svString& operator+=(const svString& string);
    svString& operator+=(const char* lpsz);
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

    // -1 when nothing is found.
    int Find(char character) const;
    int Find(char character, int nStart) const;
    int Find(const char* lpszSub) const;
    int Find(const char* lpszSub, int nStart) const;
    int FindOneOf(const char* lpszCharSet) const;

    svString Mid(int nFirst, int nCount) const;
    svString Mid(int nFirst) const;
    svString Left(int nCount) const;
    svString Right(int nCount) const;
    svString SpanExcluding(const char* lpszCharSet) const;

    void TrimRight();
    void TrimRight(char character);
    void TrimRight(const char* lpszCharSet);
    void TrimLeft();

    void SetAt(int nIndex, char character);
    // Returns the length before the deletion. The caller keeps nIndex + nCount within the string.
    int Delete(int nIndex, int nCount = 1);
    // Both return the new length.
    int Insert(int nIndex, char character);
    int Insert(int nIndex, const char* lpsz);
    // All three return the number of places changed.
    int Replace(char chOld, char chNew);
    int Replace(const char* lpszOld, const char* lpszNew);
    int Remove(char character);
    void Empty();

    // Makes the block private and able to hold nMinBufLength characters. ReleaseBuffer ends the direct access.
    char* GetBuffer(int nMinBufLength);
    void ReleaseBuffer(int nNewLength = -1);
    char* GetBufferSetLength(int nNewLength);
    void FreeExtra();
    char* LockBuffer();
    void UnlockBuffer();

    // printf-style formatting into this string. The arguments must not point into it.
    void Format(const char* lpszFormat, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(const char* lpszFormat, va_list argList) __attribute__((format(printf, 2, 0)));

  private:
    char* m_pchData;
};

svString operator+(const svString& left, const svString& right);
svString operator+(const svString& left, const char* right);
svString operator+(const char* left, const svString& right);
svString operator+(const svString& left, char right);
svString operator+(char left, const svString& right);

bool operator==(const svString& left, const svString& right);
bool operator==(const svString& left, const char* right);

}  // namespace vexil
