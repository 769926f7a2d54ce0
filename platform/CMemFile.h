// A file in memory that grows in steps of m_nGrowBytes bytes (1024 unless the
// constructor says otherwise). The object owns its block until Detach hands it over.
// Thread-bound: one thread uses an object. Running out of memory throws CMemoryException.
#pragma once

#include "platform/CFile.h"

class ZNDVR_API CMemFile : public CFile {
public:
    static constexpr UINT kDefaultGrowBytes = 1024;

    explicit CMemFile(UINT nGrowBytes = kDefaultGrowBytes);
    // Works in the caller's block, which stays the caller's; with nGrowBytes 0 it can't grow.
    CMemFile(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes = 0);
    ~CMemFile() override;

    // Takes over the caller's block as CMemFile(lpBuffer, ...) does.
    void Attach(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes = 0);
    // Hands the block (made with malloc) to the caller, who frees it with free; the file
    // is empty afterwards.
    BYTE* Detach();

    BOOL Open(LPCSTR lpszFileName, UINT nOpenFlags, CFileException* pError = nullptr) override;
    UINT Read(void* lpBuf, UINT nCount) override;
    void Write(const void* lpBuf, UINT nCount) override;
    LONG Seek(LONG lOff, UINT nFrom) override;
    DWORD GetPosition() const override;
    DWORD GetLength() const override;
    void SetLength(DWORD dwNewLen) override;
    void Flush() override;
    void Close() override;
    void Abort() override;

protected:
    // Makes the block at least dwNewLen bytes long, in whole steps of m_nGrowBytes.
    void GrowFile(DWORD dwNewLen);
    void FreeBlock();

    UINT m_nGrowBytes;
    DWORD m_nPosition;
    DWORD m_nBufferSize;
    DWORD m_nFileSize;
    BYTE* m_lpBuffer;
    BOOL m_bAutoDelete;
};
