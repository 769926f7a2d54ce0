#include "storage/CFileSearchInfo.h"

#include "platform/CException.h"
#include "storage/FlatBuffer.h"

#include <memory>
#include <new>
#include <vector>

IMPLEMENT_DYNAMIC(CFileSearchInfo, CObList)

namespace {

// Flags, nStart and nCount: what every search buffer holds.
constexpr DWORD kFixedBufferSize = 12;
constexpr DWORD kString16LengthSize = 2;

// The strings of a request, in the order of the flat form, with the flag of each.
struct tag_SEARCHSTRING {
    DWORD dwFlag;
    CString tag_SEARCHPARAM::*pField;
};
constexpr tag_SEARCHSTRING kSearchStrings[] = {
    {SEARCH_HOST, &tag_SEARCHPARAM::strHostName},
    {SEARCH_DBS, &tag_SEARCHPARAM::strDbsName},
    {SEARCH_BOARD, &tag_SEARCHPARAM::strBoardName},
    {SEARCH_CAMERA, &tag_SEARCHPARAM::strCameraName},
};

// The numbers of a request in the order of the flat form (not that of the record), each
// present when any of its flags is set.
struct tag_SEARCHNUMBER {
    DWORD dwFlags;
    DWORD tag_SEARCHPARAM::*pField;
};
constexpr tag_SEARCHNUMBER kSearchNumbers[] = {
    {SEARCH_DATE, &tag_SEARCHPARAM::dwDate},
    {SEARCH_BEGIN | SEARCH_MOMENT, &tag_SEARCHPARAM::dwBeginTime},
    {SEARCH_END, &tag_SEARCHPARAM::dwEndTime},
    {SEARCH_FRAMESIZE, &tag_SEARCHPARAM::dwFrameSize},
};

DWORD GetRequestSize(const tag_SEARCHPARAM& param)
{
    DWORD dwSize = kFixedBufferSize;
    for (const tag_SEARCHSTRING& string : kSearchStrings) {
        if ((param.dwFlags & string.dwFlag) != 0)
            dwSize += kString16LengthSize + static_cast<DWORD>((param.*string.pField).GetLength());
    }
    for (const tag_SEARCHNUMBER& number : kSearchNumbers) {
        if ((param.dwFlags & number.dwFlags) != 0)
            dwSize += sizeof(DWORD);
    }
    return dwSize;
}

bool HasStringTooLong(const tag_SEARCHPARAM& param)
{
    for (const tag_SEARCHSTRING& string : kSearchStrings) {
        if ((param.dwFlags & string.dwFlag) != 0 &&
            static_cast<DWORD>((param.*string.pField).GetLength()) > CFileSearchInfo::MAX_BUF_STRING)
            return true;
    }
    return false;
}

void WriteRequest(CFlatWriter& writer, const tag_SEARCHPARAM& param)
{
    writer.Put32(param.dwFlags);
    for (const tag_SEARCHSTRING& string : kSearchStrings) {
        if ((param.dwFlags & string.dwFlag) != 0) {
            writer.Put16(static_cast<WORD>((param.*string.pField).GetLength()));
            writer.PutBytes(param.*string.pField);
        }
    }
    for (const tag_SEARCHNUMBER& number : kSearchNumbers) {
        if ((param.dwFlags & number.dwFlags) != 0)
            writer.Put32(param.*number.pField);
    }
}

// Fields that the buffer's flags don't name keep their value in param.
void ReadRequest(CFlatReader& reader, tag_SEARCHPARAM& param)
{
    param.dwFlags = reader.Get32();
    for (const tag_SEARCHSTRING& string : kSearchStrings) {
        if ((param.dwFlags & string.dwFlag) != 0)
            param.*string.pField = reader.GetString(reader.Get16());
    }
    for (const tag_SEARCHNUMBER& number : kSearchNumbers) {
        if ((param.dwFlags & number.dwFlags) != 0)
            param.*number.pField = reader.Get32();
    }
}

// The page of a list of nTotal entries that starts at nStart with at most nCount
// entries; both 0 when nStart lies outside the list.
void ClampPage(int nTotal, int& nStart, int& nCount)
{
    if (nStart < 0 || nStart >= nTotal) {
        nStart = 0;
        nCount = 0;
        return;
    }
    if (nCount < 0)
        nCount = 0;
    if (nCount > nTotal - nStart)
        nCount = nTotal - nStart;
}

} // namespace

CFileSearchInfo::CFileSearchInfo(const tag_SEARCHPARAM* pParam)
{
    if (pParam != nullptr)
        m_SearchParam = *pParam;
}

CFileSearchInfo::~CFileSearchInfo()
{
    Reset();
}

const tag_SEARCHPARAM& CFileSearchInfo::GetSearchParam() const
{
    return m_SearchParam;
}

void CFileSearchInfo::Reset()
{
    while (!IsEmpty())
        delete RemoveHead();
}

