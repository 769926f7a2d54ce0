// The flat forms of a search with its results, of one summary and of a disk's listing:
// their bytes, paging, round trips, and readers that refuse every damaged buffer.
#include "SearchTestSupport.h"

#include "storage/CFileSearchInfo.h"
#include "storage/CHddObj.h"
#include "storage/CZnFileInfo.h"
#include "storage/FlatBuffer.h"

#include <vector>

namespace {

CZnFileInfo* MakeSummary(int nIndex)
{
    auto* pInfo = new CZnFileInfo;
    pInfo->m_byCamera = static_cast<BYTE>(nIndex);
    pInfo->m_byBoard = 2;
    pInfo->m_byFrameSize = 0x81;
    pInfo->m_bySoundFormat = 3;
    pInfo->m_byReserved = 9;
    pInfo->m_dwBeginTime = 1000 + static_cast<DWORD>(nIndex);
    pInfo->m_dwEndTime = 0x80000001;
    pInfo->m_dwFileLength = 0xFFFFFFF0;
    pInfo->m_strCameraName = "cam";
    pInfo->m_strBoardName = "bd";
    pInfo->m_strFilePath = ("/store/Local/d20260310/f" + std::to_string(nIndex) + ".zn").c_str();
    pInfo->m_strHostName = "h";
    pInfo->m_nGmtOffset = -3600;
    return pInfo;
}

bool SameSummary(const CZnFileInfo& a, const CZnFileInfo& b)
{
    return a.m_byCamera == b.m_byCamera && a.m_byBoard == b.m_byBoard && a.m_byFrameSize == b.m_byFrameSize &&
           a.m_bySoundFormat == b.m_bySoundFormat && a.m_byReserved == b.m_byReserved &&
           a.m_dwBeginTime == b.m_dwBeginTime && a.m_dwEndTime == b.m_dwEndTime &&
           a.m_dwFileLength == b.m_dwFileLength && a.m_strCameraName == b.m_strCameraName &&
           a.m_strBoardName == b.m_strBoardName && a.m_strFilePath == b.m_strFilePath &&
           a.m_strHostName == b.m_strHostName && a.m_nGmtOffset == b.m_nGmtOffset;
}

const CZnFileInfo& At(const CFileSearchInfo& search, int nIndex)
{
    return *static_cast<const CZnFileInfo*>(search.GetAt(search.FindIndex(nIndex)));
}

tag_SEARCHPARAM FullRequest()
{
    tag_SEARCHPARAM param;
    param.dwFlags = 0x9FF;
    param.strHostName = "host";
    param.strDbsName = "ZnDatabase(/srv/)";
    param.strBoardName = "board";
    param.strCameraName = "camera";
    param.dwDate = 11;
    param.dwFrameSize = 4;
    param.dwBeginTime = 22;
    param.dwEndTime = 33;
    return param;
}

std::vector<BYTE> WritePage(const CFileSearchInfo& search, int& nStart, int& nCount)
{
    std::vector<BYTE> buffer(search.GetSize(nStart, nCount));
    EXPECT_EQ(search.WriteToBuf(buffer.data(), static_cast<DWORD>(buffer.size()), nStart, nCount), buffer.size());
    return buffer;
}

TEST(SearchBufferTest, RequestFieldsStandInTheOrderOfTheFlatForm)
{
    tag_SEARCHPARAM param = FullRequest();
    param.dwFlags = SEARCH_HOST | SEARCH_CAMERA | SEARCH_DATE | SEARCH_BEGIN | SEARCH_MOMENT | SEARCH_END |
                    SEARCH_FRAMESIZE | SEARCH_REMOTE;
    CFileSearchInfo search(&param);
    int nStart = 0;
    int nCount = 5;
    const std::vector<BYTE> buffer = WritePage(search, nStart, nCount);
    const std::vector<BYTE> expected = {
        0xF9, 0x09, 0, 0,                    // flags
        4, 0, 'h', 'o', 's', 't',            // host name
        6, 0, 'c', 'a', 'm', 'e', 'r', 'a',  // camera name
        11, 0, 0, 0,                         // date
        22, 0, 0, 0,                         // begin time, once for BEGIN and MOMENT
        33, 0, 0, 0,                         // end time
        4, 0, 0, 0,                          // frame size
        0, 0, 0, 0, 0, 0, 0, 0,              // nStart and nCount of an empty list
    };
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(nCount, 0);

    CFileSearchInfo empty;
    EXPECT_EQ(empty.GetSize(0, 10), 12u);
}

TEST(SearchBufferTest, SummaryRecordHasItsFixedLayout)
{
    CZnFileInfo info;
    EXPECT_EQ(info.GetSize(), 37u);
    std::unique_ptr<CZnFileInfo> pInfo(MakeSummary(1));
    std::vector<BYTE> buffer(pInfo->GetSize());
    ASSERT_EQ(pInfo->WriteToBuf(buffer.data(), static_cast<DWORD>(buffer.size())), buffer.size());
    const std::vector<BYTE> head = {1, 2, 0x81, 3, 9, 0xE9, 3, 0, 0, 1, 0, 0, 0x80, 0xF0, 0xFF, 0xFF, 0xFF,
                                    3, 0, 0, 0, 'c', 'a', 'm', 2, 0, 0, 0, 'b', 'd'};
    EXPECT_EQ(std::vector<BYTE>(buffer.begin(), buffer.begin() + 30), head);
    EXPECT_EQ(std::vector<BYTE>(buffer.end() - 9, buffer.end()),
              (std::vector<BYTE>{1, 0, 0, 0, 'h', 0xF0, 0xF1, 0xFF, 0xFF}));

    std::vector<BYTE> small(buffer.size() - 1, 0xAA);
    EXPECT_EQ(pInfo->WriteToBuf(small.data(), static_cast<DWORD>(small.size())), CZnFileInfo::BUF_ERROR);
    EXPECT_EQ(small, std::vector<BYTE>(buffer.size() - 1, 0xAA));
    EXPECT_EQ(pInfo->WriteToBuf(nullptr, 1000), CZnFileInfo::BUF_ERROR);

    CZnFileInfo read;
    EXPECT_EQ(read.ReadFromBuf(buffer.data(), static_cast<DWORD>(buffer.size() + 0)), buffer.size());
    EXPECT_TRUE(SameSummary(read, *pInfo));
    EXPECT_EQ(read.ReadFromBuf(nullptr, 100), CZnFileInfo::BUF_ERROR);
}

// Ten results, pages of every start and count: the page written is the part of the list
// that exists, GetSize agrees, and pages read one after the other give the whole list.
TEST(SearchBufferTest, PagesCoverTheListAndGetSizeAgrees)
{
    CFileSearchInfo search;
    for (int i = 0; i < 10; ++i)
        search.AddResult(MakeSummary(i));
    for (int nStart = -1; nStart <= 11; ++nStart) {
        for (int nCount = -1; nCount <= 11; ++nCount) {
            int nPageStart = nStart;
            int nPageCount = nCount;
            WritePage(search, nPageStart, nPageCount);
            const bool bInside = nStart >= 0 && nStart < 10;
            EXPECT_EQ(nPageStart, bInside ? nStart : 0);
            EXPECT_EQ(nPageCount, bInside ? std::clamp(nCount, 0, 10 - nStart) : 0) << nStart << " " << nCount;
        }
    }

    CFileSearchInfo whole;
    whole.AddResult(MakeSummary(99));
    for (int nStart = 0;;) {
        int nCount = 4;
        const std::vector<BYTE> page = WritePage(search, nStart, nCount);
        if (nCount == 0)
            break;
        int nReadStart = -1;
        int nReadCount = -1;
        EXPECT_EQ(whole.ReadFromBuf(page.data(), static_cast<DWORD>(page.size()), nReadStart, nReadCount), page.size());
        EXPECT_EQ(nReadStart, nStart);
        EXPECT_EQ(nReadCount, nCount);
        nStart += nCount;
    }
    ASSERT_EQ(whole.GetCount(), 11);
    EXPECT_EQ(At(whole, 0).m_byCamera, 99);  // what it held stays at the head
    for (int i = 0; i < 10; ++i)
        EXPECT_TRUE(SameSummary(At(whole, i + 1), At(search, i)));
}

TEST(SearchBufferTest, ReadingTakesOnlyTheFieldsTheFlagsName)
{
    CFileSearchInfo source(nullptr);
    tag_SEARCHPARAM sent;
    sent.dwFlags = SEARCH_CAMERA | SEARCH_END;
    sent.strCameraName = "camera 2";
    sent.dwEndTime = 77;
    CFileSearchInfo request(&sent);
    int nStart = 0;
    int nCount = 0;
    const std::vector<BYTE> buffer = WritePage(request, nStart, nCount);

    tag_SEARCHPARAM before = FullRequest();
    CFileSearchInfo target(&before);
    ASSERT_EQ(target.ReadFromBuf(buffer.data(), static_cast<DWORD>(buffer.size()), nStart, nCount), buffer.size());
    const tag_SEARCHPARAM& after = target.GetSearchParam();
    EXPECT_EQ(after.dwFlags, sent.dwFlags);
    EXPECT_EQ(after.strCameraName, "camera 2");
    EXPECT_EQ(after.dwEndTime, 77u);
    EXPECT_EQ(after.strHostName, before.strHostName);
    EXPECT_EQ(after.dwBeginTime, before.dwBeginTime);
    EXPECT_EQ(after.dwFrameSize, before.dwFrameSize);
    EXPECT_TRUE(target == request);
}

// The largest start an int can hold, and a page whose records take exactly the bytes that
// remain, are taken.
TEST(SearchBufferTest, PagesAtTheirLimitsAreTaken)
{
    std::vector<BYTE> lastStart(12, 0);
    lastStart[4] = lastStart[5] = lastStart[6] = 0xFF;
    lastStart[7] = 0x7F;
    CFileSearchInfo target;
    int nStart = 0;
    int nCount = 0;
    ASSERT_EQ(target.ReadFromBuf(lastStart.data(), 12, nStart, nCount), 12u);
    EXPECT_EQ(nStart, 0x7FFFFFFF);

    CFileSearchInfo emptyRecords;
    emptyRecords.AddResult(new CZnFileInfo);
    emptyRecords.AddResult(new CZnFileInfo);
    nStart = 0;
    nCount = 2;
    const std::vector<BYTE> buffer = WritePage(emptyRecords, nStart, nCount);
    ASSERT_EQ(buffer.size(), 12u + 2 * 37);
    EXPECT_EQ(target.ReadFromBuf(buffer.data(), static_cast<DWORD>(buffer.size()), nStart, nCount), buffer.size());
    EXPECT_EQ(target.GetCount(), 2);
}

// Every cut of a valid buffer, and lengths or counts that claim more than it holds, are
// refused, and the object keeps its request and results.
TEST(SearchBufferTest, DamagedBuffersAreRefusedAndChangeNothing)
{
    tag_SEARCHPARAM param = FullRequest();
    CFileSearchInfo search(&param);
    for (int i = 0; i < 3; ++i)
        search.AddResult(MakeSummary(i));
    int nStart = 0;
    int nCount = 3;
    const std::vector<BYTE> buffer = WritePage(search, nStart, nCount);

    std::vector<std::vector<BYTE>> damaged;
    for (std::size_t nSize = 0; nSize < buffer.size(); ++nSize)
        damaged.emplace_back(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(nSize));
    std::vector<BYTE> longHost = buffer;
    longHost[4] = 0xFF;  // the host name's length
    damaged.push_back(longHost);
    std::vector<BYTE> manyRecords(buffer.begin(), buffer.begin() + 12);
    manyRecords[0] = 0;  // no fields: nStart and nCount follow the flags
    manyRecords[8] = 0xFF;
    manyRecords[9] = 0xFF;
    manyRecords[10] = 0xFF;
    manyRecords[11] = 0x7F;
    damaged.push_back(manyRecords);
    std::vector<BYTE> startPastInt(12, 0);
    startPastInt[7] = 0x80;  // nStart 0x80000000, which no int of the caller can hold
    damaged.push_back(startPastInt);

    for (const std::vector<BYTE>& bytes : damaged) {
        SCOPED_TRACE(bytes.size());
        CFileSearchInfo target;
        target.AddResult(MakeSummary(42));
        int nReadStart = -5;
        int nReadCount = -5;
        EXPECT_EQ(target.ReadFromBuf(bytes.data(), static_cast<DWORD>(bytes.size()), nReadStart, nReadCount), 0u);
        EXPECT_EQ(target.GetSearchParam().dwFlags, 0u);
        EXPECT_EQ(target.GetSearchParam().dwFrameSize, 2u);
        ASSERT_EQ(target.GetCount(), 1);
        EXPECT_EQ(nReadStart, -5);
        EXPECT_EQ(nReadCount, -5);
    }
}

TEST(SearchBufferTest, WriterRefusesSmallBuffersAndStringsItCannotCarry)
{
    tag_SEARCHPARAM param;
    param.dwFlags = SEARCH_BOARD;
    param.strBoardName = CString('b', 0xFFFF);
    CFileSearchInfo search(&param);
    search.AddResult(MakeSummary(0));
    int nStart = 0;
    int nCount = 1;
    const DWORD dwSize = search.GetSize(nStart, nCount);
    EXPECT_EQ(dwSize, 12u + 2 + 0xFFFF + At(search, 0).GetSize());
    std::vector<BYTE> buffer(dwSize, 0xAA);
    EXPECT_EQ(search.WriteToBuf(buffer.data(), dwSize - 1, nStart, nCount), 0u);
    EXPECT_EQ(buffer, std::vector<BYTE>(dwSize, 0xAA));
    EXPECT_EQ(search.WriteToBuf(nullptr, dwSize, nStart, nCount), 0u);
    ASSERT_EQ(search.WriteToBuf(buffer.data(), dwSize, nStart, nCount), dwSize);

    CFileSearchInfo read;
    ASSERT_EQ(read.ReadFromBuf(buffer.data(), dwSize, nStart, nCount), dwSize);
    EXPECT_EQ(read.GetSearchParam().strBoardName.GetLength(), 0xFFFF);

    param.strBoardName += "b";
    CFileSearchInfo tooLong(&param);
    std::vector<BYTE> big(tooLong.GetSize(0, 0));
    nStart = 0;
    nCount = 0;
    EXPECT_EQ(tooLong.WriteToBuf(big.data(), static_cast<DWORD>(big.size()), nStart, nCount), 0u);
}

class DirBufferTest : public StorageClockTest {};

TEST_F(DirBufferTest, ListingRoundTripsAndAnEmptyBaseEmptiesTheTarget)
{
    ScopedQuotaDisk disk(m_dir.Path() / "disk", 100);
    MakeDay(disk.Path(), "Local", LocalDate(2026, 3, 1), {10});
    MakeDay(disk.Path(), "Local", LocalDate(2026, 3, 3), {10});
    MakeDay(disk.Path(), "Remote", LocalDate(2026, 2, 1), {10});
    MakeDay(disk.Path(), "Picture", LocalDate(2026, 1, 1), {10});
    CZnDatabase db;
    ASSERT_EQ(db.Open(disk.Path().c_str(), kRevision2, nullptr, (m_dir / "db").c_str(), "h"), 1);
    tag_HDDPARAM param;
    param.strBaseDir = disk.Path().c_str();
    param.dwReservedSpace = 1;
    ASSERT_EQ(db.ChangeBaseDir(0, &param), 1);
    CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(0));
    const std::string strBase = disk.Path() + "/";
    const std::string strName = "ZnDatabase(" + disk.Volume() + ")";
    ASSERT_EQ(pDisk->GetDirSize(), 16 + strBase.size() + strName.size() + 4 * 3);

