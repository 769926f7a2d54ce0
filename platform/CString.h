// 8-bit text as the library's interfaces pass it: names, paths, formatted numbers. A value
// type over std::string; indices and lengths are int and out-of-range arguments are
// clamped, never trusted. Reentrant: one string is used by one thread at a time.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <cstdarg>
#include <string>

class ZNDVR_API CString {
public:
    CString() = default;
    CString(const CString&) = default;
    CString(CString&&) noexcept = default;
    // A null pointer gives the empty string.
    CString(LPCSTR lpsz);
    CString(LPCSTR lpch, int nLength);
    CString(char ch, int nRepeat = 1);
    explicit CString(std::string str);
    ~CString() = default;

    CString& operator=(const CString&) = default;
    CString& operator=(CString&&) noexcept = default;
    CString& operator=(LPCSTR lpsz);
    CString& operator=(char ch);

    int GetLength() const;
    BOOL IsEmpty() const;
    void Empty();

    // Out-of-range indices read as '\0'; SetAt ignores them.
    char GetAt(int nIndex) const;
    char operator[](int nIndex) const;
    void SetAt(int nIndex, char ch);

    operator LPCSTR() const;
    const std::string& GetStdString() const;

    CString& operator+=(const CString& string);
    CString& operator+=(LPCSTR lpsz);
    CString& operator+=(char ch);

    // Byte-wise comparison up to the first '\0', as the C library compares: -1, 0 or 1.
    int Compare(LPCSTR lpsz) const;
    // The same after folding ASCII letters to lower case.
    int CompareNoCase(LPCSTR lpsz) const;

    // Slices clamp their arguments to the string: a negative start counts as 0, a count
    // beyond the end stops at the end, and nothing at all gives the empty string.
    CString Mid(int nFirst) const;
    CString Mid(int nFirst, int nCount) const;
    CString Left(int nCount) const;
    CString Right(int nCount) const;

    // ASCII letters only; other bytes stay as they are.
    void MakeUpper();
    void MakeLower();
    void TrimLeft();
    void TrimRight();

    // Zero-based position of the first (last) match, or -1. A start beyond the end and an
    // empty substring find nothing.
    int Find(char ch, int nStart = 0) const;
    int Find(LPCSTR lpszSub, int nStart = 0) const;
    int ReverseFind(char ch) const;
    int FindOneOf(LPCSTR lpszCharSet) const;
    // Replaces every occurrence; returns how many were replaced.
    int Replace(char chOld, char chNew);
    int Replace(LPCSTR lpszOld, LPCSTR lpszNew);

    // printf-style formatting into this string; a null format gives the empty string.
    void Format(LPCSTR lpszFormat, ...) __attribute__((format(printf, 2, 3)));
    void FormatV(LPCSTR lpszFormat, va_list argList) __attribute__((format(printf, 2, 0)));

    // Direct access for C-style writers: a buffer of at least nMinBufLength characters
    // plus a terminator. ReleaseBuffer(-1) takes the length up to the first '\0' within
    // the buffer; a given length is clamped to the buffer.
    LPSTR GetBuffer(int nMinBufLength);
    void ReleaseBuffer(int nNewLength = -1);
    LPSTR GetBufferSetLength(int nNewLength);

private:
    std::string m_str;
};

ZNDVR_API CString operator+(const CString& string1, const CString& string2);
ZNDVR_API CString operator+(const CString& string, LPCSTR lpsz);
ZNDVR_API CString operator+(LPCSTR lpsz, const CString& string);
ZNDVR_API CString operator+(const CString& string, char ch);
ZNDVR_API CString operator+(char ch, const CString& string);

inline bool operator==(const CString& s1, const CString& s2) { return s1.Compare(s2) == 0; }
inline bool operator==(const CString& s1, LPCSTR s2) { return s1.Compare(s2) == 0; }
inline bool operator==(LPCSTR s1, const CString& s2) { return s2.Compare(s1) == 0; }
inline bool operator!=(const CString& s1, const CString& s2) { return s1.Compare(s2) != 0; }
inline bool operator!=(const CString& s1, LPCSTR s2) { return s1.Compare(s2) != 0; }
inline bool operator!=(LPCSTR s1, const CString& s2) { return s2.Compare(s1) != 0; }
inline bool operator<(const CString& s1, const CString& s2) { return s1.Compare(s2) < 0; }
inline bool operator<(const CString& s1, LPCSTR s2) { return s1.Compare(s2) < 0; }
inline bool operator<(LPCSTR s1, const CString& s2) { return s2.Compare(s1) > 0; }
inline bool operator>(const CString& s1, const CString& s2) { return s1.Compare(s2) > 0; }
inline bool operator>(const CString& s1, LPCSTR s2) { return s1.Compare(s2) > 0; }
inline bool operator>(LPCSTR s1, const CString& s2) { return s2.Compare(s1) < 0; }
inline bool operator<=(const CString& s1, const CString& s2) { return s1.Compare(s2) <= 0; }
inline bool operator<=(const CString& s1, LPCSTR s2) { return s1.Compare(s2) <= 0; }
inline bool operator<=(LPCSTR s1, const CString& s2) { return s2.Compare(s1) >= 0; }
inline bool operator>=(const CString& s1, const CString& s2) { return s1.Compare(s2) >= 0; }
inline bool operator>=(const CString& s1, LPCSTR s2) { return s1.Compare(s2) >= 0; }
inline bool operator>=(LPCSTR s1, const CString& s2) { return s2.Compare(s1) <= 0; }
