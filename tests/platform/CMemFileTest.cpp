#include "platform/CMemFile.h"

#include "platform/CMemoryException.h"
#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <cstring>

namespace {

// Exposes the size of the block, which the steps of growth decide.
class ProbedMemFile : public CMemFile {
public:
    using CMemFile::CMemFile;
    DWORD GetBlockSize() const { return m_nBufferSize; }
};

bool ThrowsMemoryException(const std::function<void()>& fn)
{
    try {
        fn();
    } catch (CMemoryException* pException) {
        pException->Delete();
        return true;
    }
    return false;
}

} // namespace

TEST(CMemFileGrowth, GrowsInStepsOf1024BytesByDefault)
{
    ProbedMemFile file;
    BYTE aData[1500] = {};
    file.Write(aData, 1);
    EXPECT_EQ(file.GetBlockSize(), 1024u);
    file.Write(aData, 1023);
    EXPECT_EQ(file.GetBlockSize(), 1024u);
    file.Write(aData, 1);
    EXPECT_EQ(file.GetBlockSize(), 2048u);
    file.Write(aData, 1500);
    EXPECT_EQ(file.GetBlockSize(), 3072u);
    EXPECT_EQ(file.GetLength(), 2525u);
}

TEST(CMemFileGrowth, KeepsItsBlockWhenRewoundAndUsesTheGivenStep)
{
    ProbedMemFile file(100);
    BYTE aData[250] = {};
    file.Write(aData, sizeof(aData));
    EXPECT_EQ(file.GetBlockSize(), 300u);
    file.SeekToBegin();
    file.Write(aData, 10);
    EXPECT_EQ(file.GetBlockSize(), 300u);
    EXPECT_EQ(file.GetLength(), 250u);
}

TEST(CMemFileAccess, ReadsBackWhatWasWrittenAndStopsAtTheEnd)
{
    CMemFile file;
    file.Write("abcdef", 6);
    EXPECT_EQ(file.Seek(2, CFile::begin), 2);
    char aText[10] = {};
    EXPECT_EQ(file.Read(aText, sizeof(aText)), 4u);
    EXPECT_STREQ(aText, "cdef");
    EXPECT_EQ(file.Read(aText, sizeof(aText)), 0u);
    EXPECT_EQ(file.Read(nullptr, 5), 0u);
    EXPECT_EQ(file.Seek(-1, CFile::end), 5);
    EXPECT_EQ(file.Seek(-2, CFile::current), 3);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(-4, CFile::current); }), CFileException::badSeek);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(0, 9); }), CFileException::badSeek);
    EXPECT_EQ(file.GetPosition(), 3u);
}

TEST(CMemFileDetach, HandsOverTheBlockWithTheGapBehindTheEndZeroedAndStartsEmpty)
{
    CMemFile file;
    file.Write("ab", 2);
    file.Seek(5, CFile::begin);
    file.Write("z", 1);
    ASSERT_EQ(file.GetLength(), 6u);
    BYTE* pBlock = file.Detach();
    ASSERT_NE(pBlock, nullptr);
    EXPECT_EQ(std::memcmp(pBlock, "ab\0\0\0z", 6), 0);
    std::free(pBlock);
    EXPECT_EQ(file.GetLength(), 0u);
    EXPECT_EQ(file.GetPosition(), 0u);
    file.Write("de", 2);
    EXPECT_EQ(file.GetLength(), 2u);
}

TEST(CMemFileAttach, AFixedBlockCantGrowAndStaysTheCallers)
{
    BYTE aBlock[8] = {'1', '2', '3', '4', '5', '6', '7', '8'};
    {
        CMemFile file(aBlock, sizeof(aBlock));
        EXPECT_EQ(file.GetLength(), 8u);
        file.Seek(6, CFile::begin);
        file.Write("xy", 2);
        EXPECT_TRUE(ThrowsMemoryException([&] { file.Write("z", 1); }));
        EXPECT_EQ(file.GetLength(), 8u);
    }
    EXPECT_EQ(std::memcmp(aBlock, "123456xy", 8), 0);
}

TEST(CMemFileLimits, AWriteBeyondFourGigabytesThrowsInsteadOfWrapping)
{
    CMemFile file;
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Seek(-1, CFile::begin); }), CFileException::badSeek);
    file.Seek(0x7FFFFFFF, CFile::begin);
    file.Seek(0x7FFFFFFF, CFile::current);
    EXPECT_EQ(file.GetPosition(), 0xFFFFFFFEu);
    EXPECT_TRUE(ThrowsMemoryException([&] { file.Write("abc", 3); }));
    EXPECT_EQ(file.GetLength(), 0u);
    EXPECT_EQ(CatchCause<CFileException>([&] { file.Write(nullptr, 1); }), CFileException::generic);
    EXPECT_FALSE(file.Open("anything", CFile::modeRead));
}
