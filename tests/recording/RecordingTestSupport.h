// Shared by the recording tests: a temporary directory, frames with known contents, and
// writers and readers of whole recordings and of raw file bytes.
#pragma once

#include "platform/CException.h"
#include "platform/WinTypes.h"
#include "recording/CZnFile.h"
#include "recording/FileRecords.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Where tests that look at a simulated disk keep their files: a RAM file system where
// there is one, since real syncs there cost nothing.
inline std::filesystem::path GetSimulationBase()
{
    return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
}

// A fresh directory under the system's temporary directory (or another base), removed
// with its contents.
class TempDir {
public:
    explicit TempDir(const std::filesystem::path& base = std::filesystem::temp_directory_path())
    {
        std::string strTemplate = (base / "zndvr-rec-XXXXXX").string();
        char* pPath = mkdtemp(strTemplate.data());
        EXPECT_NE(pPath, nullptr);
        m_path = strTemplate;
    }
    ~TempDir() { std::filesystem::remove_all(m_path); }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string Path(const std::string& strName) const { return (m_path / strName).string(); }

private:
    std::filesystem::path m_path;
};

// Counts the failures reported while it lives, and shows none of them.
class ReportCounter {
public:
    ReportCounter() : m_pfnOld(SetExceptionReporter([](LPCSTR) { ++Count(); })) { Count() = 0; }
    ~ReportCounter() { SetExceptionReporter(m_pfnOld); }
    ReportCounter(const ReportCounter&) = delete;
    ReportCounter& operator=(const ReportCounter&) = delete;

    static int& Count()
    {
        static int s_nReports = 0;
        return s_nReports;
    }

private:
    EXCEPTIONREPORTER m_pfnOld;
};

// A frame as the test wants it stored: fixed fields and its own copies of the data.
struct TestFrame {
    WORD wFrameType = ZNFRAME_I;
    WORD wFlags = 0;
    DWORD dwTimeStamp = 0;
    std::vector<BYTE> video;
    std::vector<BYTE> sound;

    DWORD RecordSize() const
    {
        const bool bSound = (wFlags & ZNFRAME_SOUND) != 0;
        return 12 + (bSound ? 4 : 0) + static_cast<DWORD>(video.size()) +
               (bSound ? static_cast<DWORD>(sound.size()) : 0);
    }
};

// Bytes that depend on the frame and the place, so that a frame read from the wrong place
// or a byte out of order shows.
inline std::vector<BYTE> PatternBytes(std::size_t nSize, DWORD dwSeed)
{
    std::vector<BYTE> bytes(nSize);
    DWORD dwState = dwSeed * 2654435761u + 1;
    for (std::size_t i = 0; i < nSize; ++i) {
        dwState = dwState * 1103515245u + 12345u;
        bytes[i] = static_cast<BYTE>(dwState >> 16);
    }
    return bytes;
}

// Frame nIndex of the endless test sequence: a key frame every 160, a signal loss now and
// then, sound on every third frame and a sound flag with no sound on every seventh.
inline TestFrame MakeSequenceFrame(DWORD nIndex, DWORD dwSeed = 1, DWORD dwMaxVideo = 3000)
{
    TestFrame frame;
    frame.wFrameType = nIndex % 160 == 0 ? ZNFRAME_I : ZNFRAME_P;
    frame.dwTimeStamp = 0xFFFFF000u + nIndex * 40;
    const DWORD dwMix = (nIndex + 1) * 7919u + dwSeed * 104729u;
    if (nIndex % 53 == 17) {
        frame.wFlags |= ZNFRAME_LOST;
    } else {
        frame.video = PatternBytes(dwMix % dwMaxVideo + 1, dwMix);
    }
    if (nIndex % 11 == 5)
        frame.wFlags |= ZNFRAME_ALARM;
    if (nIndex % 3 == 1) {
        frame.wFlags |= ZNFRAME_SOUND;
        frame.sound = PatternBytes(dwMix % 720 + 1, dwMix + 1);
    } else if (nIndex % 7 == 3) {
        frame.wFlags |= ZNFRAME_SOUND;
    }
    return frame;
}

