// Writes numbers, raw bytes and strings to a CFile through a buffer (4096 bytes unless the
// constructor says otherwise), or reads them back. Numbers are little-endian, in the widths
// of the formats: BYTE 1, WORD 2, LONG, DWORD, int and long 4 bytes. The archive uses the
// file and never owns it. Thread-bound: one thread uses an object.
//
// A number or string that the data end in the middle of throws CArchiveException with
// cause endOfFile; Read of raw bytes gives fewer bytes instead. Failures of the file come
// through as its CFileException. All exceptions are thrown as pointers.
#pragma once

#include "platform/CArchiveException.h"
#include "platform/CFile.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class ZNDVR_API CArchive {
public:
    enum Mode : UINT { store = 0, load = 1, bNoFlushOnDelete = 2 };

    static constexpr int kDefaultBufferSize = 4096;

    CArchive(CFile* pFile, UINT nMode, int nBufSize = kDefaultBufferSize, void* lpBuf = nullptr);
    CArchive(const CArchive&) = delete;
    CArchive& operator=(const CArchive&) = delete;
    // Closes the archive, writing what is buffered unless bNoFlushOnDelete was given;
    // a failure there is dropped, so a writer that cares calls Close itself.
    ~CArchive();

    BOOL IsLoading() const;
    BOOL IsStoring() const;
    CFile* GetFile() const;

    UINT Read(void* lpBuf, UINT nMax);
    void Write(const void* lpBuf, UINT nMax);
    // Writing: hands the buffered bytes to the file. Reading: moves the file back to the
    // first byte not yet read, so that the file can be used directly again.
    void Flush();
    // Flushes and lets go of the file, which stays open.
    void Close();
    // Lets go of the file without flushing and without throwing.
    void Abort();

    // A count: 2 bytes below 0xFFFF, else 0xFFFF and 4 bytes.
    void WriteCount(DWORD dwCount);
    DWORD ReadCount();

    CArchive& operator<<(BYTE by);
    CArchive& operator<<(char ch);
    CArchive& operator<<(WORD w);
    CArchive& operator<<(short w);
    CArchive& operator<<(LONG l);
    CArchive& operator<<(DWORD dw);
    CArchive& operator<<(long l);
    CArchive& operator<<(unsigned long dw);
    CArchive& operator<<(float f);
    CArchive& operator<<(double d);

    CArchive& operator>>(BYTE& by);
    CArchive& operator>>(char& ch);
    CArchive& operator>>(WORD& w);
    CArchive& operator>>(short& w);
    CArchive& operator>>(LONG& l);
    CArchive& operator>>(DWORD& dw);
    CArchive& operator>>(long& l);
    CArchive& operator>>(unsigned long& dw);
    CArchive& operator>>(float& f);
    CArchive& operator>>(double& d);

    // The length prefix of a string: 1 byte for 0 to 254; 0xFF and 2 bytes for 255 to
    // 65,533; 0xFF, 0xFF 0xFF and 4 bytes from 65,534 on.
    void WriteStringLength(DWORD dwLength);
    DWORD ReadStringLength();

private:
    template <typename T> void StoreLittleEndian(T value);
    template <typename T> T LoadLittleEndian();
    [[noreturn]] void ThrowArchiveException(int nCause) const;
    void EnsureStoring() const;
    void EnsureLoading() const;
    // Makes at least nBytes unread bytes available in the buffer, or throws endOfFile.
    void FillBuffer(UINT nBytes);
    void FlushStoreBuffer();

    CFile* m_pFile;
    UINT m_nMode;
    BYTE* m_lpBufStart;
    UINT m_nBufSize;
    UINT m_nBufCur;
    UINT m_nBufMax;
    BOOL m_bUserBuf;
};

// A string: its length prefix, then its characters without a terminator.
ZNDVR_API CArchive& operator<<(CArchive& ar, const CString& string);
ZNDVR_API CArchive& operator>>(CArchive& ar, CString& string);
