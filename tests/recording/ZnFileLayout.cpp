// The layout unit on its own: a head with its names parses from any prefix of a file's
// bytes only once the prefix holds every field of its version, and reads the same from
// an open file.
#include "RecordingTestSupport.h"

#include "recording/ZnFileLayout.h"

namespace {

TEST(ZnFileLayout, HeadParsesOnceEveryFieldOfItsVersionIsThere)
{
    TempDir dir;
    for (WORD wVersion : {0x00FF, 0x0100, 0x0101, 0x1000}) {
        SCOPED_TRACE(wVersion);
        HandBuiltRecording recording;
        recording.wVersion = wVersion;
        recording.nGmt = 13;
        recording.dwPadding = 5;
        recording.blocks = {MakeBlockFrames({1}, 0)};
        const std::vector<BYTE> bytes = recording.Build();
        const std::size_t nHeadEnd = 36 + 1 + 3 + (wVersion >= 0x0100 ? 4 + 8 : 0) + (wVersion >= 0x0101 ? 4 : 0);

        tag_ZNHEADWITHNAMES head{};
        for (std::size_t nLength = 0; nLength < nHeadEnd; ++nLength)
            ASSERT_EQ(ParseFileHead(std::span(bytes.data(), nLength), head), ZNHEAD_SHORT) << nLength;
        ASSERT_EQ(ParseFileHead(std::span(bytes.data(), nHeadEnd), head), ZNHEAD_WHOLE);
        EXPECT_EQ(head.Header.wVersion, wVersion);
        EXPECT_EQ(head.Header.dwDataOffset, nHeadEnd + 5);
        EXPECT_EQ(head.strBoardName, "b");
        EXPECT_EQ(head.strCameraName, "cam");
        EXPECT_EQ(head.strHostName, wVersion >= 0x0100 ? "hostname" : "");
        EXPECT_EQ(head.nGmt, wVersion >= 0x0101 ? 13 : 0);

        WriteFileBytes(dir.Path("head.zn"), bytes, bytes.size());
        CFile file;
        ASSERT_TRUE(file.Open(dir.Path("head.zn").c_str(), CFile::modeRead));
        tag_ZNHEADWITHNAMES read{};
        file.Seek(7, CFile::begin);
        ASSERT_EQ(ReadFileHead(file, read), ZNHEAD_WHOLE);
        EXPECT_EQ(file.GetPosition(), nHeadEnd);
        EXPECT_EQ(read.strHostName, head.strHostName);
        // A head of the versions that are written takes exactly the place it says.
        if (wVersion >= 0x0101) {
            EXPECT_EQ(GetDataOffset(read), nHeadEnd);
        }
    }
}

TEST(ZnFileLayout, ForeignHeadsAndLongNamesAreTold)
{
    HandBuiltRecording recording;
    recording.strHost.assign(1001, 'h');
    const std::vector<BYTE> good = recording.Build();
    tag_ZNHEADWITHNAMES head{};
    EXPECT_EQ(ParseFileHead(good, head), ZNHEAD_FOREIGN);
    EXPECT_EQ(ParseFileHead(good, head, 1001), ZNHEAD_WHOLE);
    // The layout needs only magic and version; the rest of the head test is the reader's.
    std::vector<BYTE> bytes = good;
    bytes[7] = 161;
    EXPECT_EQ(ParseFileHead(bytes, head, 1001), ZNHEAD_WHOLE);
    tag_ZNFILEHEADER header{};
    LoadFileHeader(bytes.data(), header);
    EXPECT_FALSE(IsRecordingHeader(header));
    for (std::size_t nOffset : {0, 1, 3}) {
        bytes = good;
        bytes[nOffset] = 0x11;
        EXPECT_EQ(ParseFileHead(bytes, head, 1001), ZNHEAD_FOREIGN) << nOffset;
    }
}

} // namespace
