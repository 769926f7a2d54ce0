// zndvr record: records from virtual boards into a store (RecordStore.h), in four steps.
// The arguments are parsed. The inputs (the default rack, or one board per footage file)
// and then the store are checked before anything is recorded. The host's message loop
// hands each frame record to the store inside its handler (today's directory of the work
// disk, a file per camera and run, old days recycled when the disks fill) and prints a
// progress line a second, until the time is up, a stop signal comes (SIGINT, SIGTERM,
// SIGHUP) or a file can't be written. Then the cameras are closed before the store, so
// that the blocks that were collecting reach the disk, and every file of the run is read
// back and summed up.
#include "Commands.h"
#include "RecordSound.h"
#include "RecordStore.h"
#include "StopSignals.h"

#include "capture/CEncodeParam.h"
#include "capture/CMaskInfo.h"
#include "capture/CVideo.h"
#include "codec/CDecoder.h"
#include "driver/virtual/CVirtualRack.h"
#include "platform/CWnd.h"
#include "platform/TickClock.h"
#include "recording/CZnFile.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr long kDefaultSeconds = 5;
// 0 records until a stop signal; a week at most, which the tick count spans easily.
constexpr long kMaxSeconds = 7L * 24 * 60 * 60;
constexpr char kDefaultDirectory[] = "store";
constexpr UINT kProgressTimer = 1;
constexpr DWORD kMillisecondsPerSecond = 1000;
constexpr unsigned long long kBytesPerKilobyte = 1024;
constexpr DWORD kProgressPeriodMs = kMillisecondsPerSecond;
// A footage file gets a board of its own, so that its camera has the stream's whole
// rate; a machine holds four boards.
constexpr int kMaxFootageFiles = 4;
// The default rack's board is of the second generation, which is that revision's.
// Footage boards are of the first, whose frame sizes include the common small pictures
// (352 x 288, 176 x 144, 320 x 240) at their own size.
constexpr DWORD kRackRevision = STREAM_REVISION_20020219;
constexpr tag_FRAMESIZE kRackFrameSize = FRAMESIZE_320X240_R2;
constexpr DWORD kFootageRevision = STREAM_REVISION_20020114;
constexpr BYTE kFootageBoardGeneration = 1;
constexpr UINT WM_ZNREC_STOP = WM_APP + 1;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr char kUsage[] = "usage: zndvr record [-s SECONDS] [-d DIR] [--sound] [--sound-device NAME] [FOOTAGE.y4m...]";

// ---- Options ----------------------------------------------------------------------

struct tag_RECORDOPTIONS {
    long nSeconds = kDefaultSeconds;
    std::string strDirectory = kDefaultDirectory;
    std::vector<std::string> footageFiles;
    bool bSound = false;
    // The wave-in device every camera records from; empty for a virtual microphone each.
    std::string strSoundDevice;
};

// A whole decimal number from nMin to nMax with nothing before or after it.
bool ParseWholeNumber(std::string_view strText, long nMin, long nMax, long& nValue)
{
    const char* pEnd = strText.data() + strText.size();
    long nParsed = 0;
    const auto [pStop, error] = std::from_chars(strText.data(), pEnd, nParsed);
    if (error != std::errc() || pStop != pEnd || nParsed < nMin || nParsed > nMax)
        return false;
    nValue = nParsed;
    return true;
}

