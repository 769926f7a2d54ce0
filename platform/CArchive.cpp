#include "platform/CArchive.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <string>
#include <utility>

namespace {

constexpr BYTE kByteLengthEscape = 0xFF;
constexpr WORD kWordLengthEscape = 0xFFFF;
constexpr DWORD kWordLengthLimit = 0xFFFE;
constexpr WORD kWordCountEscape = 0xFFFF;
constexpr UINT kMinBufferSize = 16;
// A string arrives in pieces of this size, so that a hostile length costs no more
// memory than the data actually present.
constexpr UINT kStringChunk = 4096;

} // namespace

CArchive::CArchive(CFile* pFile, UINT nMode, int nBufSize, void* lpBuf)
    : m_pFile(pFile), m_nMode(nMode), m_lpBufStart(static_cast<BYTE*>(lpBuf)),
      m_nBufSize(nBufSize > static_cast<int>(kMinBufferSize) ? static_cast<UINT>(nBufSize) : kMinBufferSize),
      m_nBufCur(0), m_nBufMax(0), m_bUserBuf(lpBuf != nullptr)
{
    if (m_bUserBuf && nBufSize < static_cast<int>(kMinBufferSize)) {
        m_lpBufStart = nullptr;
        m_bUserBuf = FALSE;
    }
    if (!m_bUserBuf)
        m_lpBufStart = new BYTE[m_nBufSize];
}

CArchive::~CArchive()
{
    if (m_pFile != nullptr && (m_nMode & bNoFlushOnDelete) == 0) {
        try {
            Close();
        } catch (CException* pException) {
            pException->Delete();
        }
    }
    Abort();
    if (!m_bUserBuf)
        delete[] m_lpBufStart;
}

BOOL CArchive::IsLoading() const
{
    return (m_nMode & load) != 0;
}

BOOL CArchive::IsStoring() const
{
    return (m_nMode & load) == 0;
}

CFile* CArchive::GetFile() const
{
    return m_pFile;
}

UINT CArchive::Read(void* lpBuf, UINT nMax)
{
    EnsureLoading();
    if (lpBuf == nullptr || nMax == 0)
        return 0;
    BYTE* pDest = static_cast<BYTE*>(lpBuf);
    UINT nBuffered = std::min(nMax, m_nBufMax - m_nBufCur);
    std::memcpy(pDest, m_lpBufStart + m_nBufCur, nBuffered);
    m_nBufCur += nBuffered;
    UINT nDone = nBuffered;
    if (nMax - nDone >= m_nBufSize)
        return nDone + m_pFile->Read(pDest + nDone, nMax - nDone);
    if (nDone < nMax) {
        m_nBufCur = 0;
        m_nBufMax = m_pFile->Read(m_lpBufStart, m_nBufSize);
        UINT nMore = std::min(nMax - nDone, m_nBufMax);
        std::memcpy(pDest + nDone, m_lpBufStart, nMore);
        m_nBufCur = nMore;
        nDone += nMore;
    }
    return nDone;
}

void CArchive::Write(const void* lpBuf, UINT nMax)
{
    EnsureStoring();
    if (nMax == 0)
        return;
    if (lpBuf == nullptr)
        ThrowArchiveException(CArchiveException::generic);
    const BYTE* pSource = static_cast<const BYTE*>(lpBuf);
    if (nMax > m_nBufSize - m_nBufCur) {
        FlushStoreBuffer();
        if (nMax >= m_nBufSize) {
            m_pFile->Write(pSource, nMax);
            return;
        }
    }
    std::memcpy(m_lpBufStart + m_nBufCur, pSource, nMax);
    m_nBufCur += nMax;
}

void CArchive::Flush()
{
    if (m_pFile == nullptr)
        return;
    if (IsStoring()) {
        FlushStoreBuffer();
        return;
    }
    UINT nUnread = m_nBufMax - m_nBufCur;
    m_nBufCur = 0;
    m_nBufMax = 0;
    if (nUnread > 0)
        m_pFile->Seek(-static_cast<LONG>(nUnread), CFile::current);
}

void CArchive::Close()
{
    Flush();
    m_pFile = nullptr;
}

void CArchive::Abort()
{
    m_pFile = nullptr;
    m_nBufCur = 0;
    m_nBufMax = 0;
}

void CArchive::WriteCount(DWORD dwCount)
{
    if (dwCount < kWordCountEscape) {
        *this << static_cast<WORD>(dwCount);
        return;
    }
    *this << kWordCountEscape << dwCount;
}

DWORD CArchive::ReadCount()
{
    WORD wCount = 0;
    *this >> wCount;
    if (wCount != kWordCountEscape)
        return wCount;
    DWORD dwCount = 0;
    *this >> dwCount;
    return dwCount;
}

void CArchive::WriteStringLength(DWORD dwLength)
{
    if (dwLength < kByteLengthEscape) {
        *this << static_cast<BYTE>(dwLength);
        return;
    }
    *this << kByteLengthEscape;
    if (dwLength < kWordLengthLimit) {
        *this << static_cast<WORD>(dwLength);
        return;
    }
    *this << kWordLengthEscape << dwLength;
}

DWORD CArchive::ReadStringLength()
{
    BYTE byLength = 0;
    *this >> byLength;
    if (byLength != kByteLengthEscape)
        return byLength;
    WORD wLength = 0;
    *this >> wLength;
    if (wLength != kWordLengthEscape)
        return wLength;
    DWORD dwLength = 0;
    *this >> dwLength;
    return dwLength;
}

