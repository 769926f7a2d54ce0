#include "recording/ZnFileLayout.h"

#include <algorithm>
#include <climits>

namespace {

constexpr UINT kLengthFieldSize = 4;

// Takes the head's fields from a source of bytes in file order: the span of the first
// bytes, or the open file. bTake(pBytes, dwCount) fills pBytes or answers FALSE.
template <typename TTakeBytes>
tag_ZNHEADRESULT TakeFileHead(TTakeBytes&& bTake, tag_ZNHEADWITHNAMES& head, DWORD dwMaxNameLength)
{
    BYTE bytes[ZNFILE_HEADER_SIZE];
    if (!bTake(bytes, ZNFILE_HEADER_SIZE))
        return ZNHEAD_SHORT;
    LoadFileHeader(bytes, head.Header);
    const tag_ZNFILEHEADER& header = head.Header;
    if (header.byMagic[0] != ZNFILE_MAGIC_0 || header.byMagic[1] != ZNFILE_MAGIC_1 ||
        header.wVersion > ZNFILE_VERSION_R2)
        return ZNHEAD_FOREIGN;

    auto takeName = [&](CString& strName, DWORD dwLength) {
        if (dwLength > dwMaxNameLength)
            return ZNHEAD_FOREIGN;
        if (dwLength == 0) {
            strName.Empty();
            return ZNHEAD_WHOLE;
        }
        CString strRead;
        if (!bTake(reinterpret_cast<BYTE*>(strRead.GetBufferSetLength(static_cast<int>(dwLength))), dwLength))
            return ZNHEAD_SHORT;
        strName = strRead;
        return ZNHEAD_WHOLE;
    };
    tag_ZNHEADRESULT nResult = takeName(head.strBoardName, header.wBoardNameLen);
    if (nResult == ZNHEAD_WHOLE)
        nResult = takeName(head.strCameraName, header.wCameraNameLen);
    if (nResult != ZNHEAD_WHOLE)
        return nResult;

    head.strHostName.Empty();
    head.nGmt = 0;
    BYTE field[kLengthFieldSize];
    if (header.wVersion >= ZNFILE_VERSION_HOST_NAME) {
        if (!bTake(field, kLengthFieldSize))
            return ZNHEAD_SHORT;
        nResult = takeName(head.strHostName, GetLe32(field));
        if (nResult != ZNHEAD_WHOLE)
            return nResult;
    }
    if (header.wVersion >= ZNFILE_VERSION_GMT) {
        if (!bTake(field, kLengthFieldSize))
            return ZNHEAD_SHORT;
        head.nGmt = static_cast<int>(GetLe32(field));
    }
    return ZNHEAD_WHOLE;
}

void WriteLe32(CFile& file, DWORD dwValue)
{
    BYTE bytes[4];
    PutLe32(bytes, dwValue);
    file.Write(bytes, sizeof(bytes));
}

void WriteString(CFile& file, const CString& str)
{
    if (!str.IsEmpty())
        file.Write(static_cast<LPCSTR>(str), static_cast<UINT>(str.GetLength()));
}

} // namespace

WORD GetLe16(const BYTE* pBytes)
{
    return static_cast<WORD>(pBytes[0] | (pBytes[1] << 8));
}

DWORD GetLe32(const BYTE* pBytes)
{
    return static_cast<DWORD>(pBytes[0]) | (static_cast<DWORD>(pBytes[1]) << 8) |
           (static_cast<DWORD>(pBytes[2]) << 16) | (static_cast<DWORD>(pBytes[3]) << 24);
}

void PutLe16(BYTE* pBytes, WORD wValue)
{
    pBytes[0] = static_cast<BYTE>(wValue);
    pBytes[1] = static_cast<BYTE>(wValue >> 8);
}

void PutLe32(BYTE* pBytes, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        pBytes[i] = static_cast<BYTE>(dwValue >> (8 * i));
}

