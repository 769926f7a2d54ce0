#include "recording/CZnFile.h"

#include "platform/CMemoryException.h"
#include "platform/Disks.h"
#include "platform/CTime.h"
#include "platform/TickClock.h"

#include <algorithm>
#include <climits>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace {

// Every string of the head is read into a buffer of this size, so longer ones are damage.
constexpr DWORD kMaxNameLength = 1000;
// The block table never has fewer entries than this; entries behind the last block are 0.
constexpr int kBlockTableMinSize = 1024;
constexpr UINT kMemFileGrowBytes = 1024;
// A block reaches the disk through a buffer of this size on the stack, so that a block
// change allocates nothing; large enough that the copy costs few system calls.
constexpr UINT kBlockCopyPieceSize = 65536;
// Clips copy the source's bytes through a buffer of this size on the stack.
constexpr UINT kClipCopyPieceSize = 1024;
// Fixed fields of a frame record: type, flags, stamp, video length, and the sound length
// when ZNFRAME_SOUND is set.
constexpr UINT kFrameFieldsSize = 12;
constexpr UINT kSoundLengthSize = 4;
constexpr DWORD kMillisecondsPerSecond = 1000;
constexpr int kHoursPerDay = 24;

void PutWord(BYTE* pBytes, WORD wValue)
{
    pBytes[0] = static_cast<BYTE>(wValue);
    pBytes[1] = static_cast<BYTE>(wValue >> 8);
}

void PutDword(BYTE* pBytes, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        pBytes[i] = static_cast<BYTE>(dwValue >> (8 * i));
}

WORD GetWord(const BYTE* pBytes)
{
    return static_cast<WORD>(pBytes[0] | (pBytes[1] << 8));
}

DWORD GetDword(const BYTE* pBytes)
{
    return static_cast<DWORD>(pBytes[0]) | (static_cast<DWORD>(pBytes[1]) << 8) |
           (static_cast<DWORD>(pBytes[2]) << 16) | (static_cast<DWORD>(pBytes[3]) << 24);
}

void StoreFileHeader(const tag_ZNFILEHEADER& header, BYTE* pBytes)
{
    pBytes[0] = header.byMagic[0];
    pBytes[1] = header.byMagic[1];
    PutWord(pBytes + 2, header.wVersion);
    pBytes[4] = header.byFrameSize;
    pBytes[5] = header.byBoard;
    pBytes[6] = header.byCamera;
    pBytes[7] = header.byKeyFrameInterval;
    PutDword(pBytes + 8, header.dwBeginTime);
    PutDword(pBytes + 12, header.dwEndTime);
    PutDword(pBytes + 16, header.dwBeginTimeStamp);
    PutWord(pBytes + 20, header.wBoardNameLen);
    PutWord(pBytes + 22, header.wCameraNameLen);
    pBytes[24] = header.bySoundFormat;
    std::copy_n(header.byReserved, 3, pBytes + 25);
    PutDword(pBytes + 28, header.dwDataOffset);
    PutDword(pBytes + 32, header.dwReserved);
}

void LoadFileHeader(const BYTE* pBytes, tag_ZNFILEHEADER& header)
{
    header.byMagic[0] = pBytes[0];
    header.byMagic[1] = pBytes[1];
    header.wVersion = GetWord(pBytes + 2);
    header.byFrameSize = pBytes[4];
    header.byBoard = pBytes[5];
    header.byCamera = pBytes[6];
    header.byKeyFrameInterval = pBytes[7];
    header.dwBeginTime = GetDword(pBytes + 8);
    header.dwEndTime = GetDword(pBytes + 12);
    header.dwBeginTimeStamp = GetDword(pBytes + 16);
    header.wBoardNameLen = GetWord(pBytes + 20);
    header.wCameraNameLen = GetWord(pBytes + 22);
    header.bySoundFormat = pBytes[24];
    std::copy_n(pBytes + 25, 3, header.byReserved);
    header.dwDataOffset = GetDword(pBytes + 28);
    header.dwReserved = GetDword(pBytes + 32);
}