// Frames of the test sequence from nFirstIndex on, in blocks of the given sizes: each
// block's first frame is a key frame, the others are predicted.
inline std::vector<TestFrame> MakeBlockFrames(const std::vector<int>& blockSizes, DWORD nFirstIndex,
                                              DWORD dwSeed = 1, DWORD dwMaxVideo = 3000)
{
    std::vector<TestFrame> frames;
    DWORD nIndex = nFirstIndex;
    for (int nSize : blockSizes) {
        for (int i = 0; i < nSize; ++i, ++nIndex) {
            frames.push_back(MakeSequenceFrame(nIndex, dwSeed, dwMaxVideo));
            frames.back().wFrameType = i == 0 ? ZNFRAME_I : ZNFRAME_P;
        }
    }
    return frames;
}

// The record points into the frame's own buffers, which the writer only reads.
inline int WriteTestFrame(CZnFile& file, const TestFrame& frame)
{
    tag_ZNFRAMEDATA data{};
    data.wFrameType = frame.wFrameType;
    data.wFlags = frame.wFlags;
    data.dwTimeStamp = frame.dwTimeStamp;
    data.dwVideoLen = static_cast<DWORD>(frame.video.size());
    data.pVideo = frame.video.empty() ? nullptr : const_cast<BYTE*>(frame.video.data());
    data.dwSoundLen = static_cast<DWORD>(frame.sound.size());
    data.pSound = frame.sound.empty() ? nullptr : const_cast<BYTE*>(frame.sound.data());
    return file.WriteOneFrame(&data);
}

inline tag_CAMERAINFO MakeCameraInfo(int nWidth = 320, int nHeight = 240,
                                     tag_VIDEOSTANDARD nStandard = STANDARD_NTSC)
{
    return tag_CAMERAINFO{1, 2, nWidth, nHeight, nStandard};
}

// Writes the frames into a new recording of 320 x 240 and closes it; every frame must be
// taken.
inline void WriteRecording(const std::string& strPath, std::vector<TestFrame>& frames,
                           DWORD dwRevision = STREAM_REVISION_20020114,
                           tag_CAMERAINFO info = MakeCameraInfo())
{
    CZnFile file("camera", "board", "host");
    ASSERT_EQ(file.Open(strPath.c_str(), &info, dwRevision, ZNFILE_WRITE), 1);
    for (TestFrame& frame : frames)
        ASSERT_EQ(WriteTestFrame(file, frame), 1);
    file.Close();
}

// Buffers of exactly the capacities that a file's frame size promises, so that the
// address sanitizer catches a write past them.
class FrameBuffers {
public:
    explicit FrameBuffers(const CZnFile& file)
        : m_video(static_cast<std::size_t>(file.GetVideoWidth()) * file.GetVideoHeight() * 2)
        , m_sound(ZNFRAME_SOUND_BUFFER_SIZE)
    {
        m_frame.pVideo = m_video.data();
        m_frame.pSound = m_sound.data();
    }

    tag_ZNFRAMEDATA* Frame() { return &m_frame; }

private:
    std::vector<BYTE> m_video;
    std::vector<BYTE> m_sound;
    tag_ZNFRAMEDATA m_frame{};
};

