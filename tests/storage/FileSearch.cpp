// Searches over the disks of a store: which days a request visits, which files it keeps,
// the order of the results, and what a search never reports.
#include "SearchTestSupport.h"

#include "storage/CFileSearchInfo.h"
#include "storage/CZnDatabase.h"
#include "storage/CZnFileInfo.h"

#include <filesystem>
#include <initializer_list>

namespace {

class FileSearchTest : public StorageClockTest {
protected:
    void SetUp() override
    {
        ASSERT_EQ(m_db.Open(m_disk1.Path().c_str(), kRevision2, nullptr, (m_dir / "zndvr.dbs").c_str(), "host"), 1);
        tag_HDDPARAM param;
        param.strBaseDir = (m_disk2.Path() + "/base").c_str();
        param.strDbsName = "second";
        ASSERT_EQ(m_db.AddHDD(&param), 1);
    }

    std::string Base(int nDisk) const
    {
        return nDisk == 1 ? m_disk1.Path() + "/database" : m_disk2.Path() + "/base";
    }

    // A recording named strName in the day of dwDate, from dwBegin to dwEnd.
    void Put(int nDisk, const char* pszTree, DWORD dwDate, const std::string& strName, DWORD dwBegin, DWORD dwEnd,
             TestHead head = TestHead())
    {
        head.dwBeginTime = dwBegin;
        head.dwEndTime = dwEnd;
        WriteWholeFile(MakeDay(Base(nDisk), pszTree, dwDate) + "/" + strName, head.Bytes());
    }

    // The names of the files found, "disk/name", in the order found.
    std::vector<std::string> Search(const tag_SEARCHPARAM& param)
    {
        CFileSearchInfo search(&param);
        EXPECT_EQ(m_db.SearchFile(&search), 1);
        return Names(search);
    }

    static std::vector<std::string> Names(const CFileSearchInfo& search)
    {
        std::vector<std::string> names;
        for (POSITION position = search.GetHeadPosition(); position != nullptr;) {
            const auto* pInfo = static_cast<const CZnFileInfo*>(search.GetNext(position));
            const std::filesystem::path path(static_cast<LPCSTR>(pInfo->m_strFilePath));
            names.push_back(path.parent_path().filename().string() + "/" + path.filename().string());
        }
        return names;
    }