BOOL IsRecordingHeader(const tag_ZNFILEHEADER& header)
{
    return header.byMagic[0] == ZNFILE_MAGIC_0 && header.byMagic[1] == ZNFILE_MAGIC_1 &&
           header.wVersion <= ZNFILE_VERSION_R2 &&
           header.byKeyFrameInterval <= ZNFILE_KEY_FRAME_INTERVAL &&
           (header.byFrameSize & ~FRAMESIZE_PAL_BIT) <= FRAMESIZE_MAX_INDEX &&
           header.wBoardNameLen <= kMaxNameLength && header.wCameraNameLen <= kMaxNameLength;
}

void WriteBlockRecord(CFile& file, const tag_ZNBLOCKHEADER& block)
{
    BYTE bytes[ZNBLOCK_HEADER_SIZE];
    PutDword(bytes, block.dwPrevBlock);
    PutDword(bytes + 4, block.dwNextBlock);
    PutWord(bytes + 8, block.wFrames);
    PutWord(bytes + 10, block.wPadding);
    PutDword(bytes + 12, block.dwTimeStamp);
    file.Write(bytes, ZNBLOCK_HEADER_SIZE);
}

// FALSE when the file ends before the whole record.
BOOL ReadBlockRecord(CFile& file, tag_ZNBLOCKHEADER& block)
{
    BYTE bytes[ZNBLOCK_HEADER_SIZE];
    if (file.Read(bytes, ZNBLOCK_HEADER_SIZE) < ZNBLOCK_HEADER_SIZE)
        return FALSE;
    block.dwPrevBlock = GetDword(bytes);
    block.dwNextBlock = GetDword(bytes + 4);
    block.wFrames = GetWord(bytes + 8);
    block.wPadding = GetWord(bytes + 10);
    block.dwTimeStamp = GetDword(bytes + 12);
    return TRUE;
}

// Offsets of the format are 32 bits unsigned; those beyond the signed range of Seek are
// reached in two steps.
void SeekTo(CFile& file, DWORD dwPos)
{
    constexpr DWORD dwMaxSeek = static_cast<DWORD>(LONG_MAX);
    if (dwPos <= dwMaxSeek) {
        file.Seek(static_cast<LONG>(dwPos), CFile::begin);
        return;
    }
    file.Seek(static_cast<LONG>(dwMaxSeek), CFile::begin);
    file.Seek(static_cast<LONG>(dwPos - dwMaxSeek), CFile::current);
}

void WriteDword(CFile& file, DWORD dwValue)
{
    BYTE bytes[4];
    PutDword(bytes, dwValue);
    file.Write(bytes, sizeof(bytes));
}

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

struct PictureSize {
    tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
    int nWidth = 0;
    int nHeight = 0;
};

// The picture of the head's frame size; a head that passed the checks always has one.
PictureSize LookUpPicture(const tag_ZNFILEHEADER& header)
{
    PictureSize picture;
    GetFrameSizePicture(static_cast<tag_FRAMESIZE>(header.byFrameSize), picture.nStandard, picture.nWidth,
                        picture.nHeight);
    return picture;
}

void ReportAndDelete(CException* pException)
{
    pException->ReportError();
    pException->Delete();
}

// The fixed fields of one frame record as they stand in a file.
struct FrameFields {
    WORD wFrameType;
    WORD wFlags;
    DWORD dwTimeStamp;
    DWORD dwVideoLen;
    DWORD dwSoundLen;       // 0 without ZNFRAME_SOUND
    UINT nFieldsSize;       // 12, or 16 with ZNFRAME_SOUND
};

UINT StoreFrameFields(const tag_ZNFRAMEDATA& frame, BYTE* pBytes)
{
    PutWord(pBytes, frame.wFrameType);
    PutWord(pBytes + 2, frame.wFlags);
    PutDword(pBytes + 4, frame.dwTimeStamp);
    PutDword(pBytes + 8, frame.dwVideoLen);
    if ((frame.wFlags & ZNFRAME_SOUND) == 0)
        return kFrameFieldsSize;
    PutDword(pBytes + kFrameFieldsSize, frame.dwSoundLen);
    return kFrameFieldsSize + kSoundLengthSize;
}

