#include "platform/CArchive.h"

#include "platform/FileTestSupport.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <functional>
#include <utility>

namespace {

using Bytes = std::vector<unsigned char>;

class CArchiveTest : public ::testing::Test {
protected:
    std::string Path() const { return m_dir / "archive"; }

    // Stores through an archive into a fresh file and returns the file's bytes.
    template <typename TFunction> Bytes Store(TFunction fnWrite)
    {
        CFile file;
        EXPECT_TRUE(file.Open(Path().c_str(), CFile::modeCreate | CFile::modeWrite));
        CArchive ar(&file, CArchive::store);
        fnWrite(ar);
        ar.Close();
        file.Close();
        return ReadWholeFile(Path());
    }

    void WriteBytes(const Bytes& aBytes)
    {
        WriteWholeFile(Path(), std::string(aBytes.begin(), aBytes.end()));
    }

    ScopedTempDir m_dir;
};

// One disk record of the database file, in the order that file keeps.
struct DiskRecord {
    DWORD dwReservedSpace;
    LONG bRecycle;
    CString strBaseDir;
    CString strDbsName;
    LONG bAlarm;
    CString strAlarmSound;
};

CArchive& operator<<(CArchive& ar, const DiskRecord& record)
{
    ar << record.dwReservedSpace << record.bRecycle << record.strBaseDir << record.strDbsName << record.bAlarm
       << record.strAlarmSound;
    return ar;
}

CArchive& operator>>(CArchive& ar, DiskRecord& record)
{
    ar >> record.dwReservedSpace >> record.bRecycle >> record.strBaseDir >> record.strDbsName >> record.bAlarm >>
        record.strAlarmSound;
    return ar;
}

Bytes PrefixOf(const Bytes& aBytes, std::size_t nCount)
{
    return Bytes(aBytes.begin(), aBytes.begin() + static_cast<std::ptrdiff_t>(std::min(nCount, aBytes.size())));
}

} // namespace

TEST_F(CArchiveTest, WritesTheOneDiskDatabaseInItsThirtySixBytes)
{
    DiskRecord record{500, 1, "c:\\vdb\\", "ZnDatabase", 0, ""};
    Bytes aBytes = Store([&](CArchive& ar) { ar << DWORD{1} << record; });
    Bytes aExpected = {0x01, 0x00, 0x00, 0x00, 0xF4, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x07};
    for (char ch : std::string("c:\\vdb\\"))
        aExpected.push_back(static_cast<unsigned char>(ch));
    aExpected.push_back(0x0A);
    for (char ch : std::string("ZnDatabase"))
        aExpected.push_back(static_cast<unsigned char>(ch));
    aExpected.insert(aExpected.end(), {0x00, 0x00, 0x00, 0x00, 0x00});
    ASSERT_EQ(aExpected.size(), 36u);
    EXPECT_EQ(aBytes, aExpected);

    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    CArchive ar(&file, CArchive::load);
    DWORD dwCount = 0;
    DiskRecord loaded{};
    ar >> dwCount >> loaded;
    EXPECT_EQ(dwCount, 1u);
    EXPECT_EQ(loaded.dwReservedSpace, 500u);
    EXPECT_EQ(loaded.bRecycle, 1);
    EXPECT_STREQ(loaded.strBaseDir, "c:\\vdb\\");
    EXPECT_STREQ(loaded.strDbsName, "ZnDatabase");
    EXPECT_TRUE(loaded.strAlarmSound.IsEmpty());
}

TEST_F(CArchiveTest, StringLengthTakesOneThreeOrSevenBytes)
{
    struct Form {
        int nLength;
        Bytes aPrefix;
    };
    const Form aForms[] = {
        {0, {0x00}},
        {254, {0xFE}},
        {255, {0xFF, 0xFF, 0x00}},
        {65533, {0xFF, 0xFD, 0xFF}},
        {65534, {0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0x00}},
        {70000, {0xFF, 0xFF, 0xFF, 0x70, 0x11, 0x01, 0x00}},
    };
    for (const Form& form : aForms) {
        CString strText(std::string(static_cast<std::size_t>(form.nLength), 'q'));
        Bytes aBytes = Store([&](CArchive& ar) { ar << strText; });
        EXPECT_EQ(aBytes.size(), form.aPrefix.size() + static_cast<std::size_t>(form.nLength)) << form.nLength;
        EXPECT_EQ(PrefixOf(aBytes, form.aPrefix.size()), form.aPrefix) << form.nLength;

        CFile file;
        ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
        CArchive ar(&file, CArchive::load);
        CString strLoaded("old");
        ar >> strLoaded;
        EXPECT_EQ(strLoaded.GetLength(), form.nLength);
        EXPECT_TRUE(strLoaded == strText);
    }
}