    ScopedQuotaDisk m_disk1{m_dir.Path() / "disk1", 100};
    ScopedQuotaDisk m_disk2{m_dir.Path() / "disk2", 100};
    CZnDatabase m_db;
};

tag_SEARCHPARAM Request(DWORD dwFlags, DWORD dwBegin = 0, DWORD dwEnd = 0, DWORD dwDate = 0)
{
    tag_SEARCHPARAM param;
    param.dwFlags = dwFlags;
    param.dwBeginTime = dwBegin;
    param.dwEndTime = dwEnd;
    param.dwDate = dwDate;
    return param;
}

using FileList = std::vector<std::string>;

TEST_F(FileSearchTest, DaysAndTimesChooseTheFilesInDiskAndDayOrder)
{
    const DWORD d7 = LocalDate(2026, 3, 7);
    const DWORD d8 = LocalDate(2026, 3, 8);
    const DWORD d9 = LocalDate(2026, 3, 9);
    Put(1, "Local", d7, "late.zn", LocalTime(2026, 3, 7, 23), LocalTime(2026, 3, 8, 1));  // runs past midnight
    Put(1, "Local", d8, "b.zn", LocalTime(2026, 3, 8, 10), LocalTime(2026, 3, 8, 11));
    Put(1, "Local", d8, "a.zn", LocalTime(2026, 3, 8, 8), LocalTime(2026, 3, 8, 9));
    Put(2, "Local", d8, "c.zn", LocalTime(2026, 3, 8, 8), LocalTime(2026, 3, 8, 12));
    Put(1, "Local", d9, "d.zn", LocalTime(2026, 3, 9, 8), LocalTime(2026, 3, 9, 9));
    Put(1, "Local", LocalDate(2026, 3, 10), "today.zn", LocalTime(2026, 3, 10, 8), LocalTime(2026, 3, 10, 9));
    Put(1, "Local", LocalDate(2026, 3, 11), "tomorrow.zn", LocalTime(2026, 3, 11, 8), LocalTime(2026, 3, 11, 9));
    Put(1, "Remote", d8, "r.zn", LocalTime(2026, 3, 8, 8), LocalTime(2026, 3, 8, 9));

    const DWORD dwNine = LocalTime(2026, 3, 8, 9);
    struct Case {
        const char* pszWhat;
        tag_SEARCHPARAM param;
        FileList expected;
    };
    const Case cases[] = {
        {"no day chosen", Request(SEARCH_END | SEARCH_MOMENT, dwNine, dwNine), {}},
        {"one day, disks in list order, files by name", Request(SEARCH_DATE, 0, 0, dwNine),
         {"d20260308/a.zn", "d20260308/b.zn", "d20260308/c.zn"}},
        {"date goes first", Request(SEARCH_DATE | SEARCH_BEGIN, d7, d9, dwNine), {"d20260308/a.zn", "d20260308/b.zn", "d20260308/c.zn"}},
        {"the moment, both ends count", Request(SEARCH_DATE | SEARCH_MOMENT, dwNine, 0, d8),
         {"d20260308/a.zn", "d20260308/c.zn"}},
        {"a moment at a file's begin", Request(SEARCH_DATE | SEARCH_MOMENT, dwNine + 3600, 0, d8),
         {"d20260308/b.zn", "d20260308/c.zn"}},
        {"a moment chooses no day", Request(SEARCH_MOMENT, dwNine), {}},
        {"the day a recording began, not its end",
         Request(SEARCH_DATE | SEARCH_MOMENT, LocalTime(2026, 3, 8, 0, 30), 0, d8), {}},
        {"a span: no file ends before its begin, its last day whole",
         Request(SEARCH_BEGIN, dwNine, LocalTime(2026, 3, 9, 0, 30)),
         {"d20260308/a.zn", "d20260308/b.zn", "d20260309/d.zn", "d20260308/c.zn"}},
        {"a span from a second after a file's end", Request(SEARCH_BEGIN, dwNine + 1, d8 + 60),
         {"d20260308/b.zn", "d20260308/c.zn"}},
        {"a span with its end: no file begins after it",
         Request(SEARCH_BEGIN | SEARCH_END, LocalTime(2026, 3, 7, 12), LocalTime(2026, 3, 8, 8)),
         {"d20260307/late.zn", "d20260308/a.zn", "d20260308/c.zn"}},
        {"a span into the future stops today", Request(SEARCH_BEGIN, d9, LocalTime(2026, 3, 20, 0)),
         {"d20260309/d.zn", "d20260310/today.zn"}},
        {"a span from the first day", Request(SEARCH_BEGIN, 0, d7 + 60), {"d20260307/late.zn"}},
        {"a span without its end ends at once", Request(SEARCH_BEGIN, d8), {}},
        {"a begin after the end's day", Request(SEARCH_BEGIN, d9, d8), {}},
        {"the Remote tree", Request(SEARCH_DATE | SEARCH_REMOTE, 0, 0, d8), {"d20260308/r.zn"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.pszWhat);
        std::vector<std::string> found = Search(c.param);
        EXPECT_EQ(found, c.expected);
    }
}

TEST_F(FileSearchTest, NamesAndFrameSizeFilterExactly)
{
    const DWORD d8 = LocalDate(2026, 3, 8);
    TestHead other;
    other.strHostName = "Host";
    other.strBoardName = "board2";
    other.strCameraName = "camera ";
    other.byFrameSize = 4;
    Put(1, "Local", d8, "ours.zn", d8, d8 + 60);
    Put(1, "Local", d8, "theirs.zn", d8, d8 + 60, other);
    Put(2, "Local", d8, "second.zn", d8, d8 + 60);
    for (DWORD dwFlag : {SEARCH_HOST, SEARCH_BOARD, SEARCH_CAMERA, SEARCH_FRAMESIZE}) {
        tag_SEARCHPARAM param = Request(SEARCH_DATE | dwFlag, 0, 0, d8);
        param.strHostName = "host";
        param.strBoardName = "board";
        param.strCameraName = "camera";
        param.dwFrameSize = 2;
        EXPECT_EQ(Search(param), (FileList{"d20260308/ours.zn", "d20260308/second.zn"})) << dwFlag;
        // Only the field of the flag counts: the others stay those of the first files.
        (dwFlag == SEARCH_HOST ? param.strHostName : dwFlag == SEARCH_BOARD ? param.strBoardName : param.strCameraName) =
            dwFlag == SEARCH_HOST ? "Host" : dwFlag == SEARCH_BOARD ? "board2" : "camera ";
        param.dwFrameSize = dwFlag == SEARCH_FRAMESIZE ? 4 : 2;
        EXPECT_EQ(Search(param), (FileList{"d20260308/theirs.zn"})) << dwFlag;
    }

    tag_SEARCHPARAM param = Request(SEARCH_DATE | SEARCH_DBS, 0, 0, d8);
    param.strDbsName = m_db.GetDbsName(1);
    EXPECT_EQ(Search(param), (FileList{"d20260308/second.zn"}));
    param.strDbsName = "second";  // the plain name is no display name
    EXPECT_EQ(Search(param), FileList{});
}

// Only regular files whose head is a recording of a version this run reads; no file
// name counts, and no sub-directory is entered.
TEST_F(FileSearchTest, OnlyRecordingsDirectlyInTheDayAreReported)
{
    const DWORD d8 = LocalDate(2026, 3, 8);
    Put(1, "Local", d8, "copy.bak", d8, d8 + 60);
    const std::string strDay = MakeDay(Base(1), "Local", d8);
    WriteWholeFile(strDay + "/notes.zn", "ZN is what these notes are about");
    std::filesystem::create_directory(strDay + "/sub");
    Put(1, "Local", d8, "../d20260308/sub/inner.zn", d8, d8 + 60);
    TestHead newest;
    newest.wVersion = 0x1000;
    Put(1, "Local", d8, "r2.zn", d8, d8 + 60, newest);

    EXPECT_EQ(Search(Request(SEARCH_DATE, 0, 0, d8)), (FileList{"d20260308/copy.bak", "d20260308/r2.zn"}));

    CZnDatabase older;
    ASSERT_EQ(older.Open(m_disk1.Path().c_str(), kRevision1, nullptr, (m_dir / "zndvr.dbs").c_str(), "host"), 1);
    const tag_SEARCHPARAM param = Request(SEARCH_DATE, 0, 0, d8);
    CFileSearchInfo search(&param);
    ASSERT_EQ(older.SearchFile(&search), 1);
    EXPECT_EQ(Names(search), (FileList{"d20260308/copy.bak"}));
    EXPECT_EQ(older.SearchFile(nullptr), 0);
}

TEST_F(FileSearchTest, ResultsAddUpUntilReset)
{
    const DWORD d8 = LocalDate(2026, 3, 8);
    Put(1, "Local", d8, "a.zn", d8, d8 + 60);
    const tag_SEARCHPARAM param = Request(SEARCH_DATE, 0, 0, d8);
    CFileSearchInfo search(&param);
    m_db.SearchFile(&search);
    m_db.SearchFile(&search);
    EXPECT_EQ(search.GetCount(), 2);

    tag_SEARCHPARAM otherParam = Request(SEARCH_BEGIN, 1, 2);
    CFileSearchInfo copy(&otherParam);
    m_db.SearchFile(&copy);
    copy.AddResult(new CZnFileInfo);
    copy = search;
    EXPECT_EQ(copy.GetCount(), 3);
    EXPECT_TRUE(copy.GetHead() != search.GetHead());
    EXPECT_TRUE(copy == search);
    copy += copy;
    EXPECT_EQ(copy.GetCount(), 6);
    copy.Reset();
    EXPECT_EQ(copy.GetCount(), 0);
    EXPECT_EQ(copy.GetSearchParam().dwFlags, SEARCH_DATE);
}

TEST(SearchRequestTest, EqualityComparesOnlyWhatTheFlagsName)
{
    tag_SEARCHPARAM a;
    a.dwFlags = SEARCH_CAMERA | SEARCH_MOMENT;
    a.strCameraName = "cam";
    a.dwBeginTime = 5;
    tag_SEARCHPARAM b = a;
    b.strHostName = "other";
    b.dwEndTime = 9;
    b.dwDate = 3;
    b.dwFrameSize = 0;
    CFileSearchInfo search(&a);
    EXPECT_TRUE(search == b);
    struct Change {
        DWORD tag_SEARCHPARAM::*pField;
        DWORD dwFlag;
    };
    for (const Change& change : {Change{&tag_SEARCHPARAM::dwDate, SEARCH_DATE},
                                 Change{&tag_SEARCHPARAM::dwBeginTime, SEARCH_BEGIN},
                                 Change{&tag_SEARCHPARAM::dwEndTime, SEARCH_END},
                                 Change{&tag_SEARCHPARAM::dwFrameSize, SEARCH_FRAMESIZE}}) {
        tag_SEARCHPARAM c = a;
        c.dwFlags |= change.dwFlag;
        tag_SEARCHPARAM d = c;
        d.*change.pField += 1;
        EXPECT_FALSE(CFileSearchInfo(&c) == d) << change.dwFlag;
    }
    b.strCameraName = "Cam";
    EXPECT_FALSE(search == b);
    b = a;
    b.dwFlags |= SEARCH_REMOTE;
    EXPECT_FALSE(search == b);
    const CFileSearchInfo defaults(nullptr);
    EXPECT_EQ(defaults.GetSearchParam().dwFrameSize, 2u);
}

// Days of 25 and 23 hours: a walk by the calendar visits each day once and reaches the
// last day of the span.
TEST_F(FileSearchTest, SpansOverDaylightSavingChangesVisitEachDayOnce)
{
    for (auto [nMonth, nDay] : {std::pair{10, 25}, std::pair{10, 26}, std::pair{10, 27}, std::pair{3, 29},
                                std::pair{3, 30}, std::pair{3, 31}}) {
        const DWORD dwDate = LocalDate(2025, nMonth, nDay);
        Put(1, "Local", dwDate, "f.zn", dwDate + 3600, dwDate + 7200);
    }
    EXPECT_EQ(Search(Request(SEARCH_BEGIN, LocalDate(2025, 10, 25), LocalTime(2025, 10, 27, 0, 30))),
              (FileList{"d20251025/f.zn", "d20251026/f.zn", "d20251027/f.zn"}));
    EXPECT_EQ(Search(Request(SEARCH_BEGIN, LocalDate(2025, 3, 29), LocalTime(2025, 3, 31, 0, 30))),
              (FileList{"d20250329/f.zn", "d20250330/f.zn", "d20250331/f.zn"}));
}

} // namespace
