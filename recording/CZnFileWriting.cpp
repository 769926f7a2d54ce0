// The writing side of CZnFile: the head at opening, frames collected block by block in
// memory, each block reaching the disk behind its record at the next key frame, and the
// end block at closing.
#include "recording/CZnFile.h"

#include "recording/ZnFileLayout.h"

#include "platform/CMemoryException.h"
#include "platform/CTime.h"
#include "platform/Disks.h"
#include "platform/TickClock.h"

#include <algorithm>
#include <ctime>

namespace {

// The block table never has fewer entries than this; entries behind the last block are 0.
constexpr int kBlockTableMinSize = 1024;
constexpr UINT kMemFileGrowBytes = 1024;
// A block reaches the disk through a buffer of this size on the stack, so that a block
// change allocates nothing; large enough that the copy costs few system calls.
constexpr UINT kBlockCopyPieceSize = 65536;
constexpr int kHoursPerDay = 24;

DWORD GetCurrentWallTime()
{
    return static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
}

// Whole hours of local time ahead of UTC, folded into 0 to 23.
int ComputeGmtOffset()
{
    const CTime now = CTime::GetCurrentTime();
    struct tm localTm {};
    struct tm gmtTm {};
    if (now.GetLocalTm(&localTm) == nullptr || now.GetGmtTm(&gmtTm) == nullptr)
        return 0;
    int nGmt = localTm.tm_hour - gmtTm.tm_hour;
    if (nGmt < 0)
        nGmt += kHoursPerDay;
    return nGmt;
}

} // namespace

int CZnFile::OpenForWrite(const CString& strFile, const tag_CAMERAINFO* pInfo, DWORD dwRevision)
{
    if (pInfo == nullptr)
        return 0;
    const tag_FRAMESIZE nSize =
        GetFrameSizeOfPicture(pInfo->nWidth, pInfo->nHeight, pInfo->nStandard, dwRevision);
    if (nSize == FRAMESIZE_INVALID)
        return 0;

    // A reader takes strings of at most ZNFILE_MAX_NAME_LENGTH bytes; longer names are cut
    // so that the file stays readable.
    m_strBoardName = m_strBoardName.Left(ZNFILE_MAX_NAME_LENGTH);
    m_strCameraName = m_strCameraName.Left(ZNFILE_MAX_NAME_LENGTH);
    m_strHostName = m_strHostName.Left(ZNFILE_MAX_NAME_LENGTH);

    tag_ZNFILEHEADER header{};
    header.byMagic[0] = ZNFILE_MAGIC_0;
    header.byMagic[1] = ZNFILE_MAGIC_1;
    header.wVersion = dwRevision == STREAM_REVISION_20020219 ? ZNFILE_VERSION_R2 : ZNFILE_VERSION_GMT;
    header.byFrameSize = static_cast<BYTE>(nSize);
    header.byBoard = static_cast<BYTE>(pInfo->nBoard);
    header.byCamera = static_cast<BYTE>(pInfo->nCamera);
    header.byKeyFrameInterval = ZNFILE_KEY_FRAME_INTERVAL;
    header.dwBeginTime = GetCurrentWallTime();
    header.dwEndTime = header.dwBeginTime;
    header.wBoardNameLen = static_cast<WORD>(m_strBoardName.GetLength());
    header.wCameraNameLen = static_cast<WORD>(m_strCameraName.GetLength());

    m_pFile = new CFile;
    m_pMemFile = new CMemFile(kMemFileGrowBytes);
    if (!m_pFile->Open(strFile, CFile::modeCreate | CFile::modeWrite)) {
        delete m_pFile;
        delete m_pMemFile;
        m_pFile = nullptr;
        m_pMemFile = nullptr;
        return 0;
    }
    m_strFileName = m_pFile->GetFilePath();

    // Until the first frame comes, the head and block 0 carry the stamp of the opening;
    // the first frame replaces both with its own.
    const DWORD dwOpenStamp = GetTickCount();
    m_nGmt = ComputeGmtOffset();
    header.dwBeginTimeStamp = dwOpenStamp;
    header.dwDataOffset = GetDataOffset(GetHeadWithNames(header));
    m_Header = header;
    WriteFileHead(*m_pFile, GetHeadWithNames(m_Header));

    m_Block = tag_ZNBLOCKHEADER{ZNBLOCK_NO_LINK, ZNBLOCK_NO_LINK, 0, 0, dwOpenStamp};
    WriteBlockRecord(*m_pFile, m_Block);
    m_dwBlockLen = 0;
    m_pFile->Close();

    m_nMode = ZNFILE_WRITE;
    m_dwTotalFrames = 0;
    m_dwTotalBlocks = 0;
    m_BlockTable.RemoveAll();
    m_BlockTable.SetSize(kBlockTableMinSize);
    AddBlockEntry(m_Header.dwDataOffset, 0, m_Block.dwTimeStamp);
    return 1;
}

