// Clips of CZnFile: a stretch of an open recording, whole blocks copied as they stand and
// the last block frame by frame, into a new recording with links and times of its own.
#include "recording/CZnFile.h"

#include "recording/ZnFileLayout.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace {

constexpr DWORD kMillisecondsPerSecond = 1000;
// Clips copy the source's bytes through a buffer of this size on the stack.
constexpr UINT kClipCopyPieceSize = 1024;

// Copies dwCount bytes from the source's position to the target's; FALSE when the source
// ends first.
BOOL CopyFileBytes(CFile& source, CFile& target, DWORD dwCount)
{
    BYTE buffer[kClipCopyPieceSize];
    while (dwCount > 0) {
        const UINT nWanted = std::min<DWORD>(dwCount, sizeof(buffer));
        const UINT nGot = source.Read(buffer, nWanted);
        if (nGot == 0)
            return FALSE;
        target.Write(buffer, nGot);
        dwCount -= nGot;
    }
    return TRUE;
}

} // namespace

int CZnFile::ClipFile(CString strNewFile, int nFirstBlock, int nLastBlock, int nLastFrames)
{
    if (strNewFile.IsEmpty() || m_pFile == nullptr || m_nMode != ZNFILE_READ || nFirstBlock < 0 ||
        static_cast<DWORD>(nFirstBlock) >= m_dwTotalBlocks)
        return 0;
    // A last block at or beyond the end means the rest of the file: the last block of the
    // table is the end block.
    if (nLastBlock >= 0 && static_cast<DWORD>(nLastBlock) >= m_dwTotalBlocks) {
        nLastBlock = static_cast<int>(m_dwTotalBlocks) - 1;
        nLastFrames = 0;
    }
    nLastFrames = std::max(nLastFrames, 0);
    if (CountClipFrames(nFirstBlock, nLastBlock, nLastFrames) == 0)
        return 0;

    // Creating the clip over its own source would destroy the source.
    std::error_code error;
    if (std::filesystem::equivalent(static_cast<LPCSTR>(strNewFile), static_cast<LPCSTR>(m_strFileName), error))
        return 0;
    CFile clip;
    if (!clip.Open(strNewFile, CFile::modeCreate | CFile::modeWrite))
        return 0;
    const DWORD dwSourcePos = m_pFile->GetPosition();
    const tag_ZNBLOCKINFO firstBlock = m_BlockTable[nFirstBlock];

    tag_ZNFILEHEADER header = m_Header;
    header.dwBeginTime =
        m_Header.dwBeginTime +
        (firstBlock.dwTimeStamp - m_Header.dwBeginTimeStamp) / kMillisecondsPerSecond;
    header.dwEndTime = header.dwBeginTime;
    header.dwBeginTimeStamp = firstBlock.dwTimeStamp;
    header.wBoardNameLen = static_cast<WORD>(m_strBoardName.GetLength());
    header.wCameraNameLen = static_cast<WORD>(m_strCameraName.GetLength());
    header.dwDataOffset = GetDataOffset(GetHeadWithNames(header));
    WriteFileHead(clip, GetHeadWithNames(header));

    SeekTo(*m_pFile, firstBlock.dwOffset);
    tag_ZNBLOCKHEADER block{};
    if (!ReadBlockRecord(*m_pFile, block))
        block = tag_ZNBLOCKHEADER{};
    block.dwPrevBlock = ZNBLOCK_NO_LINK;
    CopyClipBlocks(clip, nFirstBlock, nLastBlock, block);

    const DWORD dwLastStamp = CopyClipLastBlock(clip, block, nLastFrames);
    header.dwEndTime =
        header.dwBeginTime + (dwLastStamp - header.dwBeginTimeStamp) / kMillisecondsPerSecond;
    BYTE head[ZNFILE_HEADER_SIZE];
    StoreFileHeader(header, head);
    clip.SeekToBegin();
    clip.Write(head, ZNFILE_HEADER_SIZE);
    clip.Close();
    SeekTo(*m_pFile, dwSourcePos);
    return 1;
}

