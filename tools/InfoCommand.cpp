// zndvr info FILE: the head of a recording (version, frame size, names, times, sound),
// its blocks (offset, frames, stamp) and a summary of its frames (types, sizes, sound,
// lost signal, alarms), as text or with --json. Reads the file without waiting for a
// writer, so a recording in progress can be looked at.
#include "Commands.h"
#include "ToolFormat.h"

#include "platform/CException.h"
#include "platform/CFile.h"
#include "recording/CZnFile.h"
#include "storage/CZnFileInfo.h"
#include "vocabulary/StreamRevision.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr char kUsage[] = "usage: zndvr info FILE [--json]\n";

struct tag_FRAMETOTALS {
    DWORD dwFrames = 0;
    DWORD dwKeyFrames = 0;
    DWORD dwPredicted = 0;
    DWORD dwOtherTypes = 0;
    DWORD dwMinVideo = 0xFFFFFFFF;
    DWORD dwMaxVideo = 0;
    unsigned long long nVideoBytes = 0;
    DWORD dwSoundFrames = 0;
    unsigned long long nSoundBytes = 0;
    DWORD dwLost = 0;
    DWORD dwAlarms = 0;
    DWORD dwFirstStamp = 0;
    DWORD dwLastStamp = 0;
};

std::string g_strLastReport;

void KeepReport(LPCSTR pszMessage)
{
    g_strLastReport = pszMessage != nullptr ? pszMessage : "";
}

// The entries of the block table that stand for blocks of the chain; the table may hold
// more room than that.
int GetBlockCount(const CZnFile& file)
{
    const auto* pBlocks = file.GetBlockInfo();
    if (pBlocks == nullptr)
        return 0;
    return static_cast<int>(std::min<DWORD>(file.GetTotalBlock(), static_cast<DWORD>(pBlocks->GetSize())));
}

tag_FRAMETOTALS CountFrames(CZnFile& file)
{
    tag_FRAMETOTALS totals;
    std::vector<BYTE> video(static_cast<std::size_t>(file.GetVideoWidth()) * file.GetVideoHeight() * 2);
    std::vector<BYTE> sound(ZNFRAME_SOUND_BUFFER_SIZE);
    tag_ZNFRAMEDATA frame{};
    frame.pVideo = video.data();
    frame.pSound = sound.data();
    while (file.ReadOneFrame(&frame, -1, 0)) {
        if (totals.dwFrames == 0)
            totals.dwFirstStamp = frame.dwTimeStamp;
        totals.dwLastStamp = frame.dwTimeStamp;
        ++totals.dwFrames;
        ++(frame.wFrameType == ZNFRAME_I ? totals.dwKeyFrames
           : frame.wFrameType == ZNFRAME_P ? totals.dwPredicted
                                           : totals.dwOtherTypes);
        totals.dwMinVideo = std::min(totals.dwMinVideo, frame.dwVideoLen);
        totals.dwMaxVideo = std::max(totals.dwMaxVideo, frame.dwVideoLen);
        totals.nVideoBytes += frame.dwVideoLen;
        if ((frame.wFlags & ZNFRAME_SOUND) != 0) {
            ++totals.dwSoundFrames;
            totals.nSoundBytes += frame.dwSoundLen;
        }
        totals.dwLost += (frame.wFlags & ZNFRAME_LOST) != 0 ? 1 : 0;
        totals.dwAlarms += (frame.wFlags & ZNFRAME_ALARM) != 0 ? 1 : 0;
    }
    if (totals.dwFrames == 0)
        totals.dwMinVideo = 0;
    return totals;
}

