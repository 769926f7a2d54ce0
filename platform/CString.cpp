#include "platform/CString.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace {

LPCSTR OrEmpty(LPCSTR lpsz)
{
    return lpsz == nullptr ? "" : lpsz;
}

char ToLowerAscii(char ch)
{
    return (ch >= 'A' && ch <= 'Z') ? static_cast<char>(ch - 'A' + 'a') : ch;
}

char ToUpperAscii(char ch)
{
    return (ch >= 'a' && ch <= 'z') ? static_cast<char>(ch - 'a' + 'A') : ch;
}

bool IsSpaceAscii(char ch)
{
    return ch == ' ' || (ch >= '\t' && ch <= '\r');
}

int Sign(int nValue)
{
    return (nValue > 0) - (nValue < 0);
}

// std::string sizes above INT_MAX can't be expressed in the int interface; they are
// reported as INT_MAX and never reached by the library's own texts.
int ClampedLength(std::size_t nLength)
{
    return nLength > static_cast<std::size_t>(INT_MAX) ? INT_MAX : static_cast<int>(nLength);
}

} // namespace

CString::CString(LPCSTR lpsz) : m_str(OrEmpty(lpsz))
{
}

CString::CString(LPCSTR lpch, int nLength)
{
    if (lpch != nullptr && nLength > 0)
        m_str.assign(lpch, static_cast<std::size_t>(nLength));
}

CString::CString(char ch, int nRepeat)
{
    if (nRepeat > 0)
        m_str.assign(static_cast<std::size_t>(nRepeat), ch);
}

CString::CString(std::string str) : m_str(std::move(str))
{
}

CString& CString::operator=(LPCSTR lpsz)
{
    m_str = OrEmpty(lpsz);
    return *this;
}

CString& CString::operator=(char ch)
{
    m_str.assign(1, ch);
    return *this;
}

int CString::GetLength() const
{
    return ClampedLength(m_str.size());
}

BOOL CString::IsEmpty() const
{
    return m_str.empty() ? TRUE : FALSE;
}

void CString::Empty()
{
    std::string().swap(m_str);
}

char CString::GetAt(int nIndex) const
{
    if (nIndex < 0 || nIndex >= GetLength())
        return '\0';
    return m_str[static_cast<std::size_t>(nIndex)];
}

char CString::operator[](int nIndex) const
{
    return GetAt(nIndex);
}

void CString::SetAt(int nIndex, char ch)
{
    if (nIndex >= 0 && nIndex < GetLength())
        m_str[static_cast<std::size_t>(nIndex)] = ch;
}

CString::operator LPCSTR() const
{
    return m_str.c_str();
}

const std::string& CString::GetStdString() const
{
    return m_str;
}

CString& CString::operator+=(const CString& string)
{
    m_str += string.m_str;
    return *this;
}

CString& CString::operator+=(LPCSTR lpsz)
{
    m_str += OrEmpty(lpsz);
    return *this;
}

CString& CString::operator+=(char ch)
{
    m_str += ch;
    return *this;
}

int CString::Compare(LPCSTR lpsz) const
{
    return Sign(std::strcmp(m_str.c_str(), OrEmpty(lpsz)));
}

int CString::CompareNoCase(LPCSTR lpsz) const
{
    const char* pLeft = m_str.c_str();
    const char* pRight = OrEmpty(lpsz);
    for (;; ++pLeft, ++pRight) {
        unsigned char chLeft = static_cast<unsigned char>(ToLowerAscii(*pLeft));
        unsigned char chRight = static_cast<unsigned char>(ToLowerAscii(*pRight));
        if (chLeft != chRight)
            return chLeft < chRight ? -1 : 1;
        if (chLeft == '\0')
            return 0;
    }
}

CString CString::Mid(int nFirst) const
{
    return Mid(nFirst, GetLength());
}

CString CString::Mid(int nFirst, int nCount) const
{
    int nLength = GetLength();
    nFirst = std::clamp(nFirst, 0, nLength);
    nCount = std::clamp(nCount, 0, nLength - nFirst);
    return CString(m_str.substr(static_cast<std::size_t>(nFirst), static_cast<std::size_t>(nCount)));
}

CString CString::Left(int nCount) const
{
    return Mid(0, nCount);
}

CString CString::Right(int nCount) const
{
    int nLength = GetLength();
    nCount = std::clamp(nCount, 0, nLength);
    return Mid(nLength - nCount, nCount);
}

void CString::MakeUpper()
{
    std::transform(m_str.begin(), m_str.end(), m_str.begin(), ToUpperAscii);
}

void CString::MakeLower()
{
    std::transform(m_str.begin(), m_str.end(), m_str.begin(), ToLowerAscii);
}

