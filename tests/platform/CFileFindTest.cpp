#include "platform/CFileFind.h"

#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

namespace {

struct SeenEntry {
    std::string strName;
    bool bDirectory;
    bool bDots;
    DWORD dwLength;
    BOOL bMore;
};

// Walks an enumeration in the way the disk code does: FindNextFile first, then the data
// of the entry it moved to, also after it returned 0.
std::vector<SeenEntry> Enumerate(CFileFind& finder)
{
    std::vector<SeenEntry> aSeen;
    BOOL bMore = TRUE;
    while (bMore) {
        bMore = finder.FindNextFile();
        aSeen.push_back({std::string(finder.GetFileName()), finder.MatchesMask(FILE_ATTRIBUTE_DIRECTORY) != 0,
                         finder.IsDots() != 0, finder.GetLength(), bMore});
    }
    return aSeen;
}

class CFileFindTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(m_dir.Path() / "d20020301");
        std::filesystem::create_directory(m_dir.Path() / "d20020302");
        WriteWholeFile(m_dir / "d20020303", "not a dir");
        WriteWholeFile(m_dir / "notes", "0123456789");
    }

    ScopedTempDir m_dir;
};

} // namespace

TEST_F(CFileFindTest, DeliversDotsFirstThenTheEntriesInNameOrderAndTheLastWithZero)
{
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile((m_dir / "*.*").c_str()));
    std::vector<SeenEntry> aSeen = Enumerate(finder);
    const std::vector<std::string> aNames = {".", "..", "d20020301", "d20020302", "d20020303", "notes"};
    ASSERT_EQ(aSeen.size(), aNames.size());
    for (std::size_t i = 0; i < aSeen.size(); ++i) {
        SCOPED_TRACE(aNames[i]);
        EXPECT_EQ(aSeen[i].strName, aNames[i]);
        EXPECT_EQ(aSeen[i].bDirectory, i < 4);
        EXPECT_EQ(aSeen[i].bDots, i < 2);
        EXPECT_EQ(aSeen[i].bMore != 0, i + 1 < aSeen.size());
    }
    // The data of the last entry stays readable after FindNextFile returned 0, and after
    // a further call.
    EXPECT_EQ(aSeen.back().dwLength, 10u);
    EXPECT_STREQ(finder.GetFilePath(), (m_dir / "notes").c_str());
    EXPECT_FALSE(finder.FindNextFile());
    EXPECT_STREQ(finder.GetFileName(), "notes");
}

TEST_F(CFileFindTest, APatternSelectsByNameAndMissesDots)
{
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile((m_dir / "d*").c_str()));
    std::vector<SeenEntry> aSeen = Enumerate(finder);
    ASSERT_EQ(aSeen.size(), 3u);
    EXPECT_EQ(aSeen[0].strName, "d20020301");
    EXPECT_EQ(aSeen[2].strName, "d20020303");

    EXPECT_TRUE(finder.FindFile((m_dir / "d2002030?").c_str()));
    EXPECT_EQ(Enumerate(finder).size(), 3u);
    EXPECT_FALSE(finder.FindFile((m_dir / "x*").c_str()));
}

TEST_F(CFileFindTest, APlainPathTestsExistence)
{
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile((m_dir / "d20020301").c_str()));
    EXPECT_FALSE(finder.FindNextFile());
    EXPECT_TRUE(finder.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_STREQ(finder.GetFilePath(), (m_dir / "d20020301").c_str());

    ASSERT_TRUE(finder.FindFile((m_dir / "notes/").c_str()));
    EXPECT_FALSE(finder.FindNextFile());
    EXPECT_FALSE(finder.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(finder.GetLength(), 10u);

    EXPECT_FALSE(finder.FindFile((m_dir / "missing").c_str()));
    EXPECT_FALSE(finder.FindFile((m_dir / "missing/*.*").c_str()));
}

TEST_F(CFileFindTest, AnEmptyDirectoryHoldsOnlyTheDots)
{
    CFileFind finder;
    ASSERT_TRUE(finder.FindFile((m_dir / "d20020301/*.*").c_str()));
    std::vector<SeenEntry> aSeen = Enumerate(finder);
    ASSERT_EQ(aSeen.size(), 2u);
    EXPECT_EQ(aSeen[1].strName, "..");
}

TEST_F(CFileFindTest, BadInputAndMissingEntriesGiveEmptyResults)
{
    CFileFind finder;
    EXPECT_FALSE(finder.FindNextFile());
    EXPECT_STREQ(finder.GetFileName(), "");
    EXPECT_STREQ(finder.GetFilePath(), "");
    EXPECT_FALSE(finder.MatchesMask(FILE_ATTRIBUTE_DIRECTORY));
    EXPECT_EQ(finder.GetLength(), 0u);
    EXPECT_FALSE(finder.FindFile(""));
    EXPECT_FALSE(finder.FindFile("/"));
    EXPECT_FALSE(finder.FindFile((m_dir / "*/notes").c_str()));

    ASSERT_TRUE(finder.FindFile((m_dir / "*.*").c_str()));
    EXPECT_FALSE(finder.IsDots());
    finder.FindNextFile();
    finder.Close();
    EXPECT_STREQ(finder.GetFileName(), "");
    EXPECT_FALSE(finder.FindNextFile());
}

TEST_F(CFileFindTest, SymbolicLinksAreMarkedAndDescribeTheirTargets)
{
    std::filesystem::create_directory_symlink(m_dir.Path() / "d20020301", m_dir.Path() / "linkdir");
    std::filesystem::create_symlink(m_dir.Path() / "notes", m_dir.Path() / "linkfile");
    std::filesystem::create_symlink(m_dir.Path() / "gone", m_dir.Path() / "linkdangling");
    CFileFind finder;
    struct tag_LINKCASE {
        const char* pszName;
        bool bDirectory;
        DWORD dwLength;
    };
    const tag_LINKCASE aCases[] = {{"linkdir", true, 0}, {"linkfile", false, 10}, {"linkdangling", false, 0}};
    for (const tag_LINKCASE& linkCase : aCases) {
        SCOPED_TRACE(linkCase.pszName);
        ASSERT_TRUE(finder.FindFile((m_dir / linkCase.pszName).c_str()));
        finder.FindNextFile();
        EXPECT_TRUE(finder.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT));
        EXPECT_EQ(finder.IsDirectory() != 0, linkCase.bDirectory);
        EXPECT_EQ(finder.GetLength(), linkCase.dwLength);
    }
    ASSERT_TRUE(finder.FindFile((m_dir / "d20020301").c_str()));
    finder.FindNextFile();
    EXPECT_FALSE(finder.MatchesMask(FILE_ATTRIBUTE_REPARSE_POINT));
}