void PrintText(CZnFile& file, const tag_CAMERAINFO& camera, const CZnFileInfo& summary, const tag_FRAMETOTALS& totals)
{
    std::printf("file        %s (%lu bytes)\n", static_cast<LPCSTR>(summary.m_strFilePath),
                static_cast<unsigned long>(summary.m_dwFileLength));
    std::printf("version     0x%04x\n", file.GetFileVersion());
    std::printf("camera      %d of board %d, \"%s\" on \"%s\", host \"%s\"\n", camera.nCamera, camera.nBoard,
                static_cast<LPCSTR>(file.GetCameraName()), static_cast<LPCSTR>(file.GetBoardName()),
                static_cast<LPCSTR>(file.GetHostName()));
    std::printf("frame size  code %u, %dx%d %s\n", summary.m_byFrameSize, file.GetVideoWidth(), file.GetVideoHeight(),
                file.GetVideoStandard() == STANDARD_PAL ? "PAL" : "NTSC");
    std::printf("time        %s to %s (%s), GMT offset %d s, first stamp %lu ms\n",
                FormatLocalTime(file.GetBeginTime()).c_str(), FormatLocalTime(file.GetEndTime()).c_str(),
                FormatDuration(file.GetBeginTime(), file.GetEndTime()).c_str(), file.GetGmt(),
                static_cast<unsigned long>(file.GetBeginTimeStamp()));
    std::printf("sound       format %d\n", static_cast<int>(file.GetSoundFormat()));
    std::printf("blocks      %lu\n", static_cast<unsigned long>(file.GetTotalBlock()));
    const auto* pBlocks = file.GetBlockInfo();
    for (int i = 0; i < GetBlockCount(file); ++i) {
        const tag_ZNBLOCKINFO& block = (*pBlocks)[i];
        std::printf("  %6d  offset %10lu  frames %5lu  stamp %10lu ms (+%.3f s)\n", i,
                    static_cast<unsigned long>(block.dwOffset), static_cast<unsigned long>(block.dwFrames),
                    static_cast<unsigned long>(block.dwTimeStamp),
                    static_cast<double>(static_cast<LONG>(block.dwTimeStamp - file.GetBeginTimeStamp())) / 1000.0);
    }
    std::printf("frames      %lu: %lu key, %lu predicted%s; video %llu bytes (%lu to %lu a frame)\n",
                static_cast<unsigned long>(totals.dwFrames), static_cast<unsigned long>(totals.dwKeyFrames),
                static_cast<unsigned long>(totals.dwPredicted),
                totals.dwOtherTypes != 0 ? (", " + std::to_string(totals.dwOtherTypes) + " of other types").c_str() : "",
                totals.nVideoBytes, static_cast<unsigned long>(totals.dwMinVideo),
                static_cast<unsigned long>(totals.dwMaxVideo));
    std::printf("            sound with %lu frames (%llu bytes), lost signal in %lu, alarm in %lu; stamps %lu to %lu ms\n",
                static_cast<unsigned long>(totals.dwSoundFrames), totals.nSoundBytes,
                static_cast<unsigned long>(totals.dwLost), static_cast<unsigned long>(totals.dwAlarms),
                static_cast<unsigned long>(totals.dwFirstStamp), static_cast<unsigned long>(totals.dwLastStamp));
}