int CZnFile::WriteOneFrame(tag_ZNFRAMEDATA* pFrame)
{
    if (m_pFile == nullptr || m_pMemFile == nullptr || pFrame == nullptr)
        return -1;
    const BOOL bSound = (pFrame->wFlags & ZNFRAME_SOUND) != 0;
    if ((pFrame->dwVideoLen != 0 && pFrame->pVideo == nullptr) ||
        (bSound && pFrame->dwSoundLen != 0 && pFrame->pSound == nullptr))
        return -1;
    const BOOL bKeyFrame = pFrame->wFrameType == ZNFRAME_I;
    // A block begins with a key frame; and its 16-bit frame counter must not wrap.
    if (!bKeyFrame && (m_Block.wFrames == 0 || m_Block.wFrames == 0xFFFF))
        return 0;
    try {
        if (bKeyFrame && m_Block.wFrames != 0 && CloseBlock(pFrame->dwTimeStamp) < 0)
            return -1;
        AppendFrame(*pFrame);
        CountFrame(*pFrame);
        return 1;
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    // The next block change opens the disk file afresh.
    m_pFile->Abort();
    return -1;
}

// Adds the frame to the collecting block behind the frames stored there. Nothing is
// counted here, so a frame that fails half-way leaves no trace.
void CZnFile::AppendFrame(const tag_ZNFRAMEDATA& frame)
{
    BYTE fields[ZNFRAME_MAX_FIELDS_SIZE];
    const UINT nFieldsSize = StoreFrameFields(frame, fields);
    const DWORD dwSoundLen = (frame.wFlags & ZNFRAME_SOUND) != 0 ? frame.dwSoundLen : 0;
    m_pMemFile->Seek(static_cast<LONG>(m_dwBlockLen), CFile::begin);
    m_pMemFile->Write(fields, nFieldsSize);
    if (frame.dwVideoLen != 0)
        m_pMemFile->Write(frame.pVideo, frame.dwVideoLen);
    if (dwSoundLen != 0)
        m_pMemFile->Write(frame.pSound, dwSoundLen);
    m_dwBlockLen += nFieldsSize + frame.dwVideoLen + dwSoundLen;
}

// The head describes the first frame accepted, not the call of Open; a block's stamp is
// that of its key frame.
void CZnFile::CountFrame(const tag_ZNFRAMEDATA& frame)
{
    const DWORD dwNow = GetCurrentWallTime();
    if (m_dwTotalFrames == 0) {
        m_Header.dwBeginTime = dwNow;
        m_Header.dwBeginTimeStamp = frame.dwTimeStamp;
    }
    if (m_Block.wFrames == 0)
        m_Block.dwTimeStamp = frame.dwTimeStamp;
    ++m_Block.wFrames;
    ++m_dwTotalFrames;
    m_Header.dwEndTime = dwNow;
    tag_ZNBLOCKINFO& entry = m_BlockTable[static_cast<int>(m_dwTotalBlocks) - 1];
    entry.dwFrames = m_Block.wFrames;
    entry.dwTimeStamp = m_Block.dwTimeStamp;
}

int CZnFile::IsNextIFrame()
{
    return m_Block.wFrames == 0;
}

// Writes the collecting block to the disk behind its record and starts the block of the
// key frame that arrived. -1 when the disk file can't be opened again.
int CZnFile::CloseBlock(DWORD dwKeyFrameStamp)
{
    m_dwBlockLen = std::min(m_dwBlockLen, m_pMemFile->GetLength());
    if (!ReopenDiskFile())
        return -1;
    // The record's place is that of the table; after a block change that failed
    // half-way the file may be longer than the chain.
    const DWORD dwRecordPos = m_BlockTable[static_cast<int>(m_dwTotalBlocks) - 1].dwOffset;
    WriteBlockData(dwRecordPos);

    m_dwBlockLen = 0;
    m_Block.wFrames = 0;
    m_Block.dwNextBlock = ZNBLOCK_NO_LINK;
    m_Block.dwPrevBlock = dwRecordPos;
    m_Block.dwTimeStamp = dwKeyFrameStamp;
    const DWORD dwNewRecordPos = m_pFile->GetPosition();
    WriteBlockRecord(*m_pFile, m_Block);
    m_pFile->Close();
    AddBlockEntry(dwNewRecordPos, 0, dwKeyFrameStamp);
    return 1;
}

BOOL CZnFile::ReopenDiskFile()
{
    if (m_pFile->m_hFile != CFile::hFileNull)
        return TRUE;
    return m_pFile->Open(m_strFileName, CFile::modeWrite | CFile::modeNoTruncate);
}

// The head first, then the block's record with its count and next link, then its frames:
// a reader finds the link before the data that it promises are complete.
void CZnFile::WriteBlockData(DWORD dwRecordPos)
{
    BYTE head[ZNFILE_HEADER_SIZE];
    StoreFileHeader(m_Header, head);
    m_pFile->SeekToBegin();
    m_pFile->Write(head, ZNFILE_HEADER_SIZE);

    m_Block.dwNextBlock = dwRecordPos + ZNBLOCK_HEADER_SIZE + m_dwBlockLen;
    SeekTo(*m_pFile, dwRecordPos);
    WriteBlockRecord(*m_pFile, m_Block);

    BYTE piece[kBlockCopyPieceSize];
    m_pMemFile->SeekToBegin();
    DWORD dwLeft = m_dwBlockLen;
    while (dwLeft > 0) {
        const UINT nGot = m_pMemFile->Read(piece, std::min<DWORD>(dwLeft, sizeof(piece)));
        if (nGot == 0)
            break;
        m_pFile->Write(piece, nGot);
        dwLeft -= nGot;
    }
    m_pMemFile->SeekToBegin();
}

// Finishes a file being written: the collecting block and the end block behind it. A file
// that never took a frame is deleted.
void CZnFile::Flush()
{
    if (m_pFile == nullptr || m_nMode != ZNFILE_WRITE)
        return;
    if (m_dwTotalFrames == 0) {
        m_pFile->Abort();
        DeleteFileA(m_strFileName);
        return;
    }
    if (m_pMemFile == nullptr)
        return;
    m_dwBlockLen = std::min(m_dwBlockLen, m_pMemFile->GetLength());
    if (!ReopenDiskFile())
        return;
    const DWORD dwRecordPos = m_BlockTable[static_cast<int>(m_dwTotalBlocks) - 1].dwOffset;
    if (m_dwBlockLen == 0) {
        m_Block.wFrames = 0;
        SeekTo(*m_pFile, dwRecordPos);
    } else {
        WriteBlockData(dwRecordPos);
        m_Block.dwPrevBlock = dwRecordPos;
        m_Block.dwNextBlock = ZNBLOCK_NO_LINK;
        m_Block.wFrames = 0;
        m_Block.dwTimeStamp = GetTickCount();
    }
    WriteBlockRecord(*m_pFile, m_Block);
    m_pFile->Close();
}

