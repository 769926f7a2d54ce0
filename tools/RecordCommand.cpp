// zndvr record: records from the virtual boards into one recording file per camera.
// The default rack (or one board whose cameras play the Y4M files given) is opened
// through CVideo with a host window on this thread; each frame record is written with
// CZnFile inside the frame handler, a progress line is printed every second, and at
// the end each file is opened again with the reader, decoded and summed up.
#include "Commands.h"
#include "RecordSound.h"

#include "capture/CEncodeParam.h"
#include "capture/CMaskInfo.h"
#include "capture/CVideo.h"
#include "codec/CDecoder.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kDefaultSeconds = 5;
constexpr char kDefaultDirectory[] = "store";
constexpr UINT kProgressTimer = 1;
constexpr UINT kProgressPeriodMs = 1000;
constexpr int kMaxFileCameras = 8;

struct tag_RECORDOPTIONS {
    int nSeconds = kDefaultSeconds;
    std::string strDirectory = kDefaultDirectory;
    std::vector<std::string> y4mFiles;
    bool bSound = false;
    std::string strSoundDevice;
};

// What the host keeps of one camera.
struct tag_CAMERARECORDING {
    int nCamera = 0;
    std::string strFile;
    std::unique_ptr<CZnFile> pFile;
    bool bOpenFailed = false;
    DWORD dwFrames = 0;
    DWORD dwWritten = 0;
    unsigned long long nBytes = 0;
    DWORD dwAlarms = 0;
    DWORD dwLost = 0;
};

// The host window: writes each frame record to its camera's file, gives the record
// back, and prints the progress line when its timer ticks.
class CRecordHost : public CWnd {
public:
    CRecordHost(const std::string& strDirectory, DWORD dwRevision, int nSeconds)
        : m_strDirectory(strDirectory), m_dwRevision(dwRevision), m_nSeconds(nSeconds)
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "zndvr record", WS_POPUP, rect, nullptr, 0);
    }
    ~CRecordHost() override { DestroyWindow(); }

    void AddCamera(int nCamera)
    {
        tag_CAMERARECORDING recording;
        recording.nCamera = nCamera;
        recording.strFile = (std::filesystem::path(m_strDirectory) / ("camera" + std::to_string(nCamera) + ".zn")).string();
        m_cameras.push_back(std::move(recording));
    }

    void Run()
    {
        m_dwStart = GetTickCount();
        SetTimer(kProgressTimer, kProgressPeriodMs, nullptr);
        MSG msg;
        while (GetMessage(&msg, nullptr, 0, 0) > 0)
            DispatchMessage(&msg);
        KillTimer(kProgressTimer);
    }

    void CloseFiles()
    {
        for (tag_CAMERARECORDING& recording : m_cameras) {
            if (recording.pFile != nullptr)
                recording.pFile->Close();
        }
    }

    std::vector<tag_CAMERARECORDING> m_cameras;

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM lFrame)
    {
        auto* pFrame = reinterpret_cast<tag_ZNCAPTUREFRAME*>(lFrame);
        tag_CAMERARECORDING* pRecording = FindCamera(pFrame->pInfo->nCamera);
        if (pRecording != nullptr)
            Write(*pRecording, *pFrame);
        ::PostMessage(reinterpret_cast<HWND>(wCamera), WM_ZN_FRAMEDONE, 0, 0);
        return 0;
    }

    LRESULT OnProgress(WPARAM, LPARAM)
    {
        const DWORD dwElapsed = GetTickCount() - m_dwStart;
        std::printf("%3lus", static_cast<unsigned long>((dwElapsed + 500) / 1000));
        for (const tag_CAMERARECORDING& recording : m_cameras) {
            std::printf("  cam%d %lu fr %llu KB %lu al", recording.nCamera, static_cast<unsigned long>(recording.dwFrames),
                        recording.nBytes / 1024, static_cast<unsigned long>(recording.dwAlarms));
        }
        std::printf("\n");
        std::fflush(stdout);
        if (dwElapsed + kProgressPeriodMs / 2 >= static_cast<DWORD>(m_nSeconds) * 1000)
            PostQuitMessage(0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()

private:
    tag_CAMERARECORDING* FindCamera(int nCamera)
    {
        for (tag_CAMERARECORDING& recording : m_cameras) {
            if (recording.nCamera == nCamera)
                return &recording;
        }
        return nullptr;
    }

    void Write(tag_CAMERARECORDING& recording, tag_ZNCAPTUREFRAME& frame)
    {
        ++recording.dwFrames;
        recording.nBytes += frame.pData->dwVideoLen;
        recording.dwAlarms += (frame.pData->wFlags & ZNFRAME_ALARM) != 0;
        recording.dwLost += frame.bVideoLost != 0;
        if (recording.pFile == nullptr && !recording.bOpenFailed) {
            recording.pFile = std::make_unique<CZnFile>(("camera " + std::to_string(recording.nCamera)).c_str(),
                                                        "virtual board", "zndvr");
            if (!recording.pFile->Open(recording.strFile.c_str(), frame.pInfo, m_dwRevision, ZNFILE_WRITE)) {
                std::fprintf(stderr, "zndvr record: can't open %s for writing\n", recording.strFile.c_str());
                recording.pFile.reset();
                recording.bOpenFailed = true;
            }
        }
        if (recording.pFile != nullptr && recording.pFile->WriteOneFrame(frame.pData) == 1)
            ++recording.dwWritten;
    }

    std::string m_strDirectory;
    DWORD m_dwRevision;
    int m_nSeconds;
    DWORD m_dwStart = 0;
};

BEGIN_MESSAGE_MAP(CRecordHost, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
    ON_MESSAGE(WM_TIMER, OnProgress)
END_MESSAGE_MAP()

bool ParseOptions(std::span<char* const> args, tag_RECORDOPTIONS& options)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        const bool bHasValue = i + 1 < args.size();
        if ((strArg == "-s" || strArg == "--seconds") && bHasValue) {
            options.nSeconds = std::atoi(args[++i]);
            if (options.nSeconds <= 0)
                return false;
        } else if ((strArg == "-d" || strArg == "--dir") && bHasValue) {
            options.strDirectory = args[++i];
        } else if (strArg == "--sound") {
            options.bSound = true;
        } else if (strArg == "--sound-device" && bHasValue) {
            options.bSound = true;
            options.strSoundDevice = args[++i];
        } else if (!strArg.empty() && strArg[0] != '-') {
            options.y4mFiles.emplace_back(strArg);
        } else {
            return false;
        }
    }
    return static_cast<int>(options.y4mFiles.size()) <= kMaxFileCameras;
}

