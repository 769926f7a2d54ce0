// Cursors over the caller's byte buffers of the flat forms (search requests, file
// summaries, disk listings): little-endian numbers, strings behind their length, nothing
// aligned. Both stay inside the size they are given: a read past it takes nothing and
// marks the reader damaged, a write past it writes nothing and marks the writer failed,
// so a caller checks once at the end. Plain values on the caller's stack; reentrant.
#pragma once

#include "platform/PrivateHeader.h"

#include "platform/CString.h"
#include "platform/WinTypes.h"

class CFlatReader {
public:
    CFlatReader(const BYTE* pBuf, DWORD nSize);

    BYTE Get8();
    WORD Get16();
    DWORD Get32();
    // dwLength bytes as a string; "" and damaged when they run past the end.
    CString GetString(DWORD dwLength);
    // Moves on by dwCount bytes that someone else read.
    void Skip(DWORD dwCount);
    // Bytes that remain behind the position.
    DWORD GetRemaining() const;
    DWORD GetPosition() const;
    bool IsDamaged() const;
    // Marks the buffer damaged for a reason the caller found in its contents.
    void SetDamaged();

private:
    const BYTE* Take(DWORD dwCount);

    const BYTE* m_pBuf;
    DWORD m_nSize;
    DWORD m_nPos = 0;
    bool m_bDamaged = false;
};

class CFlatWriter {
public:
    CFlatWriter(BYTE* pBuf, DWORD nSize);

    void Put8(BYTE byValue);
    void Put16(WORD wValue);
    void Put32(DWORD dwValue);
    void PutBytes(const CString& str);
    DWORD GetPosition() const;
    BYTE* GetCurrent() const;
    DWORD GetRemaining() const;
    // Moves on by dwCount bytes that someone else wrote at GetCurrent().
    void Skip(DWORD dwCount);
    bool HasFailed() const;

private:
    BYTE* Take(DWORD dwCount);

    BYTE* m_pBuf;
    DWORD m_nSize;
    DWORD m_nPos = 0;
    bool m_bFailed = false;
};
