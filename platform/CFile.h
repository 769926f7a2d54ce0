// A file on disk over a POSIX descriptor, with 32-bit lengths and positions. Its owner
// opens and closes it; the destructor closes it. Thread-bound: one thread uses an object.
//
// Sharing: a file open for writing can't be opened for writing a second time, by this
// process or another (an open file description lock stands for the writer); opening for
// reading takes no lock, so readers never wait for a writer and never stop one. The share
// flags are accepted and have no further effect. modeCreate empties an existing file only
// when it is opened for writing; descriptors are never inherited by programs started later.
//
// Under a CDiskSimulator, writes and syncs of a writer can fail on demand and be lost as
// in a power cut.
//
// Failures of Read, Write, Seek, GetLength, Flush and Close are thrown as CFileException pointers;
// Read at the end of the file gives fewer bytes and throws nothing. Open reports failure
// by its result and, when given one, fills a CFileException.
#pragma once

#include "platform/CFileException.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

class ZNDVR_API CFile {
public:
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000,
        // A regular file only, and never reached through a symbolic link as its last
        // component: a writer that must not be turned onto another file or a device.
        modeRegularOnly = 0x10000
    };

    enum SeekPosition : UINT { begin = 0x0, current = 0x1, end = 0x2 };

    static constexpr UINT hFileNull = 0xFFFFFFFFu;

    CFile();
    // Opens at once and throws CFileException on failure.
    CFile(LPCSTR lpszFileName, UINT nOpenFlags);
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    virtual ~CFile();

    virtual BOOL Open(LPCSTR lpszFileName, UINT nOpenFlags, CFileException* pError = nullptr);
    virtual UINT Read(void* lpBuf, UINT nCount);
    virtual void Write(const void* lpBuf, UINT nCount);
    virtual LONG Seek(LONG lOff, UINT nFrom);
    DWORD SeekToEnd();
    void SeekToBegin();
    virtual DWORD GetPosition() const;
    virtual DWORD GetLength() const;
    virtual void SetLength(DWORD dwNewLen);
    // Makes what was written durable (fdatasync).
    virtual void Flush();
    // Makes the file's name durable: syncs the directory that holds it, after a create.
    void FlushDirectory();
    // Deletes the file this object holds open, if its path still names that very regular
    // file; the descriptor stays open. FALSE when nothing was deleted.
    BOOL RemoveOpenFile();
    virtual void Close();
    // Closes without throwing, for clean-up after a failure.
    virtual void Abort();

    // The full path given to Open, made absolute; "" while nothing was opened.
    virtual CString GetFilePath() const;
    // The last component of that path.
    virtual CString GetFileName() const;

    // The descriptor, or hFileNull while closed.
    UINT m_hFile;

protected:
    [[noreturn]] void ThrowErrno(int nErrno) const;
    void ThrowIfClosed() const;

    CString m_strFileName;
    BOOL m_bWritable;
};
