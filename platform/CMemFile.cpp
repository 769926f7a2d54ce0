#include "platform/CMemFile.h"

#include "platform/CMemoryException.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

constexpr std::uint64_t kMaxMemFileLength = 0xFFFFFFFFu;

} // namespace

CMemFile::CMemFile(UINT nGrowBytes)
    : m_nGrowBytes(nGrowBytes), m_nPosition(0), m_nBufferSize(0), m_nFileSize(0), m_lpBuffer(nullptr),
      m_bAutoDelete(TRUE)
{
}

CMemFile::CMemFile(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes) : CMemFile(nGrowBytes)
{
    Attach(lpBuffer, nBufferSize, nGrowBytes);
}

CMemFile::~CMemFile()
{
    FreeBlock();
}

void CMemFile::Attach(BYTE* lpBuffer, UINT nBufferSize, UINT nGrowBytes)
{
    FreeBlock();
    m_nGrowBytes = nGrowBytes;
    m_lpBuffer = lpBuffer;
    m_nBufferSize = lpBuffer != nullptr ? nBufferSize : 0;
    m_nFileSize = nGrowBytes == 0 ? m_nBufferSize : 0;
    m_nPosition = 0;
    m_bAutoDelete = FALSE;
}

BYTE* CMemFile::Detach()
{
    BYTE* lpBuffer = m_lpBuffer;
    m_lpBuffer = nullptr;
    m_nBufferSize = 0;
    m_nFileSize = 0;
    m_nPosition = 0;
    m_bAutoDelete = TRUE;
    return lpBuffer;
}

BOOL CMemFile::Open(LPCSTR, UINT, CFileException* pError)
{
    if (pError != nullptr) {
        pError->m_cause = CFileException::generic;
        pError->m_lOsError = EINVAL;
    }
    return FALSE;
}

UINT CMemFile::Read(void* lpBuf, UINT nCount)
{
    if (lpBuf == nullptr || nCount == 0 || m_nPosition >= m_nFileSize)
        return 0;
    UINT nRead = nCount < m_nFileSize - m_nPosition ? nCount : m_nFileSize - m_nPosition;
    std::memcpy(lpBuf, m_lpBuffer + m_nPosition, nRead);
    m_nPosition += nRead;
    return nRead;
}

void CMemFile::Write(const void* lpBuf, UINT nCount)
{
    if (nCount == 0)
        return;
    if (lpBuf == nullptr)
        AfxThrowFileException(CFileException::generic, EINVAL);
    std::uint64_t nEnd = static_cast<std::uint64_t>(m_nPosition) + nCount;
    if (nEnd > kMaxMemFileLength)
        AfxThrowMemoryException();
    GrowFile(static_cast<DWORD>(nEnd));
    if (m_nPosition > m_nFileSize)
        std::memset(m_lpBuffer + m_nFileSize, 0, m_nPosition - m_nFileSize);
    std::memcpy(m_lpBuffer + m_nPosition, lpBuf, nCount);
    m_nPosition = static_cast<DWORD>(nEnd);
    if (m_nPosition > m_nFileSize)
        m_nFileSize = m_nPosition;
}

LONG CMemFile::Seek(LONG lOff, UINT nFrom)
{
    std::int64_t nBase = nFrom == begin ? 0 : nFrom == current ? m_nPosition : m_nFileSize;
    std::int64_t nPosition = nBase + lOff;
    if (nFrom > end || nPosition < 0 || nPosition > static_cast<std::int64_t>(kMaxMemFileLength))
        AfxThrowFileException(CFileException::badSeek, EINVAL);
    m_nPosition = static_cast<DWORD>(nPosition);
    return static_cast<LONG>(m_nPosition);
}

DWORD CMemFile::GetPosition() const
{
    return m_nPosition;
}

DWORD CMemFile::GetLength() const
{
    return m_nFileSize;
}

void CMemFile::SetLength(DWORD dwNewLen)
{
    GrowFile(dwNewLen);
    if (dwNewLen > m_nFileSize)
        std::memset(m_lpBuffer + m_nFileSize, 0, dwNewLen - m_nFileSize);
    m_nFileSize = dwNewLen;
    if (m_nPosition > dwNewLen)
        m_nPosition = dwNewLen;
}

void CMemFile::Flush()
{
}

void CMemFile::Close()
{
    FreeBlock();
}

void CMemFile::Abort()
{
    FreeBlock();
}

void CMemFile::GrowFile(DWORD dwNewLen)
{
    if (dwNewLen <= m_nBufferSize)
        return;
    if (m_nGrowBytes == 0)
        AfxThrowMemoryException();
    std::uint64_t nSteps = (static_cast<std::uint64_t>(dwNewLen) + m_nGrowBytes - 1) / m_nGrowBytes;
    std::uint64_t nNewSize = nSteps * m_nGrowBytes;
    if (nNewSize > kMaxMemFileLength)
        nNewSize = kMaxMemFileLength;
    BYTE* lpNewBuffer = nullptr;
    if (m_bAutoDelete) {
        lpNewBuffer = static_cast<BYTE*>(std::realloc(m_lpBuffer, static_cast<std::size_t>(nNewSize)));
    } else {
        lpNewBuffer = static_cast<BYTE*>(std::malloc(static_cast<std::size_t>(nNewSize)));
        if (lpNewBuffer != nullptr && m_nFileSize > 0)
            std::memcpy(lpNewBuffer, m_lpBuffer, m_nFileSize);
    }
    if (lpNewBuffer == nullptr)
        AfxThrowMemoryException();
    m_lpBuffer = lpNewBuffer;
    m_nBufferSize = static_cast<DWORD>(nNewSize);
    m_bAutoDelete = TRUE;
}

void CMemFile::FreeBlock()
{
    if (m_bAutoDelete)
        std::free(m_lpBuffer);
    m_lpBuffer = nullptr;
    m_nBufferSize = 0;
    m_nFileSize = 0;
    m_nPosition = 0;
    m_bAutoDelete = TRUE;
}