TEST_F(CArchiveTest, NumbersAreLittleEndianInTheirWidths)
{
    Bytes aBytes = Store([](CArchive& ar) {
        ar << BYTE{0xAB} << WORD{0x1234} << LONG{-2} << DWORD{0xA1B2C3D4} << 7 << 1.5f << 'z' << short{-3}
           << -5L << 0x01020304UL << -2.5;
    });
    Bytes aExpected = {0xAB, 0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 0xD4, 0xC3, 0xB2, 0xA1, 0x07, 0x00,
                       0x00, 0x00, 0x00, 0x00, 0xC0, 0x3F, 0x7A, 0xFD, 0xFF, 0xFB, 0xFF, 0xFF, 0xFF,
                       0x04, 0x03, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xC0};
    EXPECT_EQ(aBytes, aExpected);

    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    CArchive ar(&file, CArchive::load);
    BYTE by = 0;
    WORD w = 0;
    LONG l = 0;
    DWORD dw = 0;
    int n = 0;
    float f = 0;
    char ch = 0;
    short sh = 0;
    long lLong = 0;
    unsigned long dwLong = 0;
    double d = 0;
    ar >> by >> w >> l >> dw >> n >> f >> ch >> sh >> lLong >> dwLong >> d;
    EXPECT_EQ(by, 0xAB);
    EXPECT_EQ(w, 0x1234);
    EXPECT_EQ(l, -2);
    EXPECT_EQ(dw, 0xA1B2C3D4u);
    EXPECT_EQ(n, 7);
    EXPECT_EQ(f, 1.5f);
    EXPECT_EQ(ch, 'z');
    EXPECT_EQ(sh, -3);
    EXPECT_EQ(lLong, -5L);
    EXPECT_EQ(dwLong, 0x01020304UL);
    EXPECT_EQ(d, -2.5);
}

TEST_F(CArchiveTest, CountsTakeTwoBytesOrAnEscapeAndFour)
{
    Bytes aBytes = Store([](CArchive& ar) {
        ar.WriteCount(0xFFFE);
        ar.WriteCount(0xFFFF);
        ar.WriteCount(0x12345678);
    });
    Bytes aExpected = {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(aBytes, aExpected);

    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    CArchive ar(&file, CArchive::load);
    EXPECT_EQ(ar.ReadCount(), 0xFFFEu);
    EXPECT_EQ(ar.ReadCount(), 0xFFFFu);
    EXPECT_EQ(ar.ReadCount(), 0x12345678u);
}

TEST_F(CArchiveTest, DataLongerThanTheBufferSurvivesTheRoundTrip)
{
    std::string strLong(5000, 'x');
    Bytes aBytes = Store([&](CArchive& ar) {
        for (DWORD i = 0; i < 3000; ++i)
            ar << i;
        ar.Write(strLong.data(), static_cast<UINT>(strLong.size()));
        ar << CString("tail");
    });
    EXPECT_EQ(aBytes.size(), 3000u * 4 + 5000 + 5);

    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    CArchive ar(&file, CArchive::load);
    for (DWORD i = 0; i < 3000; ++i) {
        DWORD dw = 0;
        ar >> dw;
        ASSERT_EQ(dw, i);
    }
    std::string strLoaded(5000, '\0');
    EXPECT_EQ(ar.Read(strLoaded.data(), 5000), 5000u);
    EXPECT_EQ(strLoaded, strLong);
    CString strTail;
    ar >> strTail;
    EXPECT_STREQ(strTail, "tail");
}

TEST_F(CArchiveTest, FieldsThatStraddleASmallCallersBufferArriveWhole)
{
    BYTE aStoreBuffer[16];
    // The archive is never closed: the last byte reaches the file only through its destructor.
    {
        CFile file;
        ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeCreate | CFile::modeWrite));
        CArchive ar(&file, CArchive::store, sizeof(aStoreBuffer), aStoreBuffer);
        for (DWORD i = 0; i < 50; ++i)
            ar << static_cast<BYTE>(i) << (i * 0x01010101u) << CString(std::string(i, 'a'));
        ar << BYTE{0x5A};
    }
    BYTE aLoadBuffer[16];
    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    CArchive ar(&file, CArchive::load, sizeof(aLoadBuffer), aLoadBuffer);
    for (DWORD i = 0; i < 50; ++i) {
        BYTE by = 0;
        DWORD dw = 0;
        CString strText;
        ar >> by >> dw >> strText;
        ASSERT_EQ(by, i);
        ASSERT_EQ(dw, i * 0x01010101u);
        ASSERT_EQ(strText.GetLength(), static_cast<int>(i));
    }
    BYTE by = 0;
    ar >> by;
    EXPECT_EQ(by, 0x5A);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { ar >> by; }), CArchiveException::endOfFile);
}