// Reads the fixed fields at the file's position; FALSE when the file ends inside them.
BOOL ReadFrameFields(CFile& file, FrameFields& fields, BYTE* pBytes)
{
    if (file.Read(pBytes, kFrameFieldsSize) < kFrameFieldsSize)
        return FALSE;
    fields.wFrameType = GetWord(pBytes);
    fields.wFlags = GetWord(pBytes + 2);
    fields.dwTimeStamp = GetDword(pBytes + 4);
    fields.dwVideoLen = GetDword(pBytes + 8);
    fields.dwSoundLen = 0;
    fields.nFieldsSize = kFrameFieldsSize;
    if ((fields.wFlags & ZNFRAME_SOUND) != 0) {
        if (file.Read(pBytes + kFrameFieldsSize, kSoundLengthSize) < kSoundLengthSize)
            return FALSE;
        fields.dwSoundLen = GetDword(pBytes + kFrameFieldsSize);
        fields.nFieldsSize += kSoundLengthSize;
    }
    return TRUE;
}

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

int CZnFile::OpenForWrite(const CString& strFile, const tag_CAMERAINFO* pInfo, DWORD dwRevision)
{
    if (pInfo == nullptr)
        return 0;
    const tag_FRAMESIZE nSize =
        GetFrameSizeOfPicture(pInfo->nWidth, pInfo->nHeight, pInfo->nStandard, dwRevision);
    if (nSize == FRAMESIZE_INVALID)
        return 0;

    // A reader takes strings of at most kMaxNameLength bytes; longer names are cut so that
    // the file stays readable.
    m_strBoardName = m_strBoardName.Left(kMaxNameLength);
    m_strCameraName = m_strCameraName.Left(kMaxNameLength);
    m_strHostName = m_strHostName.Left(kMaxNameLength);

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
    header.dwDataOffset = GetDataOffset();
    header.dwBeginTimeStamp = dwOpenStamp;
    m_Header = header;
    WriteFileHead(*m_pFile, m_Header);

    m_Block = tag_ZNBLOCKHEADER{ZNBLOCK_NO_LINK, ZNBLOCK_NO_LINK, 0, 0, dwOpenStamp};
    WriteBlockRecord(*m_pFile, m_Block);
    m_dwBlockLen = 0;
    m_pFile->Close();

    m_nMode = ZNFILE_WRITE;
    m_dwTotalFrames = 0;
    m_dwTotalBlocks = 1;
    m_BlockTable.RemoveAll();
    m_BlockTable.SetSize(kBlockTableMinSize);
    m_BlockTable[0] = tag_ZNBLOCKINFO{m_Header.dwDataOffset, 0, m_Block.dwTimeStamp};
    return 1;
}

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
        if (!ReadFileHead()) {
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
// recording or ends inside them.
BOOL CZnFile::ReadFileHead()
{
    BYTE bytes[ZNFILE_HEADER_SIZE];
    m_pFile->SeekToBegin();
    if (m_pFile->Read(bytes, ZNFILE_HEADER_SIZE) < ZNFILE_HEADER_SIZE)
        return FALSE;
    LoadFileHeader(bytes, m_Header);
    if (!IsRecordingHeader(m_Header))
        return FALSE;
    if (!ReadNameField(m_strBoardName, m_Header.wBoardNameLen) ||
        !ReadNameField(m_strCameraName, m_Header.wCameraNameLen))
        return FALSE;
    m_strHostName.Empty();
    // A file of a version without the offset reads as 0, also in a reused object.
    m_nGmt = 0;
    if (m_Header.wVersion >= ZNFILE_VERSION_HOST_NAME) {
        BYTE lengthBytes[4];
        if (m_pFile->Read(lengthBytes, sizeof(lengthBytes)) < sizeof(lengthBytes))
            return FALSE;
        const DWORD dwHostLen = GetDword(lengthBytes);
        if (dwHostLen > kMaxNameLength || !ReadNameField(m_strHostName, dwHostLen))
            return FALSE;
    }
    if (m_Header.wVersion >= ZNFILE_VERSION_GMT) {
        BYTE gmtBytes[4];
        if (m_pFile->Read(gmtBytes, sizeof(gmtBytes)) < sizeof(gmtBytes))
            return FALSE;
        m_nGmt = static_cast<int>(GetDword(gmtBytes));
    }
    return TRUE;
}

BOOL CZnFile::ReadNameField(CString& strName, DWORD dwLength)
{
    char buffer[kMaxNameLength];
    if (dwLength == 0) {
        strName.Empty();
        return TRUE;
    }
    if (dwLength > kMaxNameLength || m_pFile->Read(buffer, dwLength) < dwLength)
        return FALSE;
    strName = CString(buffer, static_cast<int>(dwLength));
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

void CZnFile::AddBlockEntry(DWORD dwOffset, DWORD dwFrames, DWORD dwTimeStamp)
{
    const int nIndex = static_cast<int>(m_dwTotalBlocks);
    if (nIndex >= m_BlockTable.GetSize())
        m_BlockTable.SetSize(m_BlockTable.GetSize() * 2);
    m_BlockTable[nIndex] = tag_ZNBLOCKINFO{dwOffset, dwFrames, dwTimeStamp};
    ++m_dwTotalBlocks;
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

DWORD CZnFile::GetDataOffset() const
{
    return ZNFILE_HEADER_SIZE + static_cast<DWORD>(m_strBoardName.GetLength()) +
           static_cast<DWORD>(m_strCameraName.GetLength()) + 4 +
           static_cast<DWORD>(m_strHostName.GetLength()) + 4;
}

// Writes the head and the strings that follow it, from the file's start.
void CZnFile::WriteFileHead(CFile& file, const tag_ZNFILEHEADER& header) const
{
    BYTE bytes[ZNFILE_HEADER_SIZE];
    StoreFileHeader(header, bytes);
    file.SeekToBegin();
    file.Write(bytes, ZNFILE_HEADER_SIZE);
    if (!m_strBoardName.IsEmpty())
        file.Write(static_cast<LPCSTR>(m_strBoardName), m_strBoardName.GetLength());
    if (!m_strCameraName.IsEmpty())
        file.Write(static_cast<LPCSTR>(m_strCameraName), m_strCameraName.GetLength());
    WriteDword(file, static_cast<DWORD>(m_strHostName.GetLength()));
    if (!m_strHostName.IsEmpty())
        file.Write(static_cast<LPCSTR>(m_strHostName), m_strHostName.GetLength());
    WriteDword(file, static_cast<DWORD>(m_nGmt));
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
    BYTE fields[kFrameFieldsSize + kSoundLengthSize];
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

    m_dwTotalBlocks += 1;
    const int nIndex = static_cast<int>(m_dwTotalBlocks) - 1;
    if (nIndex >= m_BlockTable.GetSize())
        m_BlockTable.SetSize(m_BlockTable.GetSize() * 2);
    m_BlockTable[nIndex] = tag_ZNBLOCKINFO{dwNewRecordPos, 0, dwKeyFrameStamp};
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
    BYTE bytes[kFrameFieldsSize + kSoundLengthSize];
    FrameFields fields{};
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
    BYTE bytes[kFrameFieldsSize + kSoundLengthSize];
    FrameFields fields{};
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
    header.dwDataOffset = GetDataOffset();
    WriteFileHead(clip, header);

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
    BYTE bytes[kFrameFieldsSize + kSoundLengthSize];
    FrameFields fields{};
    if (!ReadFrameFields(*m_pFile, fields, bytes))
        return FALSE;
    clip.Write(bytes, fields.nFieldsSize);
    if (!CopyFileBytes(*m_pFile, clip, fields.dwVideoLen) ||
        !CopyFileBytes(*m_pFile, clip, fields.dwSoundLen))
        return FALSE;
    dwLastStamp = fields.dwTimeStamp;
    return TRUE;
}