    std::vector<BYTE> buffer(pDisk->GetDirSize());
    EXPECT_EQ(pDisk->WriteDirToBuf(buffer.data(), static_cast<DWORD>(buffer.size() - 1)), 0u);
    ASSERT_EQ(pDisk->WriteDirToBuf(buffer.data(), static_cast<DWORD>(buffer.size())), buffer.size());
    EXPECT_EQ(buffer[0], strBase.size());
    EXPECT_EQ(std::string(buffer.begin() + 4, buffer.begin() + 4 + static_cast<std::ptrdiff_t>(strBase.size())), strBase);

    // A snapshot carries what the buffer carries.
    CObList snapshots;
    db.GetHDDInfo(&snapshots);
    std::unique_ptr<CHddObj> pSnapshot(static_cast<CHddObj*>(snapshots.RemoveHead()));
    std::vector<BYTE> fromSnapshot(pSnapshot->GetDirSize());
    pSnapshot->WriteDirToBuf(fromSnapshot.data(), static_cast<DWORD>(fromSnapshot.size()));
    EXPECT_EQ(fromSnapshot, buffer);

    CHddObj target;
    ASSERT_EQ(target.ReadDirFromBuf(buffer.data(), static_cast<DWORD>(buffer.size())), buffer.size());
    EXPECT_EQ(target.GetBaseDir(), strBase.c_str());
    EXPECT_EQ(target.GetDbsName(), strName.c_str());
    EXPECT_EQ(target.GetHDD(), "");
    ASSERT_EQ(target.GetDirNum(CHddObj::DIR_LOCAL), 2);
    EXPECT_EQ(target.GetDirDate(1, CHddObj::DIR_LOCAL), LocalDate(2026, 3, 3));
    ASSERT_EQ(target.GetDirNum(CHddObj::DIR_REMOTE), 1);
    EXPECT_EQ(target.GetDirDate(0, CHddObj::DIR_REMOTE), LocalDate(2026, 2, 1));

