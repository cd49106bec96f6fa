#include "shared/System/svString.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <string_view>

#include "shared/System/svStringCheck.h"

namespace vexil {

namespace {

// The block of every empty string. Its count of -1 keeps it out of all counting; nothing ever writes to it,
// so that strings of different threads may stand on it.
struct NilBlock {
    svString::Data data;
    char terminator;
};
constinit NilBlock nilBlock = {{{-1}, 0, 0}, '\0'};
static_assert(offsetof(NilBlock, terminator) == sizeof(svString::Data));

svString::Data* const sDataNil = &nilBlock.data;

// The value before the addition.
std::int32_t AddAtomic(std::int32_t amount, std::atomic<std::int32_t>& value) {
    return value.fetch_add(amount, std::memory_order_acq_rel);
}

std::int64_t TextLength(const char* text) {
    return text == nullptr ? 0 : static_cast<std::int64_t>(std::strlen(text));
}

void CopyText(char* to, const char* from, std::int64_t length) {
    if (length > 0) {
        std::memmove(to, from, static_cast<std::size_t>(length));
    }
}

bool IsWhiteSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

}  // namespace

// Blocks and their counts.

svString::Data* svString::AllocBuffer(std::int64_t nLen) {
    if (nLen == 0) {
        return sDataNil;
    }
    CheckString(nLen <= INT_MAX - 1, "nLen <= INT_MAX - 1");
    const auto length = static_cast<std::int32_t>(nLen);
    void* const block = ::operator new(sizeof(Data) + static_cast<std::size_t>(nLen) + 1);
    Data* const data = ::new (block) Data{{1}, length, length};
    data->Characters()[length] = '\0';
    return data;
}

void svString::FreeData(Data* pData) {
    if (pData == sDataNil) {
        return;
    }
    CheckString(pData->nRefs != 0, "pData->nRefs != 0");
    if (AddAtomic(-1, pData->nRefs) - 1 <= 0) {
        pData->~Data();
        ::operator delete(pData);
    }
}

svString::Data* svString::GetData() const {
    CheckString(m_pchData != nullptr, "m_pchData != 0");
    return static_cast<Data*>(static_cast<void*>(m_pchData)) - 1;
}

// Whether `text` points into this string's block, where a write would change it or give it away.
bool svString::Owns(const char* text) const {
    const std::less<> before;
    return !before(text, m_pchData) && !before(m_pchData + GetData()->nAllocLength, text);
}

// Sets the length of a private block that is large enough. The static empty block holds what it has to
// already.
void svString::SetLength(std::int64_t nLength) {
    if (GetData() == sDataNil) {
        return;
    }
    GetData()->nDataLength = static_cast<std::int32_t>(nLength);
    m_pchData[nLength] = '\0';
}

// Stands on `pData`, whose one reference becomes this string's; the block before it is the caller's to
// release.
void svString::Adopt(Data* pData) {
    m_pchData = pData->Characters();
}

// Takes a counted reference on the block of `stringSrc`.
void svString::Share(const svString& stringSrc) {
    CheckString(stringSrc.GetData()->nRefs != 0, "stringSrc.GetData()->nRefs != 0");
    CheckString(stringSrc.GetData() != sDataNil, "stringSrc.GetData() != sDataNil");
    AddAtomic(1, stringSrc.GetData()->nRefs);
    m_pchData = stringSrc.m_pchData;
}

void svString::Release() {
    if (GetData() == sDataNil) {
        return;
    }
    CheckString(GetData()->nRefs != 0, "GetData()->nRefs != 0");
    FreeData(GetData());
    Adopt(sDataNil);
}

void svString::CopyBeforeWrite() {
    if (GetData()->nRefs > 1) {
        Data* const pData = GetData();
        Data* const copy = AllocBuffer(pData->nDataLength);
        CopyText(copy->Characters(), m_pchData, pData->nDataLength);
        Adopt(copy);
        FreeData(pData);
    }
    CheckString(GetData()->nRefs <= 1, "GetData()->nRefs <= 1");
}

// Returns the block that was replaced, to be released when the new text has been copied: the text may lie in
// it. The static empty block when nothing was replaced.
svString::Data* svString::AllocBeforeWrite(std::int64_t nLength) {
    Data* replaced = sDataNil;
    if (GetData()->nRefs > 1 || nLength > GetData()->nAllocLength) {
        CheckString(GetData()->nRefs != 0, "GetData()->nRefs != 0");
        Data* const fresh = AllocBuffer(nLength);
        replaced = GetData();
        Adopt(fresh);
    }
    CheckString(GetData()->nRefs <= 1, "GetData()->nRefs <= 1");
    return replaced;
}

void svString::AssignCopy(std::int64_t nSrcLength, const char* src) {
    Data* const replaced = AllocBeforeWrite(nSrcLength);
    CopyText(m_pchData, src, nSrcLength);
    SetLength(nSrcLength);
    FreeData(replaced);
}

void svString::ConcatInPlace(std::int64_t nCount, const char* src) {
    if (nCount == 0) {
        return;
    }
    const std::int64_t nOldLength = GetData()->nDataLength;
    const std::int64_t nNewLength = nOldLength + nCount;
    if (GetData()->nRefs < 2 && nNewLength <= GetData()->nAllocLength) {
        CopyText(m_pchData + nOldLength, src, nCount);
        GetData()->nDataLength = static_cast<std::int32_t>(nNewLength);
        CheckString(GetData()->nDataLength <= GetData()->nAllocLength,
                    "GetData()->nDataLength <= GetData()->nAllocLength");
        m_pchData[nNewLength] = '\0';
        return;
    }
    Data* const pOldData = GetData();
    Data* const joined = AllocBuffer(nNewLength);
    CopyText(joined->Characters(), m_pchData, nOldLength);
    CopyText(joined->Characters() + nOldLength, src, nCount);
    Adopt(joined);
    CheckString(pOldData != nullptr, "pOldData != 0");
    FreeData(pOldData);
}

svString svString::Join(const char* left, std::int64_t nLeft, const char* right, std::int64_t nRight) {
    svString result;
    result.Adopt(AllocBuffer(nLeft + nRight));
    CopyText(result.m_pchData, left, nLeft);
    CopyText(result.m_pchData + nLeft, right, nRight);
    return result;
}

// Construction, assignment, concatenation.

svString::svString() : m_pchData(sDataNil->Characters()) {}

svString::svString(const char* text) : svString() {
    AssignCopy(TextLength(text), text);
}

svString::svString(const char* lpch, int nLength) : svString() {
    if (nLength == 0) {
        return;
    }
    CheckString(lpch != nullptr && nLength > 0, "gIsValidAddress(lpch, nLength, FALSE)");
    AssignCopy(nLength, lpch);
}

svString::svString(char character, int nRepeat) : svString() {
    if (nRepeat < 1) {
        return;
    }
    Adopt(AllocBuffer(nRepeat));
    std::memset(m_pchData, character, static_cast<std::size_t>(nRepeat));
}

svString::svString(const svString& stringSrc) : svString() {
    if (stringSrc.GetData()->nRefs >= 0) {
        Share(stringSrc);
    } else {
        AssignCopy(TextLength(stringSrc.m_pchData), stringSrc.m_pchData);
    }
}

svString::~svString() {
    Release();
}

svString& svString::operator=(const svString& stringSrc) {
    if (m_pchData == stringSrc.m_pchData) {
        return *this;
    }
    const bool locked = GetData()->nRefs < 0 && GetData() != sDataNil;
    if (locked || stringSrc.GetData()->nRefs < 0) {
        AssignCopy(stringSrc.GetData()->nDataLength, stringSrc.m_pchData);
    } else {
        Release();
        Share(stringSrc);
    }
    return *this;
}

svString& svString::operator=(const char* lpsz) {
    AssignCopy(TextLength(lpsz), lpsz);
    return *this;
}

svString& svString::operator=(char character) {
    AssignCopy(1, &character);
    return *this;
}

svString& svString::operator+=(const svString& string) {
    ConcatInPlace(string.GetData()->nDataLength, string.m_pchData);
    return *this;
}

svString& svString::operator+=(const char* lpsz) {
    ConcatInPlace(TextLength(lpsz), lpsz);
    return *this;
}

svString& svString::operator+=(char character) {
    ConcatInPlace(1, &character);
    return *this;
}

svString operator+(const svString& left, const svString& right) {
    return svString::Join(left.c_str(), left.GetLength(), right.c_str(), right.GetLength());
}

svString operator+(const svString& left, const char* right) {
    return svString::Join(left.c_str(), left.GetLength(), right, TextLength(right));
}

svString operator+(const char* left, const svString& right) {
    return svString::Join(left, TextLength(left), right.c_str(), right.GetLength());
}

svString operator+(const svString& left, char right) {
    return svString::Join(left.c_str(), left.GetLength(), &right, 1);
}

svString operator+(char left, const svString& right) {
    return svString::Join(&left, 1, right.c_str(), right.GetLength());
}

// Reading.

const char* svString::c_str() const {
    return GetData()->Characters();
}

int svString::GetLength() const {
    return GetData()->nDataLength;
}

int svString::GetAllocLength() const {
    return GetData()->nAllocLength;
}

bool svString::IsEmpty() const {
    return GetData()->nDataLength == 0;
}

const svString::Data* svString::GetHeader() const {
    return GetData();
}

int svString::Compare(const char* lpsz) const {
    CheckString(lpsz != nullptr, "gIsValidString(lpsz)");
    return std::strcmp(c_str(), lpsz);
}

bool operator==(const svString& left, const svString& right) {
    return left.Compare(right.c_str()) == 0;
}

bool operator==(const svString& left, const char* right) {
    return left.Compare(right) == 0;
}

int svString::Find(char character) const {
    return Find(character, 0);
}

int svString::Find(char character, int nStart) const {
    if (nStart >= GetData()->nDataLength) {
        return -1;
    }
    const char* const found = std::strchr(m_pchData + std::max(nStart, 0), character);
    return found == nullptr ? -1 : static_cast<int>(found - m_pchData);
}

int svString::Find(const char* lpszSub) const {
    return Find(lpszSub, 0);
}

int svString::Find(const char* lpszSub, int nStart) const {
    CheckString(lpszSub != nullptr, "gIsValidString(lpszSub)");
    if (nStart > GetData()->nDataLength) {
        return -1;
    }
    const char* const found = std::strstr(m_pchData + std::max(nStart, 0), lpszSub);
    return found == nullptr ? -1 : static_cast<int>(found - m_pchData);
}

int svString::FindOneOf(const char* lpszCharSet) const {
    CheckString(lpszCharSet != nullptr, "gIsValidString(lpszCharSet)");
    const char* const found = std::strpbrk(c_str(), lpszCharSet);
    return found == nullptr ? -1 : static_cast<int>(found - m_pchData);
}

svString svString::Mid(int nFirst, int nCount) const {
    const int nLength = GetData()->nDataLength;
    nFirst = std::max(nFirst, 0);
    if (nFirst > nLength) {
        return {};
    }
    nCount = std::min(std::max(nCount, 0), nLength - nFirst);
    CheckString(nFirst + nCount <= GetData()->nDataLength,
                "nFirst + nCount <= (int)(GetData()->nDataLength)");
    if (nFirst == 0 && nCount == nLength) {
        return *this;
    }
    return {m_pchData + nFirst, nCount};
}

svString svString::Mid(int nFirst) const {
    return Mid(nFirst, GetData()->nDataLength);
}

svString svString::Left(int nCount) const {
    return Mid(0, nCount);
}

svString svString::Right(int nCount) const {
    const int nLength = GetData()->nDataLength;
    nCount = std::min(std::max(nCount, 0), nLength);
    return Mid(nLength - nCount, nCount);
}

svString svString::SpanExcluding(const char* lpszCharSet) const {
    CheckString(lpszCharSet != nullptr, "gIsValidString(lpszCharSet)");
    return Left(static_cast<int>(std::strcspn(c_str(), lpszCharSet)));
}

// Editing.

// Cuts the text to at most its own length.
void svString::TruncateTo(int nLength) {
    CopyBeforeWrite();
    SetLength(nLength);
}

void svString::TrimRight() {
    int nLength = GetData()->nDataLength;
    while (nLength > 0 && IsWhiteSpace(m_pchData[nLength - 1])) {
        --nLength;
    }
    TruncateTo(nLength);
}

void svString::TrimRight(char character) {
    int nLength = GetData()->nDataLength;
    while (nLength > 0 && m_pchData[nLength - 1] == character) {
        --nLength;
    }
    TruncateTo(nLength);
}

void svString::TrimRight(const char* lpszCharSet) {
    CheckString(lpszCharSet != nullptr, "gIsValidString(lpszCharSet)");
    const std::string_view set(lpszCharSet);
    int nLength = GetData()->nDataLength;
    while (nLength > 0 && set.find(m_pchData[nLength - 1]) != std::string_view::npos) {
        --nLength;
    }
    TruncateTo(nLength);
}

void svString::TrimLeft() {
    const int nLength = GetData()->nDataLength;
    int nBlanks = 0;
    while (nBlanks < nLength && IsWhiteSpace(m_pchData[nBlanks])) {
        ++nBlanks;
    }
    CopyBeforeWrite();
    CopyText(m_pchData, m_pchData + nBlanks, nLength - nBlanks);
    SetLength(nLength - nBlanks);
}

void svString::SetAt(int nIndex, char character) {
    CheckString(nIndex >= 0, "nIndex >= 0");
    CheckString(nIndex < GetData()->nDataLength, "nIndex < (int)(GetData()->nDataLength)");
    CopyBeforeWrite();
    m_pchData[nIndex] = character;
}

int svString::Delete(int nIndex, int nCount) {
    const int nLength = GetData()->nDataLength;
    nIndex = std::max(nIndex, 0);
    if (nIndex >= nLength || nCount < 1) {
        return nLength;
    }
    CheckString(nCount <= nLength - nIndex, "nIndex + nCount <= (int)(GetData()->nDataLength)");
    CopyBeforeWrite();
    CopyText(m_pchData + nIndex, m_pchData + nIndex + nCount, nLength - nIndex - nCount);
    SetLength(nLength - nCount);
    return nLength;
}

// `text` must not lie in this string's block.
int svString::InsertText(int nIndex, const char* text, std::int64_t nLength) {
    CopyBeforeWrite();
    const int nOldLength = GetData()->nDataLength;
    const std::int64_t nNewLength = nOldLength + nLength;
    nIndex = std::clamp(nIndex, 0, nOldLength);
    if (nLength == 0) {
        return nOldLength;
    }
    Data* replaced = sDataNil;
    const char* const oldText = m_pchData;
    if (nNewLength > GetData()->nAllocLength) {
        Data* const fresh = AllocBuffer(nNewLength);
        replaced = GetData();
        Adopt(fresh);
        CopyText(m_pchData, oldText, nIndex);
    }
    CopyText(m_pchData + nIndex + nLength, oldText + nIndex, nOldLength - nIndex);
    CopyText(m_pchData + nIndex, text, nLength);
    SetLength(nNewLength);
    FreeData(replaced);
    return GetData()->nDataLength;
}

int svString::Insert(int nIndex, char character) {
    return InsertText(nIndex, &character, 1);
}

int svString::Insert(int nIndex, const char* lpsz) {
    if (lpsz != nullptr && Owns(lpsz)) {
        const std::string ownText(lpsz);
        return InsertText(nIndex, ownText.c_str(), TextLength(ownText.c_str()));
    }
    return InsertText(nIndex, lpsz, TextLength(lpsz));
}

int svString::Replace(char chOld, char chNew) {
    CopyBeforeWrite();
    if (chOld == chNew) {
        return 0;
    }
    const auto places = static_cast<int>(std::count(m_pchData, m_pchData + GetData()->nDataLength, chOld));
    std::replace(m_pchData, m_pchData + GetData()->nDataLength, chOld, chNew);
    return places;
}

int svString::Replace(const char* lpszOld, const char* lpszNew) {
    // Copies, for either text may lie in the block that is written.
    const std::string oldText(lpszOld == nullptr ? "" : lpszOld);
    const std::string newText(lpszNew == nullptr ? "" : lpszNew);
    const std::int64_t nOldText = TextLength(oldText.c_str());
    const std::int64_t nNewText = TextLength(newText.c_str());
    CopyBeforeWrite();
    if (oldText.empty()) {
        return 0;
    }

    const auto text = [this] {
        return std::string_view(m_pchData, static_cast<std::size_t>(GetData()->nDataLength));
    };
    int places = 0;
    for (std::size_t at = text().find(oldText); at != std::string_view::npos;
         at = text().find(oldText, at + oldText.size())) {
        ++places;
    }
    if (places == 0) {
        return 0;
    }

    const std::int64_t nNewLength = GetData()->nDataLength + (nNewText - nOldText) * places;
    Data* const replaced = AllocBuffer(nNewLength);
    char* to = replaced->Characters();
    std::size_t from = 0;
    for (int place = 0; place < places; ++place) {
        const std::size_t at = text().find(oldText, from);
        to = std::copy_n(m_pchData + from, at - from, to);
        to = std::copy_n(newText.data(), newText.size(), to);
        from = at + oldText.size();
    }
    std::copy_n(m_pchData + from, text().size() - from, to);

    if (nNewLength <= GetData()->nAllocLength) {
        CopyText(m_pchData, replaced->Characters(), nNewLength);
        SetLength(nNewLength);
        FreeData(replaced);
    } else {
        Data* const pOldData = GetData();
        Adopt(replaced);
        FreeData(pOldData);
    }
    CheckString(m_pchData[nNewLength] == '\0', "m_pchData[nNewLength] == '\\0'");
    return places;
}

int svString::Remove(char character) {
    const int nLength = GetData()->nDataLength;
    CopyBeforeWrite();
    const auto places = static_cast<int>(std::count(m_pchData, m_pchData + nLength, character));
    static_cast<void>(std::remove(m_pchData, m_pchData + nLength, character));
    SetLength(nLength - places);
    return places;
}

void svString::Empty() {
    if (GetData()->nRefs < 0) {
        SetLength(0);
    } else {
        Release();
    }
    CheckString(GetData()->nDataLength == 0, "GetData()->nDataLength == 0");
    CheckString(GetData()->nRefs < 0 || GetData()->nAllocLength == 0,
                "GetData()->nRefs < 0 || GetData()->nAllocLength == 0");
}

// Direct access to the buffer.

void svString::Reserve(std::int64_t nMinBufLength) {
    if (GetData()->nRefs > 1 || nMinBufLength > GetData()->nAllocLength) {
        Data* const pOldData = GetData();
        const std::int32_t nOldLength = pOldData->nDataLength;
        Data* const larger = AllocBuffer(std::max<std::int64_t>(nMinBufLength, nOldLength));
        CopyText(larger->Characters(), m_pchData, nOldLength);
        Adopt(larger);
        SetLength(nOldLength);
        FreeData(pOldData);
    }
    CheckString(GetData()->nRefs <= 1, "GetData()->nRefs <= 1");
}

char* svString::GetBuffer(int nMinBufLength) {
    CheckString(nMinBufLength >= 0, "nMinBufLength >= 0");
    Reserve(nMinBufLength);
    return m_pchData;
}

void svString::ReleaseBuffer(int nNewLength) {
    CopyBeforeWrite();
    // The search ends one byte behind the last character: a buffer written without a terminator is too long.
    if (nNewLength == -1) {
        nNewLength = static_cast<int>(strnlen(m_pchData, static_cast<std::size_t>(GetAllocLength()) + 1));
    }
    CheckString(nNewLength >= 0, "nNewLength >= 0");
    CheckString(nNewLength <= GetData()->nAllocLength, "nNewLength <= (int)(GetData()->nAllocLength)");
    SetLength(nNewLength);
}

char* svString::GetBufferSetLength(int nNewLength) {
    CheckString(nNewLength >= 0, "nNewLength >= 0");
    GetBuffer(nNewLength);
    SetLength(nNewLength);
    return m_pchData;
}

void svString::FreeExtra() {
    CheckString(GetData()->nDataLength <= GetData()->nAllocLength,
                "GetData()->nDataLength <= GetData()->nAllocLength");
    if (GetData()->nDataLength != GetData()->nAllocLength) {
        Data* const pOldData = GetData();
        Data* const exact = AllocBuffer(pOldData->nDataLength);
        CopyText(exact->Characters(), m_pchData, pOldData->nDataLength);
        Adopt(exact);
        FreeData(pOldData);
    }
    CheckString(m_pchData[GetData()->nDataLength] == '\0', "m_pchData[GetData()->nDataLength] == '\\0'");
    CheckString(GetData() != nullptr, "GetData() != 0");
}

char* svString::LockBuffer() {
    char* const characters = GetBuffer(0);
    if (GetData() != sDataNil) {
        GetData()->nRefs = -1;
    }
    return characters;
}

void svString::UnlockBuffer() {
    CheckString(GetData()->nRefs == -1, "GetData()->nRefs == -1");
    if (GetData() != sDataNil) {
        GetData()->nRefs = 1;
    }
}

}  // namespace vexil