// Frames that a clip of these arguments holds, by the block table.
DWORD CZnFile::CountClipFrames(int nFirstBlock, int nLastBlock, int nLastFrames) const
{
    DWORD dwFrames = 0;
    for (int nBlock = nFirstBlock; nBlock < nLastBlock; ++nBlock)
        dwFrames += m_BlockTable[nBlock].dwFrames;
    const int nTailBlock = std::max(nFirstBlock, nLastBlock);
    return dwFrames + std::min(m_BlockTable[nTailBlock].dwFrames, static_cast<DWORD>(nLastFrames));
}

// Copies the blocks before nLastBlock whole, with links of the new file. On return block
// holds the source's record of the block that follows them, linked back to the last
// record written.
void CZnFile::CopyClipBlocks(CFile& clip, int nFirstBlock, int nLastBlock,
                             tag_ZNBLOCKHEADER& block)
{
    for (int nBlock = nFirstBlock; nBlock < nLastBlock; ++nBlock) {
        const DWORD dwSourceOffset = m_BlockTable[nBlock].dwOffset;
        const DWORD dwSize = block.dwNextBlock > dwSourceOffset + ZNBLOCK_HEADER_SIZE &&
                                     block.dwNextBlock != ZNBLOCK_NO_LINK
                                 ? block.dwNextBlock - dwSourceOffset
                                 : ZNBLOCK_HEADER_SIZE;
        const DWORD dwRecordPos = clip.GetPosition();
        block.dwNextBlock = dwRecordPos + dwSize;
        WriteBlockRecord(clip, block);
        // A cut source gives a short clip.
        CopyFileBytes(*m_pFile, clip, dwSize - ZNBLOCK_HEADER_SIZE);
        if (!ReadBlockRecord(*m_pFile, block))
            block = tag_ZNBLOCKHEADER{};
        block.dwPrevBlock = dwRecordPos;
    }
}

// Copies the first nLastFrames frames of the block whose record is given, frame by frame,
// and closes the clip with its end block. Returns the stamp of the last frame copied, or
// the block's stamp if none was.
DWORD CZnFile::CopyClipLastBlock(CFile& clip, tag_ZNBLOCKHEADER& block, int nLastFrames)
{
    DWORD dwLastStamp = block.dwTimeStamp;
    const WORD wWanted = static_cast<WORD>(std::min<int>(block.wFrames, nLastFrames));
    const DWORD dwRecordPos = clip.GetPosition();
    block.wFrames = wWanted;
    block.dwNextBlock = ZNBLOCK_NO_LINK;
    WriteBlockRecord(clip, block);

    WORD wCopied = 0;
    while (wCopied < wWanted && CopyClipFrame(clip, dwLastStamp))
        ++wCopied;

    // Only whole frames count: a cut source leaves the record with the frames it gave.
    const DWORD dwEndPos = clip.GetPosition();
    block.wFrames = wCopied;
    block.dwNextBlock = wCopied != 0 ? dwEndPos : ZNBLOCK_NO_LINK;
    SeekTo(clip, dwRecordPos);
    WriteBlockRecord(clip, block);
    clip.SeekToEnd();
    if (wCopied != 0) {
        const tag_ZNBLOCKHEADER endBlock{dwRecordPos, ZNBLOCK_NO_LINK, 0, 0, dwLastStamp};
        WriteBlockRecord(clip, endBlock);
    }
    return dwLastStamp;
}

// Copies the frame record at the source's position, whatever its lengths. FALSE when the
// source ends inside it.
BOOL CZnFile::CopyClipFrame(CFile& clip, DWORD& dwLastStamp)
{
    BYTE bytes[ZNFRAME_MAX_FIELDS_SIZE];
    tag_ZNFRAMEFIELDS fields{};
    if (!ReadFrameFields(*m_pFile, fields, bytes))
        return FALSE;
    clip.Write(bytes, fields.nFieldsSize);
    if (!CopyFileBytes(*m_pFile, clip, fields.dwVideoLen) ||
        !CopyFileBytes(*m_pFile, clip, fields.dwSoundLen))
        return FALSE;
    dwLastStamp = fields.dwTimeStamp;
    return TRUE;
}
