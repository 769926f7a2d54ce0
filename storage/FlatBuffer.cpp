#include "storage/FlatBuffer.h"

#include "recording/ZnFileLayout.h"

#include <algorithm>
#include <limits>

CFlatReader::CFlatReader(const BYTE* pBuf, DWORD nSize) : m_pBuf(pBuf), m_nSize(pBuf != nullptr ? nSize : 0)
{
}

const BYTE* CFlatReader::Take(DWORD dwCount)
{
    if (m_bDamaged || dwCount > m_nSize - m_nPos) {
        m_bDamaged = true;
        return nullptr;
    }
    const BYTE* pBytes = m_pBuf + m_nPos;
    m_nPos += dwCount;
    return pBytes;
}

BYTE CFlatReader::Get8()
{
    const BYTE* pBytes = Take(1);
    return pBytes != nullptr ? pBytes[0] : 0;
}

WORD CFlatReader::Get16()
{
    const BYTE* pBytes = Take(2);
    return pBytes != nullptr ? GetLe16(pBytes) : 0;
}

DWORD CFlatReader::Get32()
{
    const BYTE* pBytes = Take(4);
    return pBytes != nullptr ? GetLe32(pBytes) : 0;
}

CString CFlatReader::GetString(DWORD dwLength)
{
    // A string is held with an int length.
    if (dwLength > static_cast<DWORD>(std::numeric_limits<int>::max()))
        SetDamaged();
    const BYTE* pBytes = Take(dwLength);
    if (pBytes == nullptr || dwLength == 0)
        return CString();
    CString str;
    std::copy_n(pBytes, dwLength, reinterpret_cast<BYTE*>(str.GetBufferSetLength(static_cast<int>(dwLength))));
    return str;
}

void CFlatReader::Skip(DWORD dwCount)
{
    Take(dwCount);
}

DWORD CFlatReader::GetRemaining() const
{
    return m_nSize - m_nPos;
}

DWORD CFlatReader::GetPosition() const
{
    return m_nPos;
}

bool CFlatReader::IsDamaged() const
{
    return m_bDamaged;
}

void CFlatReader::SetDamaged()
{
    m_bDamaged = true;
}

CFlatWriter::CFlatWriter(BYTE* pBuf, DWORD nSize) : m_pBuf(pBuf), m_nSize(pBuf != nullptr ? nSize : 0)
{
}

BYTE* CFlatWriter::Take(DWORD dwCount)
{
    if (m_bFailed || dwCount > m_nSize - m_nPos) {
        m_bFailed = true;
        return nullptr;
    }
    BYTE* pBytes = m_pBuf + m_nPos;
    m_nPos += dwCount;
    return pBytes;
}

void CFlatWriter::Put8(BYTE byValue)
{
    if (BYTE* pBytes = Take(1))
        pBytes[0] = byValue;
}

void CFlatWriter::Put16(WORD wValue)
{
    if (BYTE* pBytes = Take(2))
        PutLe16(pBytes, wValue);
}

void CFlatWriter::Put32(DWORD dwValue)
{
    if (BYTE* pBytes = Take(4))
        PutLe32(pBytes, dwValue);
}

void CFlatWriter::PutBytes(const CString& str)
{
    const DWORD dwLength = static_cast<DWORD>(str.GetLength());
    if (BYTE* pBytes = Take(dwLength))
        std::copy_n(reinterpret_cast<const BYTE*>(static_cast<LPCSTR>(str)), dwLength, pBytes);
}

DWORD CFlatWriter::GetPosition() const
{
    return m_nPos;
}

BYTE* CFlatWriter::GetCurrent() const
{
    return m_pBuf != nullptr ? m_pBuf + m_nPos : nullptr;
}

DWORD CFlatWriter::GetRemaining() const
{
    return m_nSize - m_nPos;
}

void CFlatWriter::Skip(DWORD dwCount)
{
    Take(dwCount);
}

bool CFlatWriter::HasFailed() const
{
    return m_bFailed;
}