// False with a message that names the argument at fault.
bool ParseOptions(std::span<char* const> args, tag_RECORDOPTIONS& options, std::string& strError)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string strArg = args[i];
        const bool bSeconds = strArg == "-s" || strArg == "--seconds";
        const bool bDevice = strArg == "--sound-device";
        if (strArg == "--sound") {
            options.bSound = true;
        } else if (bSeconds || bDevice || strArg == "-d" || strArg == "--dir") {
            if (i + 1 == args.size()) {
                strError = strArg + " needs a value";
                return false;
            }
            const std::string strValue = args[++i];
            if (bSeconds && !ParseWholeNumber(strValue, 0, kMaxSeconds, options.nSeconds)) {
                strError = strArg + " '" + strValue + "': not a whole number of seconds from 0 (until stopped) to " +
                           std::to_string(kMaxSeconds);
                return false;
            }
            if (!bSeconds && strValue.empty()) {
                strError = strArg + (bDevice ? " needs a device name" : " needs a directory");
                return false;
            }
            if (bDevice) {
                options.bSound = true;
                options.strSoundDevice = strValue;
            } else if (!bSeconds) {
                options.strDirectory = strValue;
            }
        } else if (strArg.size() > 1 && strArg[0] == '-') {
            strError = "unknown option '" + strArg + "'";
            return false;
        } else {
            options.footageFiles.push_back(strArg);
        }
    }
    if (static_cast<int>(options.footageFiles.size()) > kMaxFootageFiles) {
        strError = "at most " + std::to_string(kMaxFootageFiles) + " footage files, one board each";
        return false;
    }
    return true;
}

// ---- Inputs and store -------------------------------------------------------------

// One board to open, the frame size it runs at and the cameras it records.
struct tag_BOARDPLAN {
    tag_FRAMESIZE nSize;
    int nCameras;
    // The footage its cameras show, or empty for the drawn scenes of the default rack.
    std::string strFootage;
};

// The default rack, or one board per footage file running at the frame size that suits
// its picture. False with the file and the reason when footage can't be read.
bool InstallInputs(const tag_RECORDOPTIONS& options, DWORD& dwRevision, std::vector<tag_BOARDPLAN>& boards,
                   std::string& strError)
{
    if (options.footageFiles.empty()) {
        // The default rack's board, with sound inputs of its own when sound is recorded.
        CVirtualRack::Clear();
        tag_VIRTUALBOARD board;
        if (options.bSound)
            AddBoardSound(board);
        if (CVirtualRack::InstallBoard(board, &strError) < 0)
            return false;
        dwRevision = kRackRevision;
        boards.push_back({kRackFrameSize, CVirtualRack::GetBoard(0)->GetVersion().GetChannels(), ""});
        return true;
    }
    CVirtualRack::Clear();
    dwRevision = kFootageRevision;
    for (const std::string& strFile : options.footageFiles) {
        tag_VIRTUALBOARD board;
        board.byChannels = 1;
        board.byGeneration = kFootageBoardGeneration;
        tag_CAMERASOURCE source;
        source.nKind = SOURCE_Y4MFILE;
        source.strFile = strFile;
        board.sources.push_back(source);
        std::string strReason;
        const int nDevice = CVirtualRack::InstallBoard(board, &strReason);
        if (nDevice < 0) {
            // The rack names the camera first; here each file is a board of its own.
            const std::size_t nFile = strReason.find(strFile);
            strError = nFile == std::string::npos ? strReason : strReason.substr(nFile);
            return false;
        }
        boards.push_back({CVirtualRack::GetBoard(nDevice)->GetCameraFrameSize(0, dwRevision), 1, strFile});
    }
    return true;
}

// ---- The recording loop -----------------------------------------------------------

// What the host keeps of one camera.
struct tag_CAMERARECORDING {
    int nBoard = 0;
    int nCamera = 0;
    // How the camera is named in lines and files: its number on the default board, or
    // its footage file's place among the arguments.
    int nName = 0;
    DWORD dwFrames = 0;
    DWORD dwTaken = 0;
    DWORD dwLost = 0;
    DWORD dwAlarms = 0;
    unsigned long long nBytes = 0;
    // The stamps of the first and the last frame, which give the camera's frame rate.
    DWORD dwFirstStamp = 0;
    DWORD dwLastStamp = 0;
};

// The host window: hands each frame record to the store and gives it back, prints the
// progress line when its timer ticks, and ends the loop when the time is up, a stop
// signal's message comes or a file fails.
class CRecordHost : public CWnd {
public:
    CRecordHost(CRecordStore& store, long nSeconds) : m_store(store), m_nSeconds(nSeconds)
    {
        const RECT rect{0, 0, 0, 0};
        CreateEx(0, nullptr, "zndvr record", WS_POPUP, rect, nullptr, 0);
    }
    ~CRecordHost() override { DestroyWindow(); }