void PrintJson(CZnFile& file, const tag_CAMERAINFO& camera, const CZnFileInfo& summary, const tag_FRAMETOTALS& totals)
{
    std::printf("{\"path\": %s, \"bytes\": %lu, \"version\": %u, \"board_number\": %d, \"camera_number\": %d, "
                "\"board\": %s, \"camera\": %s, \"host\": %s, \"frame_size\": %u, \"width\": %d, \"height\": %d, "
                "\"standard\": \"%s\", \"begin\": %lu, \"end\": %lu, \"gmt_offset\": %d, \"begin_stamp\": %lu, "
                "\"sound_format\": %d,\n \"blocks\": [",
                JsonString(summary.m_strFilePath).c_str(), static_cast<unsigned long>(summary.m_dwFileLength),
                file.GetFileVersion(), camera.nBoard, camera.nCamera, JsonString(file.GetBoardName()).c_str(),
                JsonString(file.GetCameraName()).c_str(), JsonString(file.GetHostName()).c_str(),
                summary.m_byFrameSize, file.GetVideoWidth(), file.GetVideoHeight(),
                file.GetVideoStandard() == STANDARD_PAL ? "PAL" : "NTSC", static_cast<unsigned long>(file.GetBeginTime()),
                static_cast<unsigned long>(file.GetEndTime()), file.GetGmt(),
                static_cast<unsigned long>(file.GetBeginTimeStamp()), static_cast<int>(file.GetSoundFormat()));
    const auto* pBlocks = file.GetBlockInfo();
    for (int i = 0; i < GetBlockCount(file); ++i) {
        const tag_ZNBLOCKINFO& block = (*pBlocks)[i];
        std::printf("%s{\"offset\": %lu, \"frames\": %lu, \"stamp\": %lu}", i == 0 ? "" : ", ",
                    static_cast<unsigned long>(block.dwOffset), static_cast<unsigned long>(block.dwFrames),
                    static_cast<unsigned long>(block.dwTimeStamp));
    }
    std::printf("],\n \"frames\": {\"count\": %lu, \"key\": %lu, \"predicted\": %lu, \"other\": %lu, "
                "\"video_bytes\": %llu, \"video_min\": %lu, \"video_max\": %lu, \"sound_frames\": %lu, "
                "\"sound_bytes\": %llu, \"lost\": %lu, \"alarm\": %lu, \"first_stamp\": %lu, \"last_stamp\": %lu}}\n",
                static_cast<unsigned long>(totals.dwFrames), static_cast<unsigned long>(totals.dwKeyFrames),
                static_cast<unsigned long>(totals.dwPredicted), static_cast<unsigned long>(totals.dwOtherTypes),
                totals.nVideoBytes, static_cast<unsigned long>(totals.dwMinVideo),
                static_cast<unsigned long>(totals.dwMaxVideo), static_cast<unsigned long>(totals.dwSoundFrames),
                totals.nSoundBytes, static_cast<unsigned long>(totals.dwLost), static_cast<unsigned long>(totals.dwAlarms),
                static_cast<unsigned long>(totals.dwFirstStamp), static_cast<unsigned long>(totals.dwLastStamp));
}

int Fail(const std::string& strMessage)
{
    std::fprintf(stderr, "zndvr info: %s\n", strMessage.c_str());
    return 1;
}

} // namespace

int RunInfoCommand(std::span<char* const> args)
{
    std::string strFile;
    bool bJson = false;
    for (const char* pszArg : args) {
        const std::string_view strArg = pszArg;
        if (strArg == "--json") {
            bJson = true;
        } else if (strFile.empty() && !strArg.empty() && strArg[0] != '-') {
            strFile = pszArg;
        } else {
            std::fprintf(stderr, "zndvr info: unknown argument '%s'\n%s", pszArg, kUsage);
            return 2;
        }
    }
    if (strFile.empty()) {
        std::fprintf(stderr, "zndvr info: which file?\n%s", kUsage);
        return 2;
    }
    CFile probe;
    CFileException error;
    if (!probe.Open(strFile.c_str(), CFile::modeRead, &error))
        return Fail(strFile + ": can't be opened: " + std::strerror(static_cast<int>(error.m_lOsError)));
    probe.Abort();
    CZnFileInfo summary;
    if (!summary.Create(strFile.c_str(), STREAM_REVISION_20020219))
        return Fail(strFile + ": is no recording (its head is missing, cut off or of an unknown version)");

    const EXCEPTIONREPORTER pfnOld = SetExceptionReporter(&KeepReport);
    CZnFile file;
    tag_CAMERAINFO camera{};
    const int bOpened = file.Open(strFile.c_str(), &camera, STREAM_REVISION_20020219, ZNFILE_READ);
    SetExceptionReporter(pfnOld);
    if (!bOpened)
        return Fail(strFile + ": can't be read as a recording" +
                    (g_strLastReport.empty() ? std::string(" (its head or first block is damaged)") : ": " + g_strLastReport));
    const tag_FRAMETOTALS totals = CountFrames(file);
    if (bJson)
        PrintJson(file, camera, summary, totals);
    else
        PrintText(file, camera, summary, totals);
    return 0;
}