void CString::TrimLeft()
{
    auto itFirstKept = std::find_if_not(m_str.begin(), m_str.end(), IsSpaceAscii);
    m_str.erase(m_str.begin(), itFirstKept);
}

void CString::TrimRight()
{
    auto itLastKept = std::find_if_not(m_str.rbegin(), m_str.rend(), IsSpaceAscii);
    m_str.erase(itLastKept.base(), m_str.end());
}

int CString::Find(char ch, int nStart) const
{
    if (nStart < 0 || nStart >= GetLength())
        return -1;
    std::size_t nFound = m_str.find(ch, static_cast<std::size_t>(nStart));
    return nFound == std::string::npos ? -1 : static_cast<int>(nFound);
}

int CString::Find(LPCSTR lpszSub, int nStart) const
{
    if (lpszSub == nullptr || *lpszSub == '\0' || nStart < 0 || nStart >= GetLength())
        return -1;
    std::size_t nFound = m_str.find(lpszSub, static_cast<std::size_t>(nStart));
    return nFound == std::string::npos ? -1 : static_cast<int>(nFound);
}

int CString::ReverseFind(char ch) const
{
    std::size_t nFound = m_str.rfind(ch);
    return nFound == std::string::npos ? -1 : static_cast<int>(nFound);
}

int CString::FindOneOf(LPCSTR lpszCharSet) const
{
    if (lpszCharSet == nullptr || *lpszCharSet == '\0')
        return -1;
    std::size_t nFound = m_str.find_first_of(lpszCharSet);
    return nFound == std::string::npos ? -1 : static_cast<int>(nFound);
}

int CString::Replace(char chOld, char chNew)
{
    int nReplaced = 0;
    for (char& ch : m_str) {
        if (ch == chOld) {
            ch = chNew;
            ++nReplaced;
        }
    }
    return nReplaced;
}

int CString::Replace(LPCSTR lpszOld, LPCSTR lpszNew)
{
    if (lpszOld == nullptr || *lpszOld == '\0')
        return 0;
    std::size_t nOldLength = std::strlen(lpszOld);
    std::string strNew = OrEmpty(lpszNew);
    std::string strResult;
    int nReplaced = 0;
    std::size_t nFrom = 0;
    for (std::size_t nFound = m_str.find(lpszOld); nFound != std::string::npos;
         nFound = m_str.find(lpszOld, nFrom)) {
        strResult.append(m_str, nFrom, nFound - nFrom);
        strResult += strNew;
        nFrom = nFound + nOldLength;
        ++nReplaced;
    }
    if (nReplaced > 0) {
        strResult.append(m_str, nFrom, std::string::npos);
        m_str.swap(strResult);
    }
    return nReplaced;
}

void CString::Format(LPCSTR lpszFormat, ...)
{
    va_list argList;
    va_start(argList, lpszFormat);
    FormatV(lpszFormat, argList);
    va_end(argList);
}

void CString::FormatV(LPCSTR lpszFormat, va_list argList)
{
    // Formatted into a new string first: an argument may be this string's own text.
    std::string strResult;
    if (lpszFormat != nullptr) {
        va_list argCopy;
        va_copy(argCopy, argList);
        int nLength = std::vsnprintf(nullptr, 0, lpszFormat, argCopy);
        va_end(argCopy);
        if (nLength > 0) {
            strResult.resize(static_cast<std::size_t>(nLength));
            std::vsnprintf(strResult.data(), strResult.size() + 1, lpszFormat, argList);
        }
    }
    m_str.swap(strResult);
}

LPSTR CString::GetBuffer(int nMinBufLength)
{
    if (nMinBufLength > GetLength())
        m_str.resize(static_cast<std::size_t>(nMinBufLength));
    return m_str.data();
}

void CString::ReleaseBuffer(int nNewLength)
{
    std::size_t nLength = nNewLength < 0 ? std::strlen(m_str.c_str())
                                         : std::min(static_cast<std::size_t>(nNewLength), m_str.size());
    m_str.resize(nLength);
}

LPSTR CString::GetBufferSetLength(int nNewLength)
{
    m_str.resize(static_cast<std::size_t>(std::max(nNewLength, 0)));
    return m_str.data();
}

CString operator+(const CString& string1, const CString& string2)
{
    CString strResult(string1);
    strResult += string2;
    return strResult;
}

CString operator+(const CString& string, LPCSTR lpsz)
{
    CString strResult(string);
    strResult += lpsz;
    return strResult;
}

CString operator+(LPCSTR lpsz, const CString& string)
{
    CString strResult(lpsz);
    strResult += string;
    return strResult;
}

CString operator+(const CString& string, char ch)
{
    CString strResult(string);
    strResult += ch;
    return strResult;
}

CString operator+(char ch, const CString& string)
{
    CString strResult(ch);
    strResult += string;
    return strResult;
}