    // Serves messages until the recording ends; the stop signal that ended it, or 0.
    int Run()
    {
        m_dwStart = GetTickCount();
        SetTimer(kProgressTimer, kProgressPeriodMs, nullptr);
        int nSignal = 0;
        MSG msg;
        while (nSignal == 0 && GetMessage(&msg, nullptr, 0, 0) > 0) {
            if (msg.hwnd == nullptr && msg.message == WM_ZNREC_STOP)
                nSignal = static_cast<int>(msg.wParam);
            else
                DispatchMessage(&msg);
        }
        KillTimer(kProgressTimer);
        m_dwElapsed = GetTickCount() - m_dwStart;
        return nSignal;
    }

    DWORD GetElapsed() const { return m_dwElapsed; }

    std::vector<tag_CAMERARECORDING> m_cameras;

protected:
    LRESULT OnCaptureFrame(WPARAM wCamera, LPARAM lFrame)
    {
        auto* pFrame = reinterpret_cast<tag_ZNCAPTUREFRAME*>(lFrame);
        for (tag_CAMERARECORDING& recording : m_cameras) {
            if (recording.nBoard == pFrame->pInfo->nBoard && recording.nCamera == pFrame->pInfo->nCamera)
                Write(recording, *pFrame);
        }
        ::PostMessage(reinterpret_cast<HWND>(wCamera), WM_ZN_FRAMEDONE, 0, 0);
        return 0;
    }

    LRESULT OnProgress(WPARAM, LPARAM)
    {
        const DWORD dwElapsed = GetTickCount() - m_dwStart;
        std::printf("%4lus", static_cast<unsigned long>((dwElapsed + kMillisecondsPerSecond / 2) / kMillisecondsPerSecond));
        for (const tag_CAMERARECORDING& recording : m_cameras) {
            std::printf("  cam%d %lu fr %llu KB %lu al", recording.nName, static_cast<unsigned long>(recording.dwFrames),
                        recording.nBytes / kBytesPerKilobyte, static_cast<unsigned long>(recording.dwAlarms));
        }
        std::printf("\n");
        std::fflush(stdout);
        if (m_nSeconds > 0 && dwElapsed + kProgressPeriodMs / 2 >= static_cast<DWORD>(m_nSeconds) * kMillisecondsPerSecond)
            PostQuitMessage(0);
        return 0;
    }
    DECLARE_MESSAGE_MAP()

private:
    void Write(tag_CAMERARECORDING& recording, const tag_ZNCAPTUREFRAME& frame)
    {
        if (recording.dwFrames++ == 0)
            recording.dwFirstStamp = frame.pData->dwTimeStamp;
        recording.dwLastStamp = frame.pData->dwTimeStamp;
        recording.nBytes += frame.pData->dwVideoLen;
        recording.dwAlarms += (frame.pData->wFlags & ZNFRAME_ALARM) != 0;
        recording.dwLost += frame.bVideoLost != 0;
        if (m_bStopping)
            return;
        recording.dwTaken += m_store.WriteFrame(*frame.pInfo, *frame.pData);
        if (m_store.HasWriteFailed()) {
            // A disk that fails although the store found room: what is stored stays, and
            // the run ends cleanly.
            std::fprintf(stderr, "zndvr record: a file can't be written; recording stops\n");
            m_bStopping = true;
            PostQuitMessage(0);
        }
    }

    CRecordStore& m_store;
    long m_nSeconds;
    DWORD m_dwStart = 0;
    DWORD m_dwElapsed = 0;
    bool m_bStopping = false;
};

BEGIN_MESSAGE_MAP(CRecordHost, CWnd)
    ON_MESSAGE(WM_ZN_FRAME, OnCaptureFrame)
    ON_MESSAGE(WM_TIMER, OnProgress)
