// The writing side of CZnFile: the head at opening, frames collected block by block in
// memory, each block committed to the disk at the next key frame, and the last block with
// the end block at closing.
//
// How a block reaches the disk, so that a power cut loses at most the block collecting:
// first its frames and the empty record of the block that follows, then a sync; then the
// count and the next link in the block's own record, which make it part of the chain, and
// a second sync. A reader never meets a count whose frames are not on the disk.
#include "recording/CZnFile.h"

#include "recording/ZnFileLayout.h"

#include "platform/CMemoryException.h"
#include "platform/CTime.h"
#include "platform/TickClock.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>

namespace {

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

    m_pFile.reset(new (std::nothrow) CFile);
    m_pMemFile.reset(new (std::nothrow) CMemFile(kMemFileGrowBytes));
    CFileException error;
    if (m_pFile == nullptr || m_pMemFile == nullptr) {
        CMemoryException().ReportError();
    } else if (!m_pFile->Open(strFile, CFile::modeCreate | CFile::modeWrite | CFile::modeRegularOnly, &error)) {
        error.ReportError();
    } else if (WriteEmptyRecording(header)) {
        m_nMode = ZNFILE_WRITE;
        m_bKeyFrameNeeded = FALSE;
        return 1;
    }
    ReleaseAll();
    return 0;
}