template <typename T> void CArchive::StoreLittleEndian(T value)
{
    BYTE aBytes[sizeof(T)];
    std::memcpy(aBytes, &value, sizeof(T));
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(aBytes, aBytes + sizeof(T));
    Write(aBytes, sizeof(T));
}

template <typename T> T CArchive::LoadLittleEndian()
{
    EnsureLoading();
    FillBuffer(sizeof(T));
    BYTE aBytes[sizeof(T)];
    std::memcpy(aBytes, m_lpBufStart + m_nBufCur, sizeof(T));
    m_nBufCur += sizeof(T);
    if constexpr (std::endian::native == std::endian::big)
        std::reverse(aBytes, aBytes + sizeof(T));
    T value;
    std::memcpy(&value, aBytes, sizeof(T));
    return value;
}

CArchive& CArchive::operator<<(BYTE by)
{
    StoreLittleEndian(by);
    return *this;
}

CArchive& CArchive::operator<<(char ch)
{
    StoreLittleEndian(ch);
    return *this;
}

CArchive& CArchive::operator<<(WORD w)
{
    StoreLittleEndian(w);
    return *this;
}

CArchive& CArchive::operator<<(short w)
{
    StoreLittleEndian(w);
    return *this;
}

CArchive& CArchive::operator<<(LONG l)
{
    StoreLittleEndian(l);
    return *this;
}

CArchive& CArchive::operator<<(DWORD dw)
{
    StoreLittleEndian(dw);
    return *this;
}

CArchive& CArchive::operator<<(long l)
{
    StoreLittleEndian(static_cast<LONG>(l));
    return *this;
}

CArchive& CArchive::operator<<(unsigned long dw)
{
    StoreLittleEndian(static_cast<DWORD>(dw));
    return *this;
}

CArchive& CArchive::operator<<(float f)
{
    StoreLittleEndian(f);
    return *this;
}

CArchive& CArchive::operator<<(double d)
{
    StoreLittleEndian(d);
    return *this;
}

CArchive& CArchive::operator>>(BYTE& by)
{
    by = LoadLittleEndian<BYTE>();
    return *this;
}

CArchive& CArchive::operator>>(char& ch)
{
    ch = LoadLittleEndian<char>();
    return *this;
}

CArchive& CArchive::operator>>(WORD& w)
{
    w = LoadLittleEndian<WORD>();
    return *this;
}

CArchive& CArchive::operator>>(short& w)
{
    w = LoadLittleEndian<short>();
    return *this;
}

CArchive& CArchive::operator>>(LONG& l)
{
    l = LoadLittleEndian<LONG>();
    return *this;
}

CArchive& CArchive::operator>>(DWORD& dw)
{
    dw = LoadLittleEndian<DWORD>();
    return *this;
}

CArchive& CArchive::operator>>(long& l)
{
    l = LoadLittleEndian<LONG>();
    return *this;
}

CArchive& CArchive::operator>>(unsigned long& dw)
{
    dw = LoadLittleEndian<DWORD>();
    return *this;
}

CArchive& CArchive::operator>>(float& f)
{
    f = LoadLittleEndian<float>();
    return *this;
}

CArchive& CArchive::operator>>(double& d)
{
    d = LoadLittleEndian<double>();
    return *this;
}

void CArchive::EnsureStoring() const
{
    if (m_pFile == nullptr)
        ThrowArchiveException(CArchiveException::generic);
    if (IsLoading())
        ThrowArchiveException(CArchiveException::readOnly);
}

void CArchive::EnsureLoading() const
{
    if (m_pFile == nullptr)
        ThrowArchiveException(CArchiveException::generic);
    if (IsStoring())
        ThrowArchiveException(CArchiveException::writeOnly);
}

void CArchive::ThrowArchiveException(int nCause) const
{
    if (m_pFile == nullptr)
        AfxThrowArchiveException(nCause);
    AfxThrowArchiveException(nCause, m_pFile->GetFilePath());
}

void CArchive::FillBuffer(UINT nBytes)
{
    UINT nUnread = m_nBufMax - m_nBufCur;
    if (nUnread >= nBytes)
        return;
    std::memmove(m_lpBufStart, m_lpBufStart + m_nBufCur, nUnread);
    m_nBufCur = 0;
    m_nBufMax = nUnread;
    m_nBufMax += m_pFile->Read(m_lpBufStart + nUnread, m_nBufSize - nUnread);
    if (m_nBufMax < nBytes)
        ThrowArchiveException(CArchiveException::endOfFile);
}

void CArchive::FlushStoreBuffer()
{
    if (m_nBufCur == 0)
        return;
    UINT nBuffered = m_nBufCur;
    m_nBufCur = 0;
    m_pFile->Write(m_lpBufStart, nBuffered);
}

CArchive& operator<<(CArchive& ar, const CString& string)
{
    DWORD dwLength = static_cast<DWORD>(string.GetLength());
    ar.WriteStringLength(dwLength);
    ar.Write(string.GetStdString().data(), dwLength);
    return ar;
}

CArchive& operator>>(CArchive& ar, CString& string)
{
    DWORD dwLength = ar.ReadStringLength();
    std::string strText;
    char aChunk[kStringChunk];
    while (strText.size() < dwLength) {
        UINT nWanted = static_cast<UINT>(std::min<std::size_t>(sizeof(aChunk), dwLength - strText.size()));
        UINT nRead = ar.Read(aChunk, nWanted);
        if (nRead < nWanted)
            AfxThrowArchiveException(CArchiveException::endOfFile, ar.GetFile()->GetFilePath());
        strText.append(aChunk, nRead);
    }
    string = CString(std::move(strText));
    return ar;
}