END_MESSAGE_MAP()

// One area over the whole picture, so that the alarms count motion anywhere.
void AddWholePictureArea(CEncodeParam& param, int nWidth, int nHeight)
{
    CRect rcAll(0, 0, nWidth, nHeight);
    CMaskInfo area(&rcAll, nWidth, nHeight);
    param.AddMaskInfo(&area, nWidth, nHeight);
}

// Opens the boards and cameras of the plan; false with what failed.
bool OpenCameras(CVideo& video, CRecordHost& host, DWORD dwRevision, const std::vector<tag_BOARDPLAN>& boards,
                 const std::vector<DWORD>& soundDevices, std::string& strError)
{
    if (video.Open(&host, dwRevision) != ZNRET_OK || video.GetBoardNum() < static_cast<int>(boards.size())) {
        strError = "the virtual boards aren't found";
        return false;
    }
    for (int nBoard = 0; nBoard < static_cast<int>(boards.size()); ++nBoard) {
        tag_CAMERAINFO info{};
        info.nBoard = nBoard;
        if (video.GetVideoSize(boards[nBoard].nSize, info.nStandard, info.nWidth, info.nHeight) != ZNRET_OK ||
            video.OpenBoard(nBoard, boards[nBoard].nSize, 0, nullptr) != ZNRET_OK) {
            strError = "board " + std::to_string(nBoard) + " doesn't open";
            return false;
        }
        CEncodeParam param;
        AddWholePictureArea(param, info.nWidth, info.nHeight);
        for (int nCamera = 0; nCamera < boards[nBoard].nCameras; ++nCamera) {
            tag_CAMERARECORDING recording;
            recording.nBoard = nBoard;
            recording.nCamera = info.nCamera = nCamera;
            recording.nName = boards[nBoard].strFootage.empty() ? nCamera : nBoard;
            // With sound, the cameras in the order of the plan record the devices chosen for them.
            const std::size_t nIndex = host.m_cameras.size();
            param.m_bEncodeSound = nIndex < soundDevices.size() ? 1 : 0;
            if (param.m_bEncodeSound)
                param.m_dwSoundDev = soundDevices[nIndex];
            host.m_cameras.push_back(recording);
            if (video.OpenCamera(nBoard, nCamera, &param, nullptr) != ZNRET_OK) {
                strError = "camera " + std::to_string(nCamera) + " of board " + std::to_string(nBoard) +
                           " doesn't open";
                return false;
            }
        }
    }
    return true;
}

// ---- The summary ------------------------------------------------------------------

// What a file holds when read back.
struct tag_READBACK {
    bool bOpened = false;
    int nWidth = 0;
    int nHeight = 0;
    DWORD dwFrames = 0;
    DWORD dwBlocks = 0;
    DWORD dwWithVideo = 0;
    DWORD dwDecoded = 0;
    // The sound code of the frames, in order.
    std::vector<BYTE> sound;
};

