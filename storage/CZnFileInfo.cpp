#include "storage/CZnFileInfo.h"

#include "platform/CFile.h"
#include "recording/ZnFileLayout.h"
#include "storage/FlatBuffer.h"
#include "vocabulary/StreamRevision.h"

IMPLEMENT_DYNAMIC(CZnFileInfo, CObject)

namespace {

// The head's name lengths have 16 bits; the host name's has 32 in the file, and a
// length beyond what the others can say is taken as damage rather than cut to 16 bits,
// which would leave the reader at the wrong place for the GMT offset.
constexpr DWORD kMaxHeadNameLength = 0xFFFF;

// Reads the head, names, host name and GMT offset of an open file; FALSE for anything
// but a whole head of a version this run reads.
BOOL ReadSummaryHead(CFile& file, DWORD dwRevision, tag_ZNHEADWITHNAMES& head)
{
    if (ReadFileHead(file, head, kMaxHeadNameLength) != ZNHEAD_WHOLE)
        return FALSE;
    // Version 0x1000 is the form of stream revision 0x20020219; a run of the other
    // revision can't play it.
    return head.Header.wVersion != ZNFILE_VERSION_R2 || dwRevision == STREAM_REVISION_20020219;
}

void PutString32(CFlatWriter& writer, const CString& str)
{
    writer.Put32(static_cast<DWORD>(str.GetLength()));
    writer.PutBytes(str);
}

CString GetString32(CFlatReader& reader)
{
    return reader.GetString(reader.Get32());
}

} // namespace

CZnFileInfo::CZnFileInfo()
    : m_byCamera(0),
      m_byBoard(0),
      m_byFrameSize(0),
      m_bySoundFormat(0),
      m_byReserved(0),
      m_dwEndTime(0),
      m_dwBeginTime(0),
      m_dwFileLength(0),
      m_nGmtOffset(0)
{
}

CZnFileInfo::~CZnFileInfo() = default;

CZnFileInfo& CZnFileInfo::operator=(const CZnFileInfo& other)
{
    m_byCamera = other.m_byCamera;
    m_byBoard = other.m_byBoard;
    m_byFrameSize = other.m_byFrameSize;
    m_bySoundFormat = other.m_bySoundFormat;
    m_byReserved = other.m_byReserved;
    m_dwEndTime = other.m_dwEndTime;
    m_dwBeginTime = other.m_dwBeginTime;
    m_dwFileLength = other.m_dwFileLength;
    m_strCameraName = other.m_strCameraName;
    m_strBoardName = other.m_strBoardName;
    m_strFilePath = other.m_strFilePath;
    m_strHostName = other.m_strHostName;
    m_nGmtOffset = other.m_nGmtOffset;
    return *this;
}

int CZnFileInfo::Create(CString strPath, DWORD dwRevision)
{
    m_dwFileLength = 0;
    CFile file;
    if (!file.Open(strPath, CFile::modeRead | CFile::modeRegularOnly))
        return 0;
    tag_ZNHEADWITHNAMES head{};
    DWORD dwLength = 0;
    try {
        dwLength = file.GetLength();
        if (!ReadSummaryHead(file, dwRevision, head))
            return 0;
    } catch (CException* pException) {
        pException->Delete();
        return 0;
    }
    file.Abort();
    m_byCamera = head.Header.byCamera;
    m_byBoard = head.Header.byBoard;
    m_byFrameSize = head.Header.byFrameSize;
    m_bySoundFormat = head.Header.bySoundFormat;
    m_dwBeginTime = head.Header.dwBeginTime;
    m_dwEndTime = head.Header.dwEndTime;
    m_dwFileLength = dwLength;
    m_strBoardName = head.strBoardName;
    m_strCameraName = head.strCameraName;
    m_strHostName = head.strHostName;
    m_nGmtOffset = head.nGmt;
    m_strFilePath = strPath;
    return 1;
}

DWORD CZnFileInfo::GetSize() const
{
    return FIXED_RECORD_SIZE + static_cast<DWORD>(m_strCameraName.GetLength()) +
           static_cast<DWORD>(m_strBoardName.GetLength()) + static_cast<DWORD>(m_strFilePath.GetLength()) +
           static_cast<DWORD>(m_strHostName.GetLength());
}

DWORD CZnFileInfo::WriteToBuf(BYTE* pBuf, DWORD nSize) const
{
    if (pBuf == nullptr || nSize < GetSize())
        return BUF_ERROR;
    CFlatWriter writer(pBuf, nSize);
    writer.Put8(m_byCamera);
    writer.Put8(m_byBoard);
    writer.Put8(m_byFrameSize);
    writer.Put8(m_bySoundFormat);
    writer.Put8(m_byReserved);
    writer.Put32(m_dwBeginTime);
    writer.Put32(m_dwEndTime);
    writer.Put32(m_dwFileLength);
    PutString32(writer, m_strCameraName);
    PutString32(writer, m_strBoardName);
    PutString32(writer, m_strFilePath);
    PutString32(writer, m_strHostName);
    writer.Put32(static_cast<DWORD>(m_nGmtOffset));
    return writer.GetPosition();
}

DWORD CZnFileInfo::ReadFromBuf(const BYTE* pBuf, DWORD nSize)
{
    if (pBuf == nullptr)
        return BUF_ERROR;
    CFlatReader reader(pBuf, nSize);
    CZnFileInfo read;
    read.m_byCamera = reader.Get8();
    read.m_byBoard = reader.Get8();
    read.m_byFrameSize = reader.Get8();
    read.m_bySoundFormat = reader.Get8();
    read.m_byReserved = reader.Get8();
    read.m_dwBeginTime = reader.Get32();
    read.m_dwEndTime = reader.Get32();
    read.m_dwFileLength = reader.Get32();
    read.m_strCameraName = GetString32(reader);
    read.m_strBoardName = GetString32(reader);
    read.m_strFilePath = GetString32(reader);
    read.m_strHostName = GetString32(reader);
    read.m_nGmtOffset = static_cast<int>(reader.Get32());
    if (reader.IsDamaged())
        return BUF_ERROR;
    *this = read;
    return reader.GetPosition();
}
