#include "platform/CArray.h"
#include "platform/CMemFile.h"

#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

// Shaped like an entry of a recording's block table: three 32-bit fields.
struct tag_TESTBLOCK {
    DWORD dwOffset;
    DWORD dwFrames;
    DWORD dwTimeStamp;
};

using CBlockArray = CArray<tag_TESTBLOCK, tag_TESTBLOCK&>;

std::vector<BYTE> StoreToBytes(CObject& object)
{
    CMemFile file;
    {
        CArchive ar(&file, CArchive::store);
        object.Serialize(ar);
        ar.Close();
    }
    std::vector<BYTE> vecBytes(file.GetLength());
    file.SeekToBegin();
    file.Read(vecBytes.data(), static_cast<UINT>(vecBytes.size()));
    return vecBytes;
}

void LoadFromBytes(CObject& object, std::vector<BYTE> vecBytes)
{
    CMemFile file(vecBytes.data(), static_cast<UINT>(vecBytes.size()));
    CArchive ar(&file, CArchive::load);
    object.Serialize(ar);
}

std::vector<BYTE> CountBytes(std::initializer_list<BYTE> bytes)
{
    return std::vector<BYTE>(bytes);
}

TEST(CArraySize, GrowingZeroFillsAndKeepsWhatWasThere)
{
    CBlockArray blocks;
    blocks.SetSize(1024);
    ASSERT_EQ(blocks.GetSize(), 1024);
    EXPECT_EQ(blocks[1023].dwOffset, 0u);
    blocks[0] = tag_TESTBLOCK{36, 160, 1000};
    blocks.SetSize(3000, 1024);
    EXPECT_EQ(blocks[0].dwFrames, 160u);
    EXPECT_EQ(blocks[2999].dwTimeStamp, 0u);
    blocks.SetSize(10);
    blocks.SetSize(20);
    EXPECT_EQ(blocks[15].dwFrames, 0u);
    blocks.SetSize(-1);
    EXPECT_EQ(blocks.GetSize(), 20);
    blocks.FreeExtra();
    EXPECT_EQ(blocks[0].dwOffset, 36u);
    blocks.SetSize(0);
    EXPECT_EQ(blocks.GetSize(), 0);
    EXPECT_EQ(blocks.GetData(), nullptr);
}

TEST(CArraySize, SetAtGrowFillsTheGapWithZeros)
{
    CDWordArray dates;
    dates.SetAtGrow(3, 1014937200);
    ASSERT_EQ(dates.GetSize(), 4);
    EXPECT_EQ(dates[0], 0u);
    EXPECT_EQ(dates[3], 1014937200u);
    dates.SetAtGrow(1, 7);
    EXPECT_EQ(dates.GetSize(), 4);
    EXPECT_EQ(dates[1], 7u);
    dates.SetAtGrow(-1, 9);
    EXPECT_EQ(dates.GetSize(), 4);
    EXPECT_EQ(dates.Add(11), 4);
    EXPECT_EQ(dates.GetUpperBound(), 4);
}

TEST(CArraySize, AddingAnElementOfTheArrayItselfSurvivesTheGrowth)
{
    CBlockArray blocks;
    blocks.Add(blocks.ElementAt(0));
    blocks[0] = tag_TESTBLOCK{1, 2, 3};
    for (int i = 0; i < 100; ++i)
        blocks.Add(blocks[0]);
    EXPECT_EQ(blocks.GetSize(), 101);
    EXPECT_EQ(blocks[100].dwTimeStamp, 3u);
}

TEST(CArrayIndex, OutOfRangeReadsZeroAndWritesNowhere)
{
    CDWordArray dates;
    dates.Add(5);
    dates[1] = 99;
    dates.ElementAt(-1) = 99;
    dates.SetAt(7, 99);
    EXPECT_EQ(dates.GetSize(), 1);
    EXPECT_EQ(dates.GetAt(1), 0u);
    EXPECT_EQ(dates.GetAt(-1), 0u);
    EXPECT_EQ(dates[1], 0u);
    const CDWordArray& datesConst = dates;
    EXPECT_EQ(datesConst[-5], 0u);
    EXPECT_EQ(datesConst.ElementAt(0), 5u);
}

