// zndvr boards: installs the default rack of virtual boards and shows what the driver
// finds there: each device's firmware word, its streams and cameras, and one frame
// read from every camera.
#include "Commands.h"

#include "driver/CSpciIO.h"
#include "driver/CVideoStream.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"
#include "vocabulary/VideoSignal.h"

#include <cstdio>
#include <vector>

namespace {

constexpr int kGrabWidth = 320;
constexpr int kGrabHeight = 240;
constexpr DWORD kFrameTimeout = 2000;

const char* DescribeSource(const tag_CAMERASOURCE& source)
{
    switch (source.nKind) {
    case SOURCE_SYNTHETIC:
        return "synthetic scene";
    case SOURCE_STILL:
        return "still scene";
    case SOURCE_NOSIGNAL:
        return "no signal";
    case SOURCE_FAULTPATTERN:
        return "stream-1 fault pattern";
    case SOURCE_Y4MFILE:
        return "Y4M footage";
    case SOURCE_UYVYFILE:
        return "raw UYVY footage";
    }
    return "unknown";
}

// A hidden window of this thread that receives the driver's frame messages.
class CGrabWindow : public CWnd {
public:
    CGrabWindow()
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "zndvr boards", WS_POPUP, rect, nullptr, 0);
    }
    ~CGrabWindow() override { DestroyWindow(); }

    // Waits for the frame message of the order that was given; false on a time-out.
    bool WaitForFrame(int nCamera)
    {
        MSG msg;
        while (MsgWaitForMultipleObjects(0, nullptr, FALSE, kFrameTimeout, QS_ALLPOSTMESSAGE) != WAIT_TIMEOUT) {
            while (PeekMessage(&msg, m_hWnd, WM_ZN_FRAME, WM_ZN_FRAME, PM_REMOVE)) {
                if (msg.lParam == nCamera)
                    return true;
            }
        }
        return false;
    }
};

void PrintFrame(const std::vector<BYTE>& frame)
{
    long long nLumaSum = 0;
    for (std::size_t i = 1; i < frame.size(); i += 2)
        nLumaSum += frame[i];
    const bool bSignal = HasVideoSignal(frame.data(), static_cast<DWORD>(frame.size()));
    std::printf("frame %d x %d, mean luma %lld, %s\n", kGrabWidth, kGrabHeight,
                nLumaSum / static_cast<long long>(frame.size() / 2), bSignal ? "signal" : "no signal");
}

// Opens one stream, reads each of its cameras once and prints what came.
bool GrabStream(CSpciIO& io, const CVirtualBoard& board, int nStream, CGrabWindow& window)
{
    const int nCameras = board.GetStreamCameras(nStream);
    const int nFirst = board.GetFirstCamera(nStream);
    std::printf("  stream %d: %d camera(s) from camera %d\n", nStream, nCameras, nFirst);
    CVideoStream stream(io, nStream);
    tag_VideoPort videoPort{static_cast<DWORD>(nStream), 0, 12, 22, 640, 240};
    tag_PciPort pciPort{0, 0, 0, kGrabWidth, kGrabHeight};
    if (!stream.Open(window.m_hWnd, DRIVER_STANDARD_NTSC, &videoPort, &pciPort) || !stream.Start()) {
        std::printf("    the stream doesn't open\n");
        return false;
    }
    std::vector<BYTE> frame(static_cast<std::size_t>(kGrabWidth) * kGrabHeight * 2);
    bool bAllRead = true;
    for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
        std::printf("    camera %d, %s: ", nFirst + nCamera, DescribeSource(board.GetCameraSource(nFirst + nCamera)));
        tag_VIDEOREAD read{0, nCamera, nCamera, nCamera, frame.data(), static_cast<DWORD>(frame.size())};
        if (!stream.ReadVideo(&read) || !window.WaitForFrame(nCamera)) {
            std::printf("no frame\n");
            bAllRead = false;
            continue;
        }
        PrintFrame(frame);
    }
    stream.Close();
    return bAllRead;
}

} // namespace

int RunBoardsCommand(std::span<char* const> args)
{
    if (!args.empty()) {
        std::fprintf(stderr, "zndvr boards: takes no arguments\n");
        return 2;
    }
    CVirtualRack::InstallDefault();
    const int nDevices = CSpciIO::GetDeviceNum();
    std::printf("%d device(s)\n", nDevices);
    CGrabWindow window;
    bool bAllRead = true;
    for (int nDevice = 0; nDevice < nDevices; ++nDevice) {
        CSpciIO io;
        if (!io.Open(nDevice)) {
            std::printf("device %d: doesn't open\n", nDevice);
            bAllRead = false;
            continue;
        }
        const tag_AVVersion version = io.GetDspVersion();
        const std::shared_ptr<CVirtualBoard> pBoard = CVirtualRack::GetBoard(nDevice);
        std::printf("device %d: firmware word 0x%08X, %d channels, generation %d, %d stream(s)\n", nDevice,
                    version.dwVersion, version.GetChannels(), version.GetGeneration(), pBoard->GetStreamCount());
        for (int nStream = 0; nStream < pBoard->GetStreamCount(); ++nStream)
            bAllRead = GrabStream(io, *pBoard, nStream, window) && bAllRead;
    }
    return bAllRead ? 0 : 1;
}
