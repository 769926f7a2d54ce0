// The reading side of CZnFile: the head and the chain of blocks at opening, then frames
// one after the other or by their place in the block table.
#include "recording/CZnFile.h"

#include "recording/ZnFileLayout.h"

#include "platform/CMemoryException.h"

namespace {

// The block table never has fewer entries than this; entries behind the last block are 0.
constexpr int kBlockTableMinSize = 1024;

} // namespace

int CZnFile::OpenForRead(const CString& strFile, tag_CAMERAINFO* pInfo)
{
    m_pFile = new CFile;
    if (!m_pFile->Open(strFile, CFile::modeRead)) {
        delete m_pFile;
        m_pFile = nullptr;
        return 0;
    }
    try {
        m_strFileName = m_pFile->GetFilePath();
        if (!ReadHeadAndNames()) {
            DropReadFile();
            return 0;
        }
        if (pInfo != nullptr) {
            pInfo->nBoard = m_Header.byBoard;
            pInfo->nCamera = m_Header.byCamera;
            pInfo->nWidth = GetVideoWidth();
            pInfo->nHeight = GetVideoHeight();
            pInfo->nStandard = GetVideoStandard();
        }
        WalkBlockChain();
        if (m_dwTotalBlocks == 0 || m_dwTotalFrames == 0) {
            DropReadFile();
            return 0;
        }
        SeekTo(*m_pFile, m_BlockTable[0].dwOffset);
        ReadBlockRecord(*m_pFile, m_Block);
        m_dwReadPos = m_BlockTable[0].dwOffset + ZNBLOCK_HEADER_SIZE;
        m_nReadBlock = 0;
        m_nReadFrame = 0;
        m_nMode = ZNFILE_READ;
        return 1;
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    DropReadFile();
    return 0;
}

// The head, the names, the host name and the GMT offset; FALSE when the file is not a
// recording or ends inside them. A file of a version without the GMT offset reads as 0,
// also in a reused object.
BOOL CZnFile::ReadHeadAndNames()
{
    tag_ZNHEADWITHNAMES head{};
    if (ReadFileHead(*m_pFile, head) != ZNHEAD_WHOLE || !IsRecordingHeader(head.Header))
        return FALSE;
    m_Header = head.Header;
    m_strBoardName = head.strBoardName;
    m_strCameraName = head.strCameraName;
    m_strHostName = head.strHostName;
    m_nGmt = head.nGmt;
    return TRUE;
}

// Follows the links from the data offset and enters every block record it can read. A
// link that doesn't lead forward inside the file ends the chain, so that no file, however
// damaged, makes the walk go round.
void CZnFile::WalkBlockChain()
{
    m_BlockTable.RemoveAll();
    m_BlockTable.SetSize(kBlockTableMinSize);
    m_dwTotalBlocks = 0;
    m_dwTotalFrames = 0;
    const DWORD dwFileLength = m_pFile->GetLength();
    DWORD dwPos = m_Header.dwDataOffset;
    while (dwPos < dwFileLength && dwFileLength - dwPos >= ZNBLOCK_HEADER_SIZE) {
        SeekTo(*m_pFile, dwPos);
        if (!ReadBlockRecord(*m_pFile, m_Block))
            break;
        AddBlockEntry(dwPos, m_Block.wFrames, m_Block.dwTimeStamp);
        m_dwTotalFrames += m_Block.wFrames;
        const DWORD dwNext = m_Block.dwNextBlock;
        if (dwNext == ZNBLOCK_NO_LINK || dwNext >= dwFileLength ||
            dwNext < dwPos + ZNBLOCK_HEADER_SIZE)
            break;
        dwPos = dwNext;
    }
}

void CZnFile::DropReadFile()
{
    m_pFile->Abort();
    delete m_pFile;
    m_pFile = nullptr;
    m_BlockTable.RemoveAll();
    m_dwTotalBlocks = 0;
    m_dwTotalFrames = 0;
}

int CZnFile::ReadOneFrame(tag_ZNFRAMEDATA* pFrame, int nBlock, int nFrame)
{
    if (m_nMode != ZNFILE_READ || m_pFile == nullptr || m_pFile->m_hFile == CFile::hFileNull ||
        pFrame == nullptr)
        return 0;
    if (nBlock >= 0 && static_cast<DWORD>(nBlock) >= m_dwTotalBlocks)
        return 0;
    try {
        if (nBlock < 0)
            return ReadNextFrame(pFrame);
        return ReadFrameAt(pFrame, nBlock, nFrame);
    } catch (CFileException* pException) {
        ReportAndDelete(pException);
    } catch (CMemoryException* pException) {
        ReportAndDelete(pException);
    }
    return 0;
}

int CZnFile::ReadNextFrame(tag_ZNFRAMEDATA* pFrame)
{
    int nBlock = m_nReadBlock;
    int nFrame = m_nReadFrame;
    DWORD dwPos = m_dwReadPos;
    while (nBlock >= 0 && static_cast<DWORD>(nBlock) < m_dwTotalBlocks) {
        if (static_cast<DWORD>(nFrame) < m_BlockTable[nBlock].dwFrames) {
            DWORD dwNextPos = 0;
            if (!ReadFrameRecord(pFrame, dwPos, dwNextPos))
                return 0;
            SetReadPos(dwNextPos, nBlock, nFrame + 1);
            return 1;
        }
        ++nBlock;
        nFrame = 0;
        dwPos = m_BlockTable[nBlock].dwOffset + ZNBLOCK_HEADER_SIZE;
    }
    return 0;
}

// There is no index of frames inside a block: the records before the one asked for are
// passed over by their lengths.
int CZnFile::ReadFrameAt(tag_ZNFRAMEDATA* pFrame, int nBlock, int nFrame)
{
    if (nFrame < 0)
        return 0;
    for (; static_cast<DWORD>(nBlock) < m_dwTotalBlocks; ++nBlock, nFrame = 0) {
        if (static_cast<DWORD>(nFrame) >= m_BlockTable[nBlock].dwFrames)
            continue;
        DWORD dwPos = m_BlockTable[nBlock].dwOffset + ZNBLOCK_HEADER_SIZE;
        for (int i = 0; i < nFrame; ++i) {
            if (!SkipFrameRecord(dwPos, dwPos))
                return 0;
        }
        DWORD dwNextPos = 0;
        if (!ReadFrameRecord(pFrame, dwPos, dwNextPos))
            return 0;
        SetReadPos(dwNextPos, nBlock, nFrame + 1);
        return 1;
    }
    return 0;
}

void CZnFile::SetReadPos(DWORD dwPos, int nBlock, int nFrame)
{
    m_dwReadPos = dwPos;
    m_nReadBlock = nBlock;
    m_nReadFrame = nFrame;
}

// Reads the record at dwPos into the caller's frame. 0 when the file ends inside the
// record, or when its lengths exceed the capacities that the frame size of the file gives
// the caller's buffers: such a record is damage, and nothing is written past a buffer.
int CZnFile::ReadFrameRecord(tag_ZNFRAMEDATA* pFrame, DWORD dwPos, DWORD& dwNextPos)
{
    BYTE bytes[ZNFRAME_MAX_FIELDS_SIZE];
    tag_ZNFRAMEFIELDS fields{};
    SeekTo(*m_pFile, dwPos);
    if (!ReadFrameFields(*m_pFile, fields, bytes))
        return 0;
    if (fields.dwVideoLen > GetVideoCapacity() || fields.dwSoundLen > ZNFRAME_SOUND_BUFFER_SIZE)
        return 0;
    if ((fields.dwVideoLen != 0 && pFrame->pVideo == nullptr) ||
        (fields.dwSoundLen != 0 && pFrame->pSound == nullptr))
        return 0;
    if (fields.dwVideoLen != 0 && m_pFile->Read(pFrame->pVideo, fields.dwVideoLen) < fields.dwVideoLen)
        return 0;
    if (fields.dwSoundLen != 0 && m_pFile->Read(pFrame->pSound, fields.dwSoundLen) < fields.dwSoundLen)
        return 0;
    pFrame->wFrameType = fields.wFrameType;
    pFrame->wFlags = fields.wFlags;
    pFrame->dwTimeStamp = fields.dwTimeStamp;
    pFrame->dwVideoLen = fields.dwVideoLen;
    if ((fields.wFlags & ZNFRAME_SOUND) != 0)
        pFrame->dwSoundLen = fields.dwSoundLen;
    dwNextPos = dwPos + fields.nFieldsSize + fields.dwVideoLen + fields.dwSoundLen;
    return 1;
}

// The position behind the record at dwPos, read from its fixed fields alone.
BOOL CZnFile::SkipFrameRecord(DWORD dwPos, DWORD& dwNextPos)
{
    BYTE bytes[ZNFRAME_MAX_FIELDS_SIZE];
    tag_ZNFRAMEFIELDS fields{};
    SeekTo(*m_pFile, dwPos);
    if (!ReadFrameFields(*m_pFile, fields, bytes))
        return FALSE;
    const unsigned long long nNext = static_cast<unsigned long long>(dwPos) + fields.nFieldsSize +
                                     fields.dwVideoLen + fields.dwSoundLen;
    if (nNext > ZNBLOCK_NO_LINK)
        return FALSE;
    dwNextPos = static_cast<DWORD>(nNext);
    return TRUE;
}

DWORD CZnFile::GetVideoCapacity() const
{
    return static_cast<DWORD>(GetVideoWidth()) * static_cast<DWORD>(GetVideoHeight()) * 2;
}

