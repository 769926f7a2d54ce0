// Recordings for the tests of playback and export: flat pictures whose brightness names
// the frame, at chosen stamps, with chosen flags and sound, written by CZnFile; and the
// speech code of a tone with its reference decoding.
#pragma once

#include "recording/CZnFile.h"
#include "sound/CAdpcm.h"
#include "vocabulary/FrameSizes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <filesystem>
#include <string>
#include <vector>

namespace playback_test {

class CTempDir {
public:
    CTempDir()
    {
        std::string strTemplate = (std::filesystem::temp_directory_path() / "zndvr-play-XXXXXX").string();
        EXPECT_NE(mkdtemp(strTemplate.data()), nullptr);
        m_path = strTemplate;
    }
    ~CTempDir() { std::filesystem::remove_all(m_path); }
    std::string Path(const std::string& strName) const { return (m_path / strName).string(); }

private:
    std::filesystem::path m_path;
};

// An I picture record of one luma value throughout, with neutral chroma: every
// macroblock has no AC coefficients, only its six DC values.
inline std::vector<BYTE> MakeFlatPicture(int nWidth, int nHeight, BYTE byLuma)
{
    std::vector<BYTE> bytes;
    int nBits = 0;
    const auto put = [&](unsigned nValue, int nCount) {
        for (int b = nCount - 1; b >= 0; --b, ++nBits) {
            if (nBits % 8 == 0)
                bytes.push_back(0);
            bytes.back() = static_cast<BYTE>(bytes.back() | (((nValue >> b) & 1) << (7 - nBits % 8)));
        }
    };
    put(0, 16);
    put(0x10, 5);   // end of the start code
    put(0, 2);      // TYPE
    put(static_cast<unsigned>(nWidth), 10);
    put(static_cast<unsigned>(nHeight), 10);
    put(4, 8);      // QUANT
    put(1, 1);      // MARKER
    put(0, 12 + 16);   // padding, GROUPS 0
    for (int i = 0; i < nWidth * nHeight / 256; ++i) {
        put(0x3, 4);   // CBPY: no luma AC
        put(0, 2);     // CBPC
        for (int b = 0; b < 4; ++b)
            put(byLuma, 8);
        put(255, 8);   // chroma DC 128 travels as 255
        put(255, 8);
    }
    put(0, (16 - nBits % 16) % 16);
    return bytes;
}

// Frame i of a test recording shows luma kFirstLuma + 2i, so the blue of its first pixel
// (luma + 1 with neutral chroma) names it.
inline constexpr int kFirstLuma = 20;
inline int FrameOfPicture(const BYTE* pPicture)
{
    return (pPicture[0] - 1 - kFirstLuma) / 2;
}

struct tag_TESTFRAME {
    DWORD dwStamp = 0;
    WORD wFlags = 0;
    bool bKeyFrame = false;
    bool bOverlong = false;   // stored claiming two bytes more than a picture buffer holds
    std::vector<BYTE> video;
    std::vector<BYTE> sound;
};

// Frames at the given stamps, each a flat picture naming it; blocks start at the
// indices in keyFrames (0 always).
inline std::vector<tag_TESTFRAME> MakeFrames(const std::vector<DWORD>& stamps, const std::vector<int>& keyFrames = {0},
                                            int nWidth = 160, int nHeight = 112)
{
    std::vector<tag_TESTFRAME> frames(stamps.size());
    for (std::size_t i = 0; i < stamps.size(); ++i) {
        frames[i].dwStamp = stamps[i];
        frames[i].video = MakeFlatPicture(nWidth, nHeight, static_cast<BYTE>(kFirstLuma + 2 * i));
    }
    for (int nKey : keyFrames)
        frames[static_cast<std::size_t>(nKey)].bKeyFrame = true;
    return frames;
}

// Stamps from dwFirst, dwStep apart.
inline std::vector<DWORD> EvenStamps(std::size_t nCount, DWORD dwFirst, DWORD dwStep)
{
    std::vector<DWORD> stamps(nCount);
    for (std::size_t i = 0; i < nCount; ++i)
        stamps[i] = dwFirst + static_cast<DWORD>(i) * dwStep;
    return stamps;
}

// The writer stores no frame that a reader would refuse, so an over-long frame is written
// at the longest length, filled with kOverlongByte, and its length field made two bytes
// longer in the closed file.
inline constexpr BYTE kOverlongByte = 0xEE;

inline void StretchOverlongFrames(const std::string& strPath, std::size_t nCapacity)
{
    std::ifstream in(strPath, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    const std::vector<char> fill(nCapacity, static_cast<char>(kOverlongByte));
    auto it = bytes.begin() + 4;
    while ((it = std::search(it, bytes.end(), fill.begin(), fill.end())) != bytes.end()) {
        const std::size_t nLengthPos = static_cast<std::size_t>(it - bytes.begin()) - 4;
        const auto nClaimed = static_cast<DWORD>(nCapacity + 2);
        for (int i = 0; i < 4; ++i)
            bytes[nLengthPos + i] = static_cast<char>((nClaimed >> (8 * i)) & 0xFF);
        it += static_cast<std::ptrdiff_t>(nCapacity);
    }
    std::ofstream(strPath, std::ios::binary | std::ios::trunc).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Writes a recording of the frames; the end block gets the stamp of the clock at closing.
inline void WriteRecording(const std::string& strPath, std::vector<tag_TESTFRAME>& frames,
                           tag_FRAMESIZE nSize = FRAMESIZE_160X112, DWORD dwRevision = STREAM_REVISION_20020114)
{
    tag_CAMERAINFO info{0, 0, 0, 0, STANDARD_NTSC};
    ASSERT_TRUE(GetFrameSizePicture(nSize, info.nStandard, info.nWidth, info.nHeight));
    const std::size_t nCapacity = static_cast<std::size_t>(info.nWidth) * static_cast<std::size_t>(info.nHeight) * 2;
    CZnFile file("camera", "board", "host");
    ASSERT_EQ(file.Open(strPath.c_str(), &info, dwRevision, ZNFILE_WRITE), 1);
    bool bAnyOverlong = false;
    for (tag_TESTFRAME& frame : frames) {
        if (frame.bOverlong) {
            frame.video.assign(nCapacity, kOverlongByte);
            bAnyOverlong = true;
        }
        tag_ZNFRAMEDATA data{frame.bKeyFrame ? ZNFRAME_I : ZNFRAME_P, frame.wFlags, frame.dwStamp,
                             static_cast<DWORD>(frame.video.size()), frame.video.data(),
                             static_cast<DWORD>(frame.sound.size()), frame.sound.data()};
        ASSERT_EQ(file.WriteOneFrame(&data), 1);
    }
    file.Close();
    if (bAnyOverlong)
        StretchOverlongFrames(strPath, nCapacity);
}

// G.726 code of a tone: nBytes bytes, a whole number of groups, from one encoder.
inline std::vector<BYTE> MakeToneCode(int nBytes)
{
    CAdpcm encoder;
    EXPECT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    std::vector<BYTE> code;
    std::vector<short> pcm(static_cast<std::size_t>(CAdpcm::kMaxSamples));
    std::vector<BYTE> piece(static_cast<std::size_t>(CAdpcm::kMaxCodeBytes));
    for (int nSample = 0; static_cast<int>(code.size()) < nBytes;) {
        const int nPiece = std::min(nBytes - static_cast<int>(code.size()), CAdpcm::kMaxCodeBytes);
        const int nSamples = nPiece / 3 * 8;
        for (int i = 0; i < nSamples; ++i, ++nSample)
            pcm[static_cast<std::size_t>(i)] = static_cast<short>(9000 * std::sin(nSample * 0.3));
        EXPECT_EQ(encoder.Encode(pcm.data(), piece.data(), nSamples, 0), 1);
        code.insert(code.end(), piece.begin(), piece.begin() + nPiece);
    }
    return code;
}

// The code decoded by one decoder from the start, in calls as long as it takes.
inline std::vector<short> DecodeCode(const std::vector<BYTE>& code)
{
    CAdpcm decoder;
    EXPECT_EQ(decoder.Init(CAdpcm::kModeDecoder), 1);
    std::vector<short> pcm(code.size() / 3 * 8);
    for (std::size_t n = 0; n < code.size(); n += CAdpcm::kMaxCodeBytes) {
        const int nBytes = static_cast<int>(std::min<std::size_t>(CAdpcm::kMaxCodeBytes, code.size() - n));
        EXPECT_EQ(decoder.Decode(&code[n], &pcm[n / 3 * 8], nBytes, 0), 1);
    }
    return pcm;
}

} // namespace playback_test
