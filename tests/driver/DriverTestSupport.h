// Helpers of the driver tests: a rack that is emptied around each test, a window on
// the test thread that collects frame messages, and small Y4M files.
#pragma once

#include "driver/CVideoStream.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

// Every test starts and ends with an empty rack.
class CRackTest : public ::testing::Test {
protected:
    void SetUp() override { CVirtualRack::Clear(); }
    void TearDown() override { CVirtualRack::Clear(); }
};

// A window of the test thread, as the target of the driver's frame messages.
class CFrameWindow : public CWnd {
public:
    CFrameWindow()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "driver test", WS_POPUP, rect, nullptr, 0);
    }

    ~CFrameWindow() override { DestroyWindow(); }

    // The frame messages that have arrived, taken out of the queue in order.
    std::vector<MSG> TakeFrames()
    {
        std::vector<MSG> frames;
        MSG msg;
        while (PeekMessage(&msg, m_hWnd, WM_ZN_FRAME, WM_ZN_FRAME, PM_REMOVE))
            frames.push_back(msg);
        return frames;
    }
};

// Blocks until the given number of driver threads wait with nothing left to do, so
// that whatever they were going to post has been posted.
inline void SettleDriverThreads(int nThreads)
{
    ASSERT_TRUE(CTestClock::WaitForIdleThreads(nThreads));
}

// A Y4M file in the temporary directory, removed with the object. Frame f has luma
// samples nLumaBase + f * 10 + (x + y) % 7 (or a constant luma when bFlat) and chroma
// planes holding 100 + f and 150 + f.
class CY4mFile {
public:
    CY4mFile(int nWidth, int nHeight, int nFrames, int nLumaBase, bool bFlat = false)
        : m_strPath(MakePath())
    {
        std::FILE* pFile = std::fopen(m_strPath.c_str(), "wb");
        std::fprintf(pFile, "YUV4MPEG2 W%d H%d F25:1 Ip A1:1 C420jpeg\n", nWidth, nHeight);
        const int nChroma = ((nWidth + 1) / 2) * ((nHeight + 1) / 2);
        for (int f = 0; f < nFrames; ++f) {
            std::fputs("FRAME\n", pFile);
            for (int y = 0; y < nHeight; ++y) {
                for (int x = 0; x < nWidth; ++x)
                    std::fputc(LumaAt(nLumaBase, f, x, y, bFlat), pFile);
            }
            for (int i = 0; i < nChroma; ++i)
                std::fputc(100 + f, pFile);
            for (int i = 0; i < nChroma; ++i)
                std::fputc(150 + f, pFile);
        }
        std::fclose(pFile);
    }

    ~CY4mFile() { std::filesystem::remove(m_strPath); }

    static int LumaAt(int nLumaBase, int nFrame, int x, int y, bool bFlat = false)
    {
        return bFlat ? nLumaBase + nFrame * 10 : nLumaBase + nFrame * 10 + (x + y) % 7;
    }

    const std::string& GetPath() const { return m_strPath; }

private:
    static std::string MakePath()
    {
        static int nCount = 0;
        return (std::filesystem::temp_directory_path() /
                ("zndvr-driver-" + std::to_string(getpid()) + "-" + std::to_string(nCount++) + ".y4m"))
            .string();
    }

    std::string m_strPath;
};

// A board for tests: immediate answers unless told otherwise.
inline tag_VIRTUALBOARD MakeTestBoard(BYTE byChannels, BYTE byGeneration, tag_PACING nPacing = PACING_IMMEDIATE)
{
    tag_VIRTUALBOARD board;
    board.byChannels = byChannels;
    board.byGeneration = byGeneration;
    board.nPacing = nPacing;
    return board;
}