void StoreFileHeader(const tag_ZNFILEHEADER& header, BYTE* pBytes)
{
    pBytes[0] = header.byMagic[0];
    pBytes[1] = header.byMagic[1];
    PutLe16(pBytes + 2, header.wVersion);
    pBytes[4] = header.byFrameSize;
    pBytes[5] = header.byBoard;
    pBytes[6] = header.byCamera;
    pBytes[7] = header.byKeyFrameInterval;
    PutLe32(pBytes + 8, header.dwBeginTime);
    PutLe32(pBytes + 12, header.dwEndTime);
    PutLe32(pBytes + 16, header.dwBeginTimeStamp);
    PutLe16(pBytes + 20, header.wBoardNameLen);
    PutLe16(pBytes + 22, header.wCameraNameLen);
    pBytes[24] = header.bySoundFormat;
    std::copy_n(header.byReserved, 3, pBytes + 25);
    PutLe32(pBytes + 28, header.dwDataOffset);
    PutLe32(pBytes + 32, header.dwReserved);
}

void LoadFileHeader(const BYTE* pBytes, tag_ZNFILEHEADER& header)
{
    header.byMagic[0] = pBytes[0];
    header.byMagic[1] = pBytes[1];
    header.wVersion = GetLe16(pBytes + 2);
    header.byFrameSize = pBytes[4];
    header.byBoard = pBytes[5];
    header.byCamera = pBytes[6];
    header.byKeyFrameInterval = pBytes[7];
    header.dwBeginTime = GetLe32(pBytes + 8);
    header.dwEndTime = GetLe32(pBytes + 12);
    header.dwBeginTimeStamp = GetLe32(pBytes + 16);
    header.wBoardNameLen = GetLe16(pBytes + 20);
    header.wCameraNameLen = GetLe16(pBytes + 22);
    header.bySoundFormat = pBytes[24];
    std::copy_n(pBytes + 25, 3, header.byReserved);
    header.dwDataOffset = GetLe32(pBytes + 28);
    header.dwReserved = GetLe32(pBytes + 32);
}

BOOL IsRecordingHeader(const tag_ZNFILEHEADER& header)
{
    return header.byMagic[0] == ZNFILE_MAGIC_0 && header.byMagic[1] == ZNFILE_MAGIC_1 &&
           header.wVersion <= ZNFILE_VERSION_R2 &&
           header.byKeyFrameInterval <= ZNFILE_KEY_FRAME_INTERVAL &&
           (header.byFrameSize & ~FRAMESIZE_PAL_BIT) <= FRAMESIZE_MAX_INDEX &&
           header.wBoardNameLen <= ZNFILE_MAX_NAME_LENGTH && header.wCameraNameLen <= ZNFILE_MAX_NAME_LENGTH;
}

tag_ZNHEADRESULT ParseFileHead(std::span<const BYTE> bytes, tag_ZNHEADWITHNAMES& head, DWORD dwMaxNameLength)
{
    std::size_t nPos = 0;
    auto bTake = [&](BYTE* pBytes, DWORD dwCount) {
        if (bytes.size() - nPos < dwCount)
            return false;
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(nPos), dwCount, pBytes);
        nPos += dwCount;
        return true;
    };
    return TakeFileHead(bTake, head, dwMaxNameLength);
}

tag_ZNHEADRESULT ReadFileHead(CFile& file, tag_ZNHEADWITHNAMES& head, DWORD dwMaxNameLength)
{
    file.SeekToBegin();
    auto bTake = [&](BYTE* pBytes, DWORD dwCount) { return file.Read(pBytes, dwCount) == dwCount; };
    return TakeFileHead(bTake, head, dwMaxNameLength);
}

DWORD GetDataOffset(const tag_ZNHEADWITHNAMES& head)
{
    return ZNFILE_HEADER_SIZE + static_cast<DWORD>(head.strBoardName.GetLength()) +
           static_cast<DWORD>(head.strCameraName.GetLength()) + kLengthFieldSize +
           static_cast<DWORD>(head.strHostName.GetLength()) + kLengthFieldSize;
}