// The default rack, or one board whose cameras show the files; with sound the board has
// sound inputs of its own. The number of cameras to record (-1 for all), or 0 if the
// board can't be made.
int InstallBoards(const tag_RECORDOPTIONS& options)
{
    CVirtualRack::Clear();
    tag_VIRTUALBOARD board;
    if (options.bSound)
        AddBoardSound(board);
    if (options.y4mFiles.empty())
        return CVirtualRack::InstallBoard(board) < 0 ? 0 : -1;
    const int nFiles = static_cast<int>(options.y4mFiles.size());
    // A two-stream board shares its channels between the streams: round up to even.
    board.byChannels = static_cast<BYTE>(nFiles < 2 ? 2 : nFiles + nFiles % 2);
    for (const std::string& strFile : options.y4mFiles) {
        tag_CAMERASOURCE source;
        source.nKind = SOURCE_Y4MFILE;
        source.strFile = strFile;
        board.sources.push_back(source);
    }
    return CVirtualRack::InstallBoard(board) < 0 ? 0 : nFiles;
}

// One area over the whole picture, so that the alarms count motion anywhere.
void AddWholePictureArea(CEncodeParam& param, int nWidth, int nHeight)
{
    CRect rcAll(0, 0, nWidth, nHeight);
    CMaskInfo area(&rcAll, nWidth, nHeight);
    param.AddMaskInfo(&area, nWidth, nHeight);
}