// Reads every frame of a recording and decodes those that have a picture.
tag_READBACK ReadBack(const std::string& strFile, DWORD dwRevision)
{
    tag_READBACK result;
    CZnFile reader;
    tag_CAMERAINFO info{};
    if (reader.Open(strFile.c_str(), &info, dwRevision, ZNFILE_READ) != 1)
        return result;
    result.bOpened = true;
    result.nWidth = reader.GetVideoWidth();
    result.nHeight = reader.GetVideoHeight();
    result.dwBlocks = reader.GetTotalBlock();
    std::vector<BYTE> video(static_cast<std::size_t>(reader.GetVideoWidth()) * reader.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    std::vector<BYTE> picture(static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3);
    CDecoder decoder;
    if (!decoder.Create(dwRevision))
        return result;
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = video.data();
    frame.pSound = sound.data();
    while (reader.ReadOneFrame(&frame, -1, 0) == 1) {
        ++result.dwFrames;
        if ((frame.wFlags & ZNFRAME_SOUND) != 0)
            result.sound.insert(result.sound.end(), frame.pSound, frame.pSound + frame.dwSoundLen);
        if ((frame.wFlags & ZNFRAME_LOST) != 0 || frame.dwVideoLen == 0)
            continue;
        ++result.dwWithVideo;
        const DECODER_RETURN decoded =
            decoder.DecodeOneFrame(frame.pVideo, static_cast<int>(frame.dwVideoLen), picture.data(), TRUE);
        result.dwDecoded += !decoded.bError;
    }
    return result;
}

// Reads back the files of one camera and prints what each holds; true when each holds
// every frame the store put in it and every picture in it decodes. A file that is gone (its
// day recycled during the run, or removed by the writer because none of its blocks could be
// stored) is reported as such. The sound of all files, in order, is
// added to sound.
bool PrintCameraFiles(const tag_CAMERARECORDING& recording, const CRecordStore& store, DWORD dwRevision,
                      std::vector<BYTE>& sound)
{
    bool bAllKept = true;
    for (const tag_STOREDFILE& stored : store.GetFiles()) {
        if (stored.nBoard != recording.nBoard || stored.nCamera != recording.nCamera)
            continue;
        if (!std::filesystem::exists(stored.strPath)) {
            std::printf("    %s: gone (its day was recycled, or no block of it reached the disk)\n",
                        stored.strPath.c_str());
            continue;
        }
        const tag_READBACK file = ReadBack(stored.strPath, dwRevision);
        if (!file.bOpened) {
            std::printf("    %s: can't be read back\n", stored.strPath.c_str());
            bAllKept = false;
            continue;
        }
        std::printf("    %s: %lu frames of %dx%d in %lu blocks, %lu of %lu pictures decode\n", stored.strPath.c_str(),
                    static_cast<unsigned long>(file.dwFrames), file.nWidth, file.nHeight,
                    static_cast<unsigned long>(file.dwBlocks), static_cast<unsigned long>(file.dwDecoded),
                    static_cast<unsigned long>(file.dwWithVideo));
        bAllKept = bAllKept && file.dwFrames == stored.dwFrames && file.dwDecoded == file.dwWithVideo;
        sound.insert(sound.end(), file.sound.begin(), file.sound.end());
    }
    return bAllKept;
}

// Prints what each camera recorded and what its files hold; true when every file holds
// what the store put in it, and, with sound, when some camera has sound and each virtual
// microphone's sound decodes to its signal. A camera without signal is reported as such
// and is no failure: its frames carry no picture by design.
bool PrintSummary(const CRecordHost& host, const CRecordStore& store, DWORD dwRevision,
                  const tag_RECORDOPTIONS& options)
{
    const double dSeconds = static_cast<double>(host.GetElapsed()) / kMillisecondsPerSecond;
    bool bAllKept = true;
    bool bAnySound = false;
    std::printf("\nsummary, %.1f s:\n", dSeconds);
    for (const tag_CAMERARECORDING& recording : host.m_cameras) {
        const DWORD dwSpan = recording.dwLastStamp - recording.dwFirstStamp;
        const double dRate =
            dwSpan > 0 ? static_cast<double>(recording.dwFrames - 1) * kMillisecondsPerSecond / dwSpan : 0.0;
        std::printf("  camera %d: %lu frames, %.1f a second, %lu without signal, %llu KB coded, %lu alarms\n",
                    recording.nName, static_cast<unsigned long>(recording.dwFrames), dRate,
                    static_cast<unsigned long>(recording.dwLost), recording.nBytes / kBytesPerKilobyte,
                    static_cast<unsigned long>(recording.dwAlarms));
        if (recording.dwFrames > 0 && recording.dwLost == recording.dwFrames)
            std::printf("    no video signal\n");
        if (recording.dwTaken == 0) {
            std::printf("    no frames stored, no file\n");
            continue;
        }
        std::vector<BYTE> sound;
        bAllKept = PrintCameraFiles(recording, store, dwRevision, sound) && bAllKept;
        if (options.bSound) {
            std::string strSound;
            // Cameras that take the default board's own sound record its microphones
            // also when a wave-in device is named for the others.
            const bool bBoardSound = options.footageFiles.empty() && recording.nCamera < BOARD_SOUND_CAMERAS;
            const bool bKnownSignal = options.strSoundDevice.empty() || bBoardSound;
            bAllKept = DescribeRecordedSound(recording.nName, bKnownSignal, sound, strSound) && bAllKept;
            bAnySound = bAnySound || !sound.empty();
            std::printf("    %s\n", strSound.c_str());
        }
    }
    if (options.bSound && !bAnySound)
        std::printf("  no camera recorded sound\n");
    return bAllKept && (bAnySound || !options.bSound);
}

// Records with the checked inputs into the open store; the exit status.
int Record(const tag_RECORDOPTIONS& options, DWORD dwRevision, const std::vector<tag_BOARDPLAN>& boards,
           const std::vector<DWORD>& soundDevices, CRecordStore& store, CStopSignals& stopSignals)
{
    CRecordHost host(store, options.nSeconds);
    int nSignal = 0;
    bool bOpened = false;
    {
        CVideo video;
        std::string strError;
        bOpened = OpenCameras(video, host, dwRevision, boards, soundDevices, strError);
        if (!bOpened) {
            std::fprintf(stderr, "zndvr record: %s\n", strError.c_str());
        } else {
            const std::string strHowLong =
                options.nSeconds > 0 ? "for " + std::to_string(options.nSeconds) + " s" : "until stopped";
            std::printf("recording %zu camera(s) %s into %s\n", host.m_cameras.size(), strHowLong.c_str(),
                        options.strDirectory.c_str());
            std::fflush(stdout);
            if (!stopSignals.Watch(WM_ZNREC_STOP))
                std::fprintf(stderr, "zndvr record: stop signals can't be watched; the run ends with its time\n");
            nSignal = host.Run();
        }
    }
    store.Close();
    if (!bOpened)
        return kExitFailure;
    if (nSignal != 0)
        std::printf("stopped by signal %d (%s)\n", nSignal, strsignal(nSignal));
    const bool bAllKept = PrintSummary(host, store, dwRevision, options);
    if (store.HasWriteFailed() || !bAllKept)
        return kExitFailure;
    return nSignal != 0 ? STOP_EXIT_BASE + nSignal : 0;
}

} // namespace