TEST(CArrayEdit, RemoveInsertAndCopy)
{
    CDWordArray dates;
    for (DWORD dw = 0; dw < 6; ++dw)
        dates.Add(dw * 10);
    dates.RemoveAt(1);
    dates.RemoveAt(3, 100);
    ASSERT_EQ(dates.GetSize(), 3);
    EXPECT_EQ(dates[0], 0u);
    EXPECT_EQ(dates[1], 20u);
    EXPECT_EQ(dates[2], 30u);
    dates.RemoveAt(3);
    dates.RemoveAt(-1);
    dates.RemoveAt(0, 0);
    EXPECT_EQ(dates.GetSize(), 3);

    dates.InsertAt(1, 15, 2);
    dates.InsertAt(6, 77);
    ASSERT_EQ(dates.GetSize(), 7);
    EXPECT_EQ(dates[1], 15u);
    EXPECT_EQ(dates[2], 15u);
    EXPECT_EQ(dates[3], 20u);
    EXPECT_EQ(dates[5], 0u);
    EXPECT_EQ(dates[6], 77u);
    dates.InsertAt(-1, 1);
    EXPECT_EQ(dates.GetSize(), 7);

    CDWordArray copy;
    copy.Add(1234);
    copy.Copy(dates);
    EXPECT_EQ(copy.GetSize(), 7);
    EXPECT_EQ(std::memcmp(copy.GetData(), dates.GetData(), 7 * sizeof(DWORD)), 0);
    copy.Copy(copy);
    EXPECT_EQ(copy.GetSize(), 7);
    EXPECT_EQ(copy.Append(copy), 7);
    EXPECT_EQ(copy.GetSize(), 14);
    EXPECT_EQ(copy[13], 77u);
    copy.RemoveAll();
    EXPECT_EQ(copy.GetSize(), 0);
}

TEST(CArrayArchive, CountBelow65535TakesTwoBytesAndLargerOnesAnEscapeAndFour)
{
    struct Form {
        int nSize;
        std::vector<BYTE> vecCount;
    };
    const Form aForms[] = {{65534, {0xFE, 0xFF}}, {65535, {0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00}}};
    for (const Form& form : aForms) {
        SCOPED_TRACE(form.nSize);
        CDWordArray values;
        values.SetSize(form.nSize);
        values[0] = 1;
        values[form.nSize - 1] = 0x11223344;
        std::vector<BYTE> vecBytes = StoreToBytes(values);
        const auto nCount = static_cast<std::ptrdiff_t>(form.vecCount.size());
        ASSERT_EQ(vecBytes.size(), form.vecCount.size() + static_cast<std::size_t>(form.nSize) * 4u);
        std::vector<BYTE> vecHead = form.vecCount;
        vecHead.insert(vecHead.end(), {0x01, 0x00, 0x00, 0x00});
        EXPECT_EQ(std::vector<BYTE>(vecBytes.begin(), vecBytes.begin() + nCount + 4), vecHead);
        EXPECT_EQ(std::vector<BYTE>(vecBytes.end() - 4, vecBytes.end()), CountBytes({0x44, 0x33, 0x22, 0x11}));

        CDWordArray loaded;
        loaded.Add(42);
        LoadFromBytes(loaded, vecBytes);
        ASSERT_EQ(loaded.GetSize(), form.nSize);
        EXPECT_EQ(loaded[0], 1u);
        EXPECT_EQ(loaded[form.nSize - 1], 0x11223344u);
    }
}

TEST(CArrayArchive, RecordsRoundTripAsRawLittleEndianBytes)
{
    CBlockArray blocks;
    tag_TESTBLOCK block{36, 160, 0x01020304};
    blocks.Add(block);
    tag_TESTBLOCK endBlock{0, 0, 0};
    blocks.Add(endBlock);
    std::vector<BYTE> vecBytes = StoreToBytes(blocks);
    ASSERT_EQ(vecBytes.size(), 2u + 24u);
    EXPECT_EQ(std::vector<BYTE>(vecBytes.begin(), vecBytes.begin() + 14),
              CountBytes({0x02, 0x00, 36, 0, 0, 0, 160, 0, 0, 0, 0x04, 0x03, 0x02, 0x01}));
    CBlockArray loaded;
    LoadFromBytes(loaded, vecBytes);
    ASSERT_EQ(loaded.GetSize(), 2);
    EXPECT_EQ(loaded[0].dwTimeStamp, 0x01020304u);

    CDWordArray empty;
    EXPECT_EQ(StoreToBytes(empty), CountBytes({0x00, 0x00}));
}

TEST(CArrayArchive, ShortDataThrowsEndOfFileAndKeepsTheWholeElements)
{
    CDWordArray values;
    values.SetSize(10);
    values[8] = 8;
    std::vector<BYTE> vecBytes = StoreToBytes(values);
    vecBytes.erase(vecBytes.end() - 6, vecBytes.end());
    CDWordArray loaded;
    EXPECT_EQ(CatchCause<CArchiveException>([&] { LoadFromBytes(loaded, vecBytes); }),
              CArchiveException::endOfFile);
    EXPECT_EQ(loaded.GetSize(), 8);
}

TEST(CArrayArchive, HugeCountsWithoutDataCostNoMemoryAndNeverCrash)
{
    CBlockArray loaded;
    EXPECT_EQ(CatchCause<CArchiveException>(
                  [&] { LoadFromBytes(loaded, CountBytes({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 1, 2})); }),
              CArchiveException::endOfFile);
    EXPECT_EQ(loaded.GetSize(), 0);
    EXPECT_EQ(CatchCause<CArchiveException>(
                  [&] { LoadFromBytes(loaded, CountBytes({0xFF, 0xFF, 0x00, 0x00, 0x00, 0x80})); }),
              CArchiveException::badIndex);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { LoadFromBytes(loaded, CountBytes({0x05})); }),
              CArchiveException::endOfFile);
}

} // namespace