// Reads every frame of an open recording and decodes it; the frames that decoded. The
// sound of the frames is gathered in order.
DWORD DecodeAll(CZnFile& reader, DWORD dwRevision, std::vector<BYTE>& code)
{
    std::vector<BYTE> video(static_cast<std::size_t>(reader.GetVideoWidth()) * reader.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    std::vector<BYTE> picture(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    CDecoder decoder;
    if (!decoder.Create(dwRevision))
        return 0;
    DWORD dwDecoded = 0;
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = video.data();
    frame.pSound = sound.data();
    while (reader.ReadOneFrame(&frame, -1, 0) == 1) {
        const DECODER_RETURN result =
            decoder.DecodeOneFrame(frame.pVideo, static_cast<int>(frame.dwVideoLen), picture.data(), TRUE);
        dwDecoded += !result.bError;
        if ((frame.wFlags & ZNFRAME_SOUND) != 0)
            code.insert(code.end(), frame.pSound, frame.pSound + frame.dwSoundLen);
    }
    return dwDecoded;
}

// Prints what each camera recorded; true when every camera has frames on disk and every
// frame it wrote reads back and decodes, and, with sound, when some camera has sound and
// the sound of each virtual microphone decodes to its signal.
bool PrintSummary(const CRecordHost& host, DWORD dwRevision, const tag_RECORDOPTIONS& options)
{
    bool bAllReadBack = true;
    bool bAnySound = false;
    std::printf("\nsummary:\n");
    for (const tag_CAMERARECORDING& recording : host.m_cameras) {
        CZnFile reader;
        tag_CAMERAINFO info{};
        const bool bOpened = reader.Open(recording.strFile.c_str(), &info, dwRevision, ZNFILE_READ) == 1;
        std::printf("  camera %d: %lu frames (%lu lost signal), %lu written, %llu KB coded, %lu alarms; %s",
                    recording.nCamera, static_cast<unsigned long>(recording.dwFrames),
                    static_cast<unsigned long>(recording.dwLost), static_cast<unsigned long>(recording.dwWritten),
                    recording.nBytes / 1024, static_cast<unsigned long>(recording.dwAlarms), recording.strFile.c_str());
        if (bOpened) {
            std::printf(" (%dx%d, %lu frames in %lu blocks", reader.GetVideoWidth(), reader.GetVideoHeight(),
                        static_cast<unsigned long>(reader.GetTotalFrameNum()),
                        static_cast<unsigned long>(reader.GetTotalBlock()));
            std::vector<BYTE> code;
            const DWORD dwDecoded = DecodeAll(reader, dwRevision, code);
            std::printf(", %lu decoded)\n", static_cast<unsigned long>(dwDecoded));
            bAllReadBack = bAllReadBack && recording.dwWritten > 0 && dwDecoded == recording.dwWritten;
            std::string strSound;
            if (options.bSound) {
                const bool bKnownSignal = options.strSoundDevice.empty() || recording.nCamera < BOARD_SOUND_CAMERAS;
                bAllReadBack = DescribeRecordedSound(recording.nCamera, bKnownSignal, code, strSound) && bAllReadBack;
                bAnySound = bAnySound || !code.empty();
                std::printf("    %s\n", strSound.c_str());
            }
        } else {
            std::printf(" (can't be read back)\n");
            bAllReadBack = false;
        }
    }
    if (options.bSound && !bAnySound)
        std::printf("  no camera recorded sound\n");
    return bAllReadBack && (bAnySound || !options.bSound);
}

} // namespace

int RunRecordCommand(std::span<char* const> args)
{
    tag_RECORDOPTIONS options;
    if (!ParseOptions(args, options)) {
        std::fprintf(stderr,
                     "usage: zndvr record [-s SECONDS] [-d DIR] [--sound] [--sound-device NAME] [Y4M...]"
                     "  (at most %d files)\n",
                     kMaxFileCameras);
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(options.strDirectory, error);
    if (error) {
        std::fprintf(stderr, "zndvr record: can't make %s: %s\n", options.strDirectory.c_str(),
                     error.message().c_str());
        return 1;
    }
    const int nFileCameras = InstallBoards(options);
    if (nFileCameras == 0) {
        std::fprintf(stderr, "zndvr record: a file can't be read as Y4M\n");
        return 1;
    }
    // The virtual boards are of the second generation, which is this revision's.
    constexpr DWORD dwRevision = STREAM_REVISION_20020219;
    CRecordHost host(options.strDirectory, dwRevision, options.nSeconds);
    int nOpened = 0;
    {
        CVideo video;
        if (video.Open(&host, dwRevision) != ZNRET_OK || video.GetBoardNum() < 1) {
            std::fprintf(stderr, "zndvr record: no board found\n");
            return 1;
        }
        if (video.OpenBoard(0, FRAMESIZE_320X240_R2, 0, nullptr) != ZNRET_OK) {
            std::fprintf(stderr, "zndvr record: board 0 doesn't open\n");
            return 1;
        }
        const int nCameras = nFileCameras > 0 ? nFileCameras : video.GetCameraNum(0);
        std::vector<DWORD> soundDevices;
        std::string strError;
        if (options.bSound && !ChooseSoundDevices(options.strSoundDevice, nCameras, soundDevices, strError)) {
            std::fprintf(stderr, "zndvr record: %s\n", strError.c_str());
            return 2;
        }
        CEncodeParam param;
        AddWholePictureArea(param, 320, 240);
        for (int nCamera = 0; nCamera < nCameras; ++nCamera) {
            if (options.bSound) {
                param.m_bEncodeSound = 1;
                param.m_dwSoundDev = soundDevices[static_cast<std::size_t>(nCamera)];
            }
            if (video.OpenCamera(0, nCamera, &param, nullptr) == ZNRET_OK) {
                host.AddCamera(nCamera);
                ++nOpened;
            }
        }
        if (nOpened == 0) {
            std::fprintf(stderr, "zndvr record: no camera opens\n");
            return 1;
        }
        std::printf("recording %d camera(s) for %d s into %s\n", nOpened, options.nSeconds,
                    options.strDirectory.c_str());
        host.Run();
    }
    host.CloseFiles();
    const bool bAllReadBack = PrintSummary(host, dwRevision, options);
    CVirtualRack::Clear();
    return bAllReadBack ? 0 : 1;
}