inline ::testing::AssertionResult FrameEquals(const tag_ZNFRAMEDATA& read, const TestFrame& expected)
{
    if (read.wFrameType != expected.wFrameType || read.wFlags != expected.wFlags ||
        read.dwTimeStamp != expected.dwTimeStamp || read.dwVideoLen != expected.video.size())
        return ::testing::AssertionFailure() << "fixed fields differ: stamp " << read.dwTimeStamp
                                             << " expected " << expected.dwTimeStamp;
    if (!std::equal(expected.video.begin(), expected.video.end(), read.pVideo))
        return ::testing::AssertionFailure() << "video differs";
    if ((expected.wFlags & ZNFRAME_SOUND) != 0) {
        if (read.dwSoundLen != expected.sound.size() ||
            !std::equal(expected.sound.begin(), expected.sound.end(), read.pSound))
            return ::testing::AssertionFailure() << "sound differs";
    }
    return ::testing::AssertionSuccess();
}

// Reads on from the file's position: exactly nCount frames equal to those from pFirst on,
// then, unless bThenEnd is false, the end.
inline void ExpectFramesThenEnd(CZnFile& file, const TestFrame* pFirst, std::size_t nCount,
                                bool bThenEnd = true)
{
    FrameBuffers buffers(file);
    for (std::size_t i = 0; i < nCount; ++i) {
        ASSERT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 1) << "frame " << i;
        EXPECT_TRUE(FrameEquals(*buffers.Frame(), pFirst[i])) << "frame " << i;
    }
    if (bThenEnd) {
        EXPECT_EQ(file.ReadOneFrame(buffers.Frame(), -1, 0), 0);
    }
}

inline void ExpectFramesThenEnd(CZnFile& file, const std::vector<TestFrame>& frames)
{
    ExpectFramesThenEnd(file, frames.data(), frames.size());
}

inline void ExpectFilePos(CZnFile& file, int nBlock, int nFrame)
{
    int nReadBlock = -1;
    int nReadFrame = -1;
    EXPECT_EQ(file.GetFilePos(nReadBlock, nReadFrame), 1);
    EXPECT_EQ(nReadBlock, nBlock);
    EXPECT_EQ(nReadFrame, nFrame);
}

inline int OpenToWrite(CZnFile& file, const std::string& strPath)
{
    tag_CAMERAINFO info = MakeCameraInfo();
    return file.Open(strPath.c_str(), &info, STREAM_REVISION_20020114, ZNFILE_WRITE);
}

inline int OpenToRead(CZnFile& file, const std::string& strPath)
{
    return file.Open(strPath.c_str(), nullptr, 0, ZNFILE_READ);
}