// The head and the empty record of block 0, and the file's name made durable: the head
// itself reaches the disk with the first block. On failure the half-made file is removed.
BOOL CZnFile::WriteEmptyRecording(const tag_ZNFILEHEADER& header)
{
    m_strFileName = m_pFile->GetFilePath();
    // Until the first frame comes, the head and block 0 carry the stamp of the opening;
    // the first frame replaces both with its own.
    const DWORD dwOpenStamp = GetTickCount();
    m_nGmt = ComputeGmtOffset();
    m_Header = header;
    m_Header.dwBeginTimeStamp = dwOpenStamp;
    m_Header.dwDataOffset = GetDataOffset(GetHeadWithNames(m_Header));
    m_Block = tag_ZNBLOCKHEADER{ZNBLOCK_NO_LINK, ZNBLOCK_NO_LINK, 0, 0, dwOpenStamp};
    m_dwBlockLen = 0;
    try {
        WriteFileHead(*m_pFile, GetHeadWithNames(m_Header));
        WriteBlockRecord(*m_pFile, m_Block);
        m_pFile->FlushDirectory();
        ResetBlockTable();
        AddBlockEntry(m_Header.dwDataOffset, 0, m_Block.dwTimeStamp);
        return TRUE;
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    m_pFile->RemoveOpenFile();
    return FALSE;
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
    if (!bKeyFrame && IsNextIFrame())
        return 0;
    // What a reader would refuse isn't stored, and a block's 16-bit counter must not wrap;
    // the frames that follow depend on the one refused.
    if (!IsReadableFrame(*pFrame) || (!bKeyFrame && m_Block.wFrames == 0xFFFF)) {
        m_bKeyFrameNeeded = TRUE;
        return 0;
    }
    const BOOL bChangeBlock = bKeyFrame && m_Block.wFrames != 0;
    try {
        if (!FitsInFile(bChangeBlock, *pFrame))
            AfxThrowFileException(CFileException::diskFull, EFBIG, m_strFileName);
        if (bChangeBlock)
            ChangeBlock(pFrame->dwTimeStamp);
        AppendFrame(*pFrame);
        CountFrame(*pFrame);
        if (bKeyFrame)
            m_bKeyFrameNeeded = FALSE;
        return 1;
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    m_bKeyFrameNeeded = TRUE;
    return -1;
}

BOOL CZnFile::IsReadableFrame(const tag_ZNFRAMEDATA& frame) const
{
    const BOOL bSound = (frame.wFlags & ZNFRAME_SOUND) != 0;
    return frame.dwVideoLen <= GetVideoCapacity() && (!bSound || frame.dwSoundLen <= ZNFRAME_SOUND_BUFFER_SIZE);
}

// Whether the block that is to take the frame (a new one at a block change) can still be
// committed with the record behind it inside the format's 32-bit offsets.
BOOL CZnFile::FitsInFile(BOOL bChangeBlock, const tag_ZNFRAMEDATA& frame) const
{
    std::uint64_t nRecordPos = GetCollectingRecordPos();
    std::uint64_t nBlockLen = m_dwBlockLen;
    if (bChangeBlock) {
        nRecordPos += ZNBLOCK_HEADER_SIZE + nBlockLen;
        nBlockLen = 0;
    }
    return nRecordPos + ZNBLOCK_HEADER_SIZE + nBlockLen + GetFrameRecordLength(frame) + ZNBLOCK_HEADER_SIZE <=
           ZNFILE_MAX_LENGTH;
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
    return m_Block.wFrames == 0 || m_bKeyFrameNeeded;
}

// Stores the collecting block and starts the block of the key frame that arrived. The
// object moves on only once the block is on the disk: a failure leaves it collecting,
// and the next key frame tries again.
void CZnFile::ChangeBlock(DWORD dwKeyFrameStamp)
{
    const DWORD dwRecordPos = GetCollectingRecordPos();
    const tag_ZNBLOCKHEADER following{dwRecordPos, ZNBLOCK_NO_LINK, 0, 0, dwKeyFrameStamp};
    StoreBlock(following);
    AddBlockEntry(dwRecordPos + ZNBLOCK_HEADER_SIZE + m_dwBlockLen, 0, dwKeyFrameStamp);
    m_Block = following;
    m_dwBlockLen = 0;
}

// Commits the collecting block, with the record that is to follow it: a new block's, or
// the end block. Changes nothing in the object; file failures are thrown.
void CZnFile::StoreBlock(const tag_ZNBLOCKHEADER& following)
{
    const DWORD dwRecordPos = GetCollectingRecordPos();
    // The head carries the times of the frames so far. The block's record is written
    // as it stood when the block began but with the stamp of its key frame; no link
    // reaches the frames and the following record yet.
    BYTE head[ZNFILE_HEADER_SIZE];
    StoreFileHeader(m_Header, head);
    m_pFile->SeekToBegin();
    m_pFile->Write(head, ZNFILE_HEADER_SIZE);
    tag_ZNBLOCKHEADER record = m_Block;
    record.wFrames = 0;
    record.dwNextBlock = ZNBLOCK_NO_LINK;
    SeekTo(*m_pFile, dwRecordPos);
    WriteBlockRecord(*m_pFile, record);
    WriteCollectedFrames();
    WriteBlockRecord(*m_pFile, following);
    m_pFile->Flush();

    record.wFrames = m_Block.wFrames;
    record.dwNextBlock = dwRecordPos + ZNBLOCK_HEADER_SIZE + m_dwBlockLen;
    SeekTo(*m_pFile, dwRecordPos);
    WriteBlockRecord(*m_pFile, record);
    m_pFile->Flush();
}

// Copies the collecting block from memory to the file's position.
void CZnFile::WriteCollectedFrames()
{
    BYTE piece[kBlockCopyPieceSize];
    m_pMemFile->SeekToBegin();
    DWORD dwLeft = m_dwBlockLen;
    while (dwLeft > 0) {
        const UINT nGot = m_pMemFile->Read(piece, std::min<DWORD>(dwLeft, sizeof(piece)));
        if (nGot == 0)
            AfxThrowMemoryException();
        m_pFile->Write(piece, nGot);
        dwLeft -= nGot;
    }
}

DWORD CZnFile::GetCollectingRecordPos() const
{
    return m_BlockTable[static_cast<int>(m_dwTotalBlocks) - 1].dwOffset;
}

// Finishes a file being written: the collecting block and the end block behind it. A file
// that never took a frame is deleted, and so is one whose only block can't be stored.
int CZnFile::Flush()
{
    if (m_pFile == nullptr || m_nMode != ZNFILE_WRITE)
        return 1;
    if (m_dwTotalFrames == 0) {
        m_pFile->RemoveOpenFile();
        return 1;
    }
    // After a block change whose key frame wasn't taken, the last record is already the
    // end block.
    if (m_Block.wFrames == 0)
        return 1;
    const tag_ZNBLOCKHEADER endBlock{GetCollectingRecordPos(), ZNBLOCK_NO_LINK, 0, 0, GetTickCount()};
    try {
        StoreBlock(endBlock);
        return 1;
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    if (m_dwTotalBlocks == 1)
        m_pFile->RemoveOpenFile();
    return 0;
}