    CHddObj unbound;
    EXPECT_EQ(unbound.GetDirSize(), 4u);
    std::vector<BYTE> empty(4, 0xAA);
    ASSERT_EQ(unbound.WriteDirToBuf(empty.data(), 4), 4u);
    EXPECT_EQ(empty, std::vector<BYTE>(4, 0));
    *pSnapshot = *pDisk;
    ASSERT_EQ(pSnapshot->ReadDirFromBuf(empty.data(), 4), 4u);
    EXPECT_EQ(pSnapshot->GetBaseDir(), "");
    EXPECT_EQ(pSnapshot->GetDbsName(), "");
    EXPECT_EQ(pSnapshot->GetDirNum(CHddObj::DIR_LOCAL) + pSnapshot->GetDirNum(CHddObj::DIR_REMOTE), 0);
    EXPECT_EQ(pSnapshot->GetPictureDirNum(), 1);  // the Picture list doesn't travel
}

TEST(DirBufferReaderTest, CutOrUnorderedListingsAreRefused)
{
    const std::vector<BYTE> listing = {2, 0, 0, 0, '/', 'v', 1, 0, 0, 0, 'n', 2, 0, 0, 0, 5, 0, 0, 0,
                                       6, 0, 0, 0, 1, 0, 0, 0, 7, 0, 0, 0};
    std::vector<std::vector<BYTE>> damaged;
    for (std::size_t nSize = 0; nSize < listing.size(); ++nSize)
        damaged.emplace_back(listing.begin(), listing.begin() + static_cast<std::ptrdiff_t>(nSize));
    std::vector<BYTE> repeated = listing;
    repeated[19] = 5;  // the second Local date equals the first
    damaged.push_back(repeated);
    std::vector<BYTE> hugeCount = listing;
    hugeCount[14] = 0x40;
    damaged.push_back(hugeCount);
    CHddObj target;
    ASSERT_EQ(target.ReadDirFromBuf(listing.data(), static_cast<DWORD>(listing.size())), listing.size());
    for (const std::vector<BYTE>& bytes : damaged) {
        SCOPED_TRACE(bytes.size());
        EXPECT_EQ(target.ReadDirFromBuf(bytes.data(), static_cast<DWORD>(bytes.size())), 0u);
        EXPECT_EQ(target.GetBaseDir(), "/v");
        EXPECT_EQ(target.GetDirNum(CHddObj::DIR_LOCAL), 2);
        EXPECT_EQ(target.GetDirDate(0, CHddObj::DIR_REMOTE), 7u);
    }
    EXPECT_EQ(target.ReadDirFromBuf(nullptr, 10), 0u);
}

} // namespace

namespace {

// The cursors under every flat form: nothing is read or written past their size, and a
// failure sticks, so that one check at the end covers a whole record.
TEST(FlatCursorTest, NothingPassesTheSizeAndFailuresStick)
{
    BYTE bytes[6] = {1, 2, 3, 4, 5, 6};
    CFlatWriter writer(bytes, 5);
    writer.Put16(0xA0B0);
    EXPECT_EQ(writer.GetRemaining(), 3u);
    writer.Put32(0xFFFFFFFF);
    EXPECT_TRUE(writer.HasFailed());
    writer.Put8(0xCC);
    EXPECT_EQ(writer.GetPosition(), 2u);
    EXPECT_EQ(std::vector<BYTE>(bytes, bytes + 6), (std::vector<BYTE>{0xB0, 0xA0, 3, 4, 5, 6}));

    CFlatReader reader(bytes, 5);
    EXPECT_EQ(reader.Get32(), 0x0403A0B0u);
    EXPECT_EQ(reader.Get16(), 0u);
    EXPECT_TRUE(reader.IsDamaged());
    EXPECT_EQ(reader.Get8(), 0);
    EXPECT_EQ(reader.GetPosition(), 4u);
}

} // namespace