inline std::vector<BYTE> ReadFileBytes(const std::string& strPath)
{
    std::ifstream stream(strPath, std::ios::binary);
    return std::vector<BYTE>((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
}

inline void WriteFileBytes(const std::string& strPath, const std::vector<BYTE>& bytes, std::size_t nLength)
{
    std::ofstream stream(strPath, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(nLength));
}

// Little-endian fields of nBytes bytes: read at an offset, appended, or overwritten.
inline DWORD GetLe(const std::vector<BYTE>& bytes, std::size_t nOffset, int nBytes)
{
    DWORD dwValue = 0;
    for (int i = nBytes - 1; i >= 0; --i)
        dwValue = (dwValue << 8) | bytes[nOffset + static_cast<std::size_t>(i)];
    return dwValue;
}
inline DWORD GetLe32(const std::vector<BYTE>& bytes, std::size_t nOffset) { return GetLe(bytes, nOffset, 4); }
inline WORD GetLe16(const std::vector<BYTE>& bytes, std::size_t nOffset)
{
    return static_cast<WORD>(GetLe(bytes, nOffset, 2));
}
inline void PutLe16(std::vector<BYTE>& bytes, WORD wValue) { bytes.insert(bytes.end(), {BYTE(wValue), BYTE(wValue >> 8)}); }
inline void PutLe32(std::vector<BYTE>& bytes, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<BYTE>(dwValue >> (8 * i)));
}
inline void SetLe32(std::vector<BYTE>& bytes, std::size_t nOffset, DWORD dwValue)
{
    for (int i = 0; i < 4; ++i)
        bytes[nOffset + static_cast<std::size_t>(i)] = static_cast<BYTE>(dwValue >> (8 * i));
}

// Builds a recording byte by byte, independently of CZnFile: the head of the given
// version with the fields that version has, nPadding unknown bytes before the data, the
// blocks with their links, and the end block.
struct HandBuiltRecording {
    WORD wVersion = ZNFILE_VERSION_GMT;
    BYTE byFrameSize = 0;           // 160 x 112
    std::string strBoard = "b";
    std::string strCamera = "cam";
    std::string strHost = "hostname";
    DWORD dwHostLenField = 0xFFFFFFFF;  // the length written; by default that of strHost
    LONG nGmt = 7;
    DWORD dwPadding = 0;
    std::vector<std::vector<TestFrame>> blocks;

    std::vector<BYTE> Build() const
    {
        std::vector<BYTE> bytes{0x5A, 0x4E};
        PutLe16(bytes, wVersion);
        bytes.insert(bytes.end(), {byFrameSize, 3, 4, 160});
        PutLe32(bytes, 1000000);
        PutLe32(bytes, 1000100);
        PutLe32(bytes, 5000);
        PutLe16(bytes, static_cast<WORD>(strBoard.size()));
        PutLe16(bytes, static_cast<WORD>(strCamera.size()));
        bytes.insert(bytes.end(), {0, 0, 0, 0});
        const std::size_t nDataOffsetField = bytes.size();
        PutLe32(bytes, 0);
        PutLe32(bytes, 0);
        bytes.insert(bytes.end(), strBoard.begin(), strBoard.end());
        bytes.insert(bytes.end(), strCamera.begin(), strCamera.end());
        if (wVersion >= ZNFILE_VERSION_HOST_NAME) {
            PutLe32(bytes, dwHostLenField != 0xFFFFFFFF ? dwHostLenField : static_cast<DWORD>(strHost.size()));
            bytes.insert(bytes.end(), strHost.begin(), strHost.end());
        }
        if (wVersion >= ZNFILE_VERSION_GMT)
            PutLe32(bytes, static_cast<DWORD>(nGmt));
        bytes.insert(bytes.end(), dwPadding, 0xEE);
        SetLe32(bytes, nDataOffsetField, static_cast<DWORD>(bytes.size()));

        DWORD dwPrev = 0xFFFFFFFF;
        for (const std::vector<TestFrame>& block : blocks) {
            const DWORD dwRecord = static_cast<DWORD>(bytes.size());
            DWORD dwData = 0;
            for (const TestFrame& frame : block)
                dwData += frame.RecordSize();
            PutLe32(bytes, dwPrev);
            PutLe32(bytes, dwRecord + 16 + dwData);
            PutLe16(bytes, static_cast<WORD>(block.size()));
            PutLe16(bytes, 0);
            PutLe32(bytes, block.empty() ? 0 : block.front().dwTimeStamp);
            for (const TestFrame& frame : block)
                AppendFrameRecord(bytes, frame);
            dwPrev = dwRecord;
        }
        PutLe32(bytes, dwPrev);
        PutLe32(bytes, 0xFFFFFFFF);
        PutLe32(bytes, 0);
        PutLe32(bytes, 0);
        return bytes;
    }

    static void AppendFrameRecord(std::vector<BYTE>& bytes, const TestFrame& frame)
    {
        PutLe16(bytes, frame.wFrameType);
        PutLe16(bytes, frame.wFlags);
        PutLe32(bytes, frame.dwTimeStamp);
        PutLe32(bytes, static_cast<DWORD>(frame.video.size()));
        if ((frame.wFlags & ZNFRAME_SOUND) != 0)
            PutLe32(bytes, static_cast<DWORD>(frame.sound.size()));
        bytes.insert(bytes.end(), frame.video.begin(), frame.video.end());
        if ((frame.wFlags & ZNFRAME_SOUND) != 0)
            bytes.insert(bytes.end(), frame.sound.begin(), frame.sound.end());
    }
};