void WriteFileHead(CFile& file, const tag_ZNHEADWITHNAMES& head)
{
    BYTE bytes[ZNFILE_HEADER_SIZE];
    StoreFileHeader(head.Header, bytes);
    file.SeekToBegin();
    file.Write(bytes, ZNFILE_HEADER_SIZE);
    WriteString(file, head.strBoardName);
    WriteString(file, head.strCameraName);
    WriteLe32(file, static_cast<DWORD>(head.strHostName.GetLength()));
    WriteString(file, head.strHostName);
    WriteLe32(file, static_cast<DWORD>(head.nGmt));
}

void StoreBlockRecord(const tag_ZNBLOCKHEADER& block, BYTE* pBytes)
{
    PutLe32(pBytes, block.dwPrevBlock);
    PutLe32(pBytes + 4, block.dwNextBlock);
    PutLe16(pBytes + 8, block.wFrames);
    PutLe16(pBytes + 10, block.wPadding);
    PutLe32(pBytes + 12, block.dwTimeStamp);
}

void LoadBlockRecord(const BYTE* pBytes, tag_ZNBLOCKHEADER& block)
{
    block.dwPrevBlock = GetLe32(pBytes);
    block.dwNextBlock = GetLe32(pBytes + 4);
    block.wFrames = GetLe16(pBytes + 8);
    block.wPadding = GetLe16(pBytes + 10);
    block.dwTimeStamp = GetLe32(pBytes + 12);
}

void WriteBlockRecord(CFile& file, const tag_ZNBLOCKHEADER& block)
{
    BYTE bytes[ZNBLOCK_HEADER_SIZE];
    StoreBlockRecord(block, bytes);
    file.Write(bytes, ZNBLOCK_HEADER_SIZE);
}

BOOL ReadBlockRecord(CFile& file, tag_ZNBLOCKHEADER& block)
{
    BYTE bytes[ZNBLOCK_HEADER_SIZE];
    if (file.Read(bytes, ZNBLOCK_HEADER_SIZE) < ZNBLOCK_HEADER_SIZE)
        return FALSE;
    LoadBlockRecord(bytes, block);
    return TRUE;
}

UINT StoreFrameFields(const tag_ZNFRAMEDATA& frame, BYTE* pBytes)
{
    PutLe16(pBytes, frame.wFrameType);
    PutLe16(pBytes + 2, frame.wFlags);
    PutLe32(pBytes + 4, frame.dwTimeStamp);
    PutLe32(pBytes + 8, frame.dwVideoLen);
    if ((frame.wFlags & ZNFRAME_SOUND) == 0)
        return ZNFRAME_FIELDS_SIZE;
    PutLe32(pBytes + ZNFRAME_FIELDS_SIZE, frame.dwSoundLen);
    return ZNFRAME_MAX_FIELDS_SIZE;
}

BOOL ReadFrameFields(CFile& file, tag_ZNFRAMEFIELDS& fields, BYTE* pBytes)
{
    if (file.Read(pBytes, ZNFRAME_FIELDS_SIZE) < ZNFRAME_FIELDS_SIZE)
        return FALSE;
    fields.wFrameType = GetLe16(pBytes);
    fields.wFlags = GetLe16(pBytes + 2);
    fields.dwTimeStamp = GetLe32(pBytes + 4);
    fields.dwVideoLen = GetLe32(pBytes + 8);
    fields.dwSoundLen = 0;
    fields.nFieldsSize = ZNFRAME_FIELDS_SIZE;
    if ((fields.wFlags & ZNFRAME_SOUND) != 0) {
        if (file.Read(pBytes + ZNFRAME_FIELDS_SIZE, ZNFRAME_SOUND_LENGTH_SIZE) < ZNFRAME_SOUND_LENGTH_SIZE)
            return FALSE;
        fields.dwSoundLen = GetLe32(pBytes + ZNFRAME_FIELDS_SIZE);
        fields.nFieldsSize = ZNFRAME_MAX_FIELDS_SIZE;
    }
    return TRUE;
}

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