int CFileSearchInfo::AddResult(CZnFileInfo* pInfo)
{
    std::unique_ptr<CZnFileInfo> pOwned(pInfo);
    if (pOwned == nullptr)
        return 0;
    try {
        AddTail(pOwned.get());
    } catch (CException* pException) {
        pException->Delete();
        return 0;
    }
    pOwned.release();
    return 1;
}

CFileSearchInfo& CFileSearchInfo::operator=(const CFileSearchInfo& other)
{
    if (this != &other)
        m_SearchParam = other.m_SearchParam;
    return *this += other;
}

CFileSearchInfo& CFileSearchInfo::operator+=(const CFileSearchInfo& other)
{
    // The count is taken first, so that appending a list to itself doubles it once.
    const int nCount = other.GetCount();
    POSITION position = other.GetHeadPosition();
    for (int i = 0; i < nCount; ++i) {
        const auto* pSource = static_cast<const CZnFileInfo*>(other.GetNext(position));
        auto* pCopy = new (std::nothrow) CZnFileInfo;
        if (pCopy == nullptr)
            break;
        *pCopy = *pSource;
        if (!AddResult(pCopy))
            break;
    }
    return *this;
}

int CFileSearchInfo::operator==(const tag_SEARCHPARAM& param) const
{
    const DWORD dwFlags = m_SearchParam.dwFlags;
    if (param.dwFlags != dwFlags)
        return 0;
    for (const tag_SEARCHSTRING& string : kSearchStrings) {
        if ((dwFlags & string.dwFlag) != 0 && param.*string.pField != m_SearchParam.*string.pField)
            return 0;
    }
    for (const tag_SEARCHNUMBER& number : kSearchNumbers) {
        if ((dwFlags & number.dwFlags) != 0 && param.*number.pField != m_SearchParam.*number.pField)
            return 0;
    }
    return 1;
}

int CFileSearchInfo::operator==(const CFileSearchInfo& other) const
{
    return *this == other.m_SearchParam;
}

DWORD CFileSearchInfo::GetSize(int nStart, int nCount) const
{
    ClampPage(GetCount(), nStart, nCount);
    DWORD dwSize = GetRequestSize(m_SearchParam);
    POSITION position = FindIndex(nStart);
    for (int i = 0; i < nCount; ++i)
        dwSize += static_cast<const CZnFileInfo*>(GetNext(position))->GetSize();
    return dwSize;
}

DWORD CFileSearchInfo::WriteToBuf(BYTE* pBuf, DWORD nSize, int& nStart, int& nCount) const
{
    int nPageStart = nStart;
    int nPageCount = nCount;
    ClampPage(GetCount(), nPageStart, nPageCount);
    if (pBuf == nullptr || HasStringTooLong(m_SearchParam) || nSize < GetSize(nPageStart, nPageCount))
        return 0;
    CFlatWriter writer(pBuf, nSize);
    WriteRequest(writer, m_SearchParam);
    writer.Put32(static_cast<DWORD>(nPageStart));
    writer.Put32(static_cast<DWORD>(nPageCount));
    POSITION position = FindIndex(nPageStart);
    for (int i = 0; i < nPageCount; ++i) {
        const auto* pInfo = static_cast<const CZnFileInfo*>(GetNext(position));
        writer.Skip(pInfo->WriteToBuf(writer.GetCurrent(), writer.GetRemaining()));
    }
    if (writer.HasFailed())
        return 0;
    nStart = nPageStart;
    nCount = nPageCount;
    return writer.GetPosition();
}

DWORD CFileSearchInfo::ReadFromBuf(const BYTE* pBuf, DWORD nSize, int& nStart, int& nCount)
{
    if (pBuf == nullptr)
        return 0;
    CFlatReader reader(pBuf, nSize);
    tag_SEARCHPARAM param = m_SearchParam;
    ReadRequest(reader, param);
    const DWORD dwStart = reader.Get32();
    const DWORD dwCount = reader.Get32();
    // Every record takes at least its fixed part, so a count beyond that is damage, found
    // before anything is made for it.
    if (dwStart > 0x7FFFFFFF || dwCount > reader.GetRemaining() / CZnFileInfo::FIXED_RECORD_SIZE)
        reader.SetDamaged();
    if (reader.IsDamaged())
        return 0;
    std::vector<std::unique_ptr<CZnFileInfo>> aRead;
    try {
        aRead.reserve(dwCount);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    for (DWORD i = 0; i < dwCount; ++i) {
        std::unique_ptr<CZnFileInfo> pInfo(new (std::nothrow) CZnFileInfo);
        if (pInfo == nullptr)
            return 0;
        const DWORD dwRead = pInfo->ReadFromBuf(pBuf + reader.GetPosition(), reader.GetRemaining());
        if (dwRead == CZnFileInfo::BUF_ERROR)
            return 0;
        reader.Skip(dwRead);
        aRead.push_back(std::move(pInfo));
    }
    m_SearchParam = param;
    for (std::unique_ptr<CZnFileInfo>& pInfo : aRead)
        AddResult(pInfo.release());
    nStart = static_cast<int>(dwStart);
    nCount = static_cast<int>(dwCount);
    return reader.GetPosition();
}
