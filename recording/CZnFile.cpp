#include "recording/CZnFile.h"

#include "recording/ZnFileLayout.h"

#include "platform/CException.h"

namespace {

struct tag_PICTURESIZE {
    tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
    int nWidth = 0;
    int nHeight = 0;
};

// The picture of the head's frame size; a head that passed the checks always has one.
tag_PICTURESIZE LookUpPicture(const tag_ZNFILEHEADER& header)
{
    tag_PICTURESIZE picture;
    GetFrameSizePicture(static_cast<tag_FRAMESIZE>(header.byFrameSize), picture.nStandard, picture.nWidth,
                        picture.nHeight);
    return picture;
}

} // namespace

CZnFile::CZnFile(CString strCamera, CString strBoard, CString strHost)
    : m_strBoardName(strBoard)
    , m_strCameraName(strCamera)
    , m_nMode(ZNFILE_READ)
    , m_strHostName(strHost)
    , m_nGmt(0)
    , m_pMemFile(nullptr)
    , m_pFile(nullptr)
    , m_Header{}
    , m_Block{}
    , m_dwBlockLen(0)
    , m_dwTotalFrames(0)
    , m_dwTotalBlocks(0)
    , m_dwReadPos(0)
    , m_nReadBlock(0)
    , m_nReadFrame(0)
{
}

CZnFile::~CZnFile()
{
    // A destructor can't pass a failure on; it is shown like every other one.
    try {
        Close();
    } catch (CException* pException) {
        ReportAndDelete(pException);
    }
}

int CZnFile::Open(CString strFile, tag_CAMERAINFO* pInfo, DWORD dwRevision, tag_ZNFILEMODE nMode)
{
    if (m_pFile != nullptr)
        return 0;
    if (nMode == ZNFILE_WRITE)
        return OpenForWrite(strFile, pInfo, dwRevision);
    if (nMode == ZNFILE_READ)
        return OpenForRead(strFile, pInfo);
    return 0;
}

void CZnFile::Close()
{
    try {
        if (m_nMode == ZNFILE_WRITE)
            Flush();
    } catch (CException*) {
        ReleaseAll();
        throw;
    }
    ReleaseAll();
}

void CZnFile::ReleaseAll()
{
    if (m_pFile != nullptr) {
        m_pFile->Abort();
        delete m_pFile;
        m_pFile = nullptr;
    }
    delete m_pMemFile;
    m_pMemFile = nullptr;
    m_BlockTable.RemoveAll();
    m_dwTotalBlocks = 0;
    m_dwTotalFrames = 0;
    m_dwBlockLen = 0;
}

// Enters a block at the end of the table, which grows by doubling past its first size.
void CZnFile::AddBlockEntry(DWORD dwOffset, DWORD dwFrames, DWORD dwTimeStamp)
{
    const int nIndex = static_cast<int>(m_dwTotalBlocks);
    if (nIndex >= m_BlockTable.GetSize())
        m_BlockTable.SetSize(m_BlockTable.GetSize() * 2);
    m_BlockTable[nIndex] = tag_ZNBLOCKINFO{dwOffset, dwFrames, dwTimeStamp};
    ++m_dwTotalBlocks;
}

// The head as it stands in this object, with the names and the GMT offset behind it.
tag_ZNHEADWITHNAMES CZnFile::GetHeadWithNames(const tag_ZNFILEHEADER& header) const
{
    return tag_ZNHEADWITHNAMES{header, m_strBoardName, m_strCameraName, m_strHostName, m_nGmt};
}

void CZnFile::ReportAndDelete(CException* pException)
{
    pException->ReportError();
    pException->Delete();
}

int CZnFile::GetFilePos(int& nBlock, int& nFrame) const
{
    if (m_nMode == ZNFILE_WRITE) {
        nBlock = std::max(static_cast<int>(m_dwTotalBlocks) - 1, 0);
        nFrame = std::max(static_cast<int>(m_Block.wFrames) - 1, 0);
        return 1;
    }
    nBlock = m_nReadBlock;
    nFrame = m_nReadFrame;
    if (m_nReadBlock < 0 || static_cast<DWORD>(m_nReadBlock) >= m_dwTotalBlocks)
        return 0;
    const BOOL bLastBlock = static_cast<DWORD>(m_nReadBlock) == m_dwTotalBlocks - 1;
    if (bLastBlock && static_cast<DWORD>(m_nReadFrame) >= m_BlockTable[m_nReadBlock].dwFrames)
        return 0;
    return 1;
}

DWORD CZnFile::GetTotalFrameNum() const
{
    return m_dwTotalFrames;
}

DWORD CZnFile::GetTotalBlock() const
{
    return m_dwTotalBlocks;
}

const CArray<tag_ZNBLOCKINFO, tag_ZNBLOCKINFO&>* CZnFile::GetBlockInfo() const
{
    return &m_BlockTable;
}

DWORD CZnFile::GetBeginTime() const
{
    return m_Header.dwBeginTime;
}

DWORD CZnFile::GetEndTime() const
{
    return m_Header.dwEndTime;
}

DWORD CZnFile::GetBeginTimeStamp() const
{
    return m_Header.dwBeginTimeStamp;
}

WORD CZnFile::GetFileVersion() const
{
    return m_Header.wVersion;
}

tag_SOUNDFMT CZnFile::GetSoundFormat() const
{
    return static_cast<tag_SOUNDFMT>(m_Header.bySoundFormat);
}

int CZnFile::GetVideoWidth() const
{
    return LookUpPicture(m_Header).nWidth;
}

int CZnFile::GetVideoHeight() const
{
    return LookUpPicture(m_Header).nHeight;
}

tag_VIDEOSTANDARD CZnFile::GetVideoStandard() const
{
    return LookUpPicture(m_Header).nStandard;
}

CString CZnFile::GetBoardName() const
{
    return m_strBoardName;
}

CString CZnFile::GetCameraName() const
{
    return m_strCameraName;
}

CString CZnFile::GetHostName() const
{
    return m_strHostName;
}

CString CZnFile::GetFileName() const
{
    return m_strFileName;
}

int CZnFile::GetGmt() const
{
    return m_nGmt;
}