TEST_F(CArchiveTest, AnArchiveToldNotToFlushOnDeleteDropsWhatItBuffered)
{
    Bytes aBytes = Store([](CArchive& ar) {
        CArchive dropping(ar.GetFile(), CArchive::store | CArchive::bNoFlushOnDelete);
        dropping << DWORD{1};
    });
    EXPECT_TRUE(aBytes.empty());
}

TEST_F(CArchiveTest, AShortReadOfANumberOrStringThrowsEndOfFile)
{
    DWORD dw = 0;
    CString strText("kept");
    CString strHuge;
    const std::pair<Bytes, std::function<void(CArchive&)>> aCases[] = {
        {{0x01, 0x02, 0x03}, [&](CArchive& ar) { ar >> dw; }},
        {{0x05, 'a', 'b'}, [&](CArchive& ar) { ar >> strText; }},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 'a'}, [&](CArchive& ar) { ar >> strHuge; }},
    };
    for (const auto& [aBytes, fnRead] : aCases) {
        SCOPED_TRACE(aBytes.size());
        WriteBytes(aBytes);
        CFile file;
        ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
        CArchive ar(&file, CArchive::load);
        EXPECT_EQ(CatchCause<CArchiveException>([&] { fnRead(ar); }), CArchiveException::endOfFile);
    }
    EXPECT_STREQ(strText, "kept");
}

// Flush and Close hand the file back at the first byte not yet read, so that the
// file, or the same archive, goes on from there.
TEST_F(CArchiveTest, FlushReturnsTheUnreadBytesAndRawReadGivesFewerAtTheEnd)
{
    WriteBytes({1, 2, 3, 4, 5, 6});
    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeRead));
    {
        CArchive ar(&file, CArchive::load);
        BYTE by = 0;
        ar >> by;
        ar.Flush();
        EXPECT_EQ(file.GetPosition(), 1u);
        ar >> by;
        EXPECT_EQ(by, 2);
        ar >> by >> by >> by;
        ar.Close();
    }
    EXPECT_EQ(file.GetPosition(), 5u);
    CArchive ar(&file, CArchive::load);
    BYTE aBytes[10] = {};
    EXPECT_EQ(ar.Read(nullptr, 4), 0u);
    EXPECT_EQ(ar.Read(aBytes, sizeof(aBytes)), 1u);
    EXPECT_EQ(aBytes[0], 6);
    EXPECT_EQ(ar.Read(aBytes, sizeof(aBytes)), 0u);
}

TEST_F(CArchiveTest, WrongDirectionsAndAMissingFileThrowInsteadOfCrashing)
{
    CFile file;
    ASSERT_TRUE(file.Open(Path().c_str(), CFile::modeCreate | CFile::modeWrite));
    CArchive storing(&file, CArchive::store);
    DWORD dw = 0;
    EXPECT_EQ(CatchCause<CArchiveException>([&] { storing >> dw; }), CArchiveException::writeOnly);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { storing.Read(&dw, 4); }), CArchiveException::writeOnly);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { storing.Write(nullptr, 3); }), CArchiveException::generic);
    EXPECT_TRUE(storing.IsStoring());

    CArchive loading(&file, CArchive::load);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { loading << dw; }), CArchiveException::readOnly);
    EXPECT_TRUE(loading.IsLoading());
    loading.Abort();

    CArchive orphan(nullptr, CArchive::load, 0);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { orphan >> dw; }), CArchiveException::generic);
    EXPECT_EQ(CatchCause<CArchiveException>([&] { orphan.ReadCount(); }), CArchiveException::generic);
}

TEST_F(CArchiveTest, AFullDiskReachesTheWriterAtClose)
{
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "/dev/full is not available";
    CFile file;
    ASSERT_TRUE(file.Open("/dev/full", CFile::modeWrite | CFile::modeNoTruncate));
    CArchive ar(&file, CArchive::store);
    ar << DWORD{1} << CString("text");
    EXPECT_EQ(CatchCause<CFileException>([&] { ar.Close(); }), CFileException::diskFull);
}
