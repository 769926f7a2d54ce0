// Helpers of the store tests: synthetic frames whose bytes follow from their camera and
// stamp, so that a file read back can be checked frame by frame without keeping a copy.
#pragma once

#include "tools/RecordStore.h"
#include "recording/CZnFile.h"
#include "storage/StorageTestSupport.h"

#include <gtest/gtest.h>

#include <vector>

inline constexpr int kFrameWidth = 320;
inline constexpr int kFrameHeight = 240;

inline tag_CAMERAINFO CameraInfo(int nCamera)
{
    return tag_CAMERAINFO{0, nCamera, kFrameWidth, kFrameHeight, STANDARD_NTSC};
}

inline DWORD FrameLength(DWORD dwStamp)
{
    return 1400 + (dwStamp / 1000) % 200;
}

inline BYTE FrameByte(int nCamera, DWORD dwStamp, DWORD dwIndex)
{
    return static_cast<BYTE>(dwStamp * 31 + dwIndex * 7 + static_cast<DWORD>(nCamera));
}

// A frame of one camera stamped with the tick clock of now.
class CSyntheticCamera {
public:
    explicit CSyntheticCamera(int nCamera) : m_nCamera(nCamera), m_aVideo(1600) {}

    tag_ZNFRAMEDATA Next(bool bKeyFrame)
    {
        tag_ZNFRAMEDATA frame{};
        frame.wFrameType = bKeyFrame ? ZNFRAME_I : ZNFRAME_P;
        frame.dwTimeStamp = GetTickCount();
        frame.dwVideoLen = FrameLength(frame.dwTimeStamp);
        for (DWORD i = 0; i < frame.dwVideoLen; ++i)
            m_aVideo[i] = FrameByte(m_nCamera, frame.dwTimeStamp, i);
        frame.pVideo = m_aVideo.data();
        return frame;
    }

    int GetCamera() const { return m_nCamera; }

private:
    int m_nCamera;
    std::vector<BYTE> m_aVideo;
};

// Reads a whole recording and checks every frame's bytes; the frames read, or -1 when
// the file doesn't open.
inline int ReadBackFrames(const std::string& strPath, int nCamera)
{
    CZnFile file;
    tag_CAMERAINFO info{};
    if (file.Open(strPath.c_str(), &info, STREAM_REVISION_20020219, ZNFILE_READ) != 1)
        return -1;
    EXPECT_EQ(info.nCamera, nCamera);
    std::vector<BYTE> aVideo(static_cast<std::size_t>(kFrameWidth) * kFrameHeight * 2);
    std::vector<BYTE> aSound(ZNFRAME_SOUND_BUFFER_SIZE);
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = aVideo.data();
    frame.pSound = aSound.data();
    int nFrames = 0;
    while (file.ReadOneFrame(&frame, -1, 0) == 1) {
        bool bSame = frame.dwVideoLen == FrameLength(frame.dwTimeStamp);
        for (DWORD i = 0; bSame && i < frame.dwVideoLen; ++i)
            bSame = aVideo[i] == FrameByte(nCamera, frame.dwTimeStamp, i);
        EXPECT_TRUE(bSame) << strPath << " frame " << nFrames;
        ++nFrames;
    }
    return nFrames;
}