int RunRecordCommand(std::span<char* const> args)
{
    // Before any thread exists, so that all of them leave the stop signals to the one
    // that waits for them.
    CStopSignals stopSignals;
    tag_RECORDOPTIONS options;
    std::string strError;
    if (!ParseOptions(args, options, strError)) {
        std::fprintf(stderr, "zndvr record: %s\n%s\n", strError.c_str(), kUsage);
        return kExitUsage;
    }
    DWORD dwRevision = 0;
    std::vector<tag_BOARDPLAN> boards;
    std::vector<DWORD> soundDevices;
    int nCameras = 0;
    bool bReady = InstallInputs(options, dwRevision, boards, strError);
    for (const tag_BOARDPLAN& board : boards)
        nCameras += board.nCameras;
    bReady = bReady && (!options.bSound || ChooseSoundDevices(options.strSoundDevice, nCameras, soundDevices, strError));
    CRecordStore store;
    store.SetReporter([](const std::string& strLine) { std::printf("  store: %s\n", strLine.c_str()); });
    tag_STOREOPTIONS storeOptions;
    storeOptions.strStoreDir = options.strDirectory;
    storeOptions.dwRevision = dwRevision;
    if (!bReady || !store.Open(storeOptions, strError)) {
        std::fprintf(stderr, "zndvr record: %s\n", strError.c_str());
        CVirtualRack::Clear();
        return kExitFailure;
    }
    const int nExit = Record(options, dwRevision, boards, soundDevices, store, stopSignals);
    CVirtualRack::Clear();
    return nExit;
}
