// zndvr search: finds the recordings of a store by host, disk, board, camera, day, span,
// moment and frame size, and lists them as a table with a count, or as JSON for scripts.
// Times are local. Without a day, a span or a moment, today is searched.
#include "Commands.h"
#include "RecordStore.h"
#include "ToolFormat.h"

#include "platform/CTime.h"
#include "storage/CFileSearchInfo.h"
#include "storage/CZnDatabase.h"
#include "vocabulary/FrameSizes.h"
#include "vocabulary/StreamRevision.h"

#include <charconv>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr char kUsage[] =
    "usage: zndvr search [-d STORE] [--host NAME] [--disk DISK] [--board NAME] [--camera NAME]\n"
    "                    [--date DAY | --from TIME [--to TIME] | --at TIME] [--remote] [--size WxH|CODE] [--json]\n"
    "DAY is YYYY-MM-DD; TIME is YYYY-MM-DD or YYYY-MM-DD HH:MM[:SS], local time. DISK is a number of\n"
    "the disk list, a disk's display name, or a directory on its volume.\n";
// A moment of the day before that no daylight-saving change moves to another day.
constexpr int kNoon = 12;

struct tag_SEARCHOPTIONS {
    std::string strStore = "store";
    std::optional<std::string> strHost;
    std::optional<std::string> strDisk;
    std::optional<std::string> strBoard;
    std::optional<std::string> strCamera;
    std::optional<DWORD> dwDate;
    std::optional<DWORD> dwFrom;
    std::optional<DWORD> dwTo;
    std::optional<DWORD> dwAt;
    std::optional<std::string> strSize;
    bool bRemote = false;
    bool bJson = false;
};

bool Fail(const std::string& strMessage)
{
    std::fprintf(stderr, "zndvr search: %s\n", strMessage.c_str());
    return false;
}

bool ParseTimeOption(std::string_view strOption, const char* pszValue, bool bDayOnly, std::optional<DWORD>& dwTime)
{
    DWORD dwParsed = 0;
    if (!ParseLocalTime(pszValue, bDayOnly, dwParsed))
        return Fail(std::string(strOption) + ": '" + pszValue + "' is no local " +
                    (bDayOnly ? "day (YYYY-MM-DD)" : "time (YYYY-MM-DD or YYYY-MM-DD HH:MM[:SS])"));
    dwTime = dwParsed;
    return true;
}

bool ParseOptions(std::span<char* const> args, tag_SEARCHOPTIONS& options)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        if (strArg == "--remote" || strArg == "--json") {
            (strArg == "--remote" ? options.bRemote : options.bJson) = true;
            continue;
        }
        std::optional<std::string>* pText = strArg == "-d" || strArg == "--store" ? nullptr
                                            : strArg == "--host"                  ? &options.strHost
                                            : strArg == "--disk"                  ? &options.strDisk
                                            : strArg == "--board"                 ? &options.strBoard
                                            : strArg == "--camera"                ? &options.strCamera
                                            : strArg == "--size"                  ? &options.strSize
                                                                                  : nullptr;
        std::optional<DWORD>* pTime = strArg == "--date" ? &options.dwDate
                                      : strArg == "--from" ? &options.dwFrom
                                      : strArg == "--to"   ? &options.dwTo
                                      : strArg == "--at"   ? &options.dwAt
                                                           : nullptr;
        const bool bStore = strArg == "-d" || strArg == "--store";
        if (!bStore && pText == nullptr && pTime == nullptr)
            return Fail("unknown argument '" + std::string(strArg) + "'");
        if (i + 1 >= args.size())
            return Fail(std::string(strArg) + " needs a value");
        const char* pszValue = args[++i];
        if (bStore)
            options.strStore = pszValue;
        else if (pText != nullptr)
            *pText = pszValue;
        else if (!ParseTimeOption(strArg, pszValue, strArg == "--date", *pTime))
            return false;
    }
    const int nDayOptions = (options.dwDate ? 1 : 0) + (options.dwFrom || options.dwTo ? 1 : 0) + (options.dwAt ? 1 : 0);
    if (nDayOptions > 1)
        return Fail("give one of --date, --from/--to and --at");
    if (options.dwFrom && options.dwTo && *options.dwFrom > *options.dwTo)
        return Fail("--from lies after --to");
    return true;
}

// The frame size codes that --size names: a code, or every code of that picture size.
bool ParseFrameSizes(const std::string& strSize, std::vector<DWORD>& aSizes)
{
    int nCode = 0;
    const auto [pEnd, error] = std::from_chars(strSize.data(), strSize.data() + strSize.size(), nCode);
    if (error == std::errc() && pEnd == strSize.data() + strSize.size() && nCode >= 0 && nCode < 255) {
        aSizes.push_back(static_cast<DWORD>(nCode));
        return true;
    }
    int nWidth = 0;
    int nHeight = 0;
    char chRest = 0;
    if (std::sscanf(strSize.c_str(), "%dx%d%c", &nWidth, &nHeight, &chRest) == 2) {
        for (int nValue = 0; nValue < FRAMESIZE_INVALID; ++nValue) {
            tag_VIDEOSTANDARD nStandard = STANDARD_NTSC;
            int nSizeWidth = 0;
            int nSizeHeight = 0;
            if (GetFrameSizePicture(static_cast<tag_FRAMESIZE>(nValue), nStandard, nSizeWidth, nSizeHeight) &&
                nSizeWidth == nWidth && nSizeHeight == nHeight)
                aSizes.push_back(static_cast<DWORD>(nValue));
        }
    }
    if (aSizes.empty())
        return Fail("--size: '" + strSize + "' is no frame size (a code, or WxH such as 320x240)");
    return true;
}

// --disk as a display name: a list number, a display name, or a directory on the volume.
bool ResolveDisk(CZnDatabase& db, const std::string& strDisk, CString& strDbsName)
{
    int nNumber = 0;
    const auto [pEnd, error] = std::from_chars(strDisk.data(), strDisk.data() + strDisk.size(), nNumber);
    if (error == std::errc() && pEnd == strDisk.data() + strDisk.size()) {
        if (nNumber < 1 || nNumber > db.GetHddNum())
            return Fail("--disk: the store has no disk " + strDisk + " (it has " + std::to_string(db.GetHddNum()) + ")");
        strDbsName = db.GetDbsName(nNumber - 1);
        return true;
    }
    for (int i = 0; i < db.GetHddNum(); ++i) {
        const CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(i));
        if (pDisk->GetDbsName() == strDisk.c_str() || *pDisk == strDisk.c_str()) {
            strDbsName = pDisk->GetDbsName();
            return true;
        }
    }
    return Fail("--disk: '" + strDisk + "' is no disk of the store");
}

// The requests that the options make: one per day of --at (the day before too, where a
// recording that covers the moment may have begun) and per frame size code.
std::vector<tag_SEARCHPARAM> MakeRequests(const tag_SEARCHOPTIONS& options, const CString& strDbsName,
                                          const std::vector<DWORD>& aSizes)
{
    tag_SEARCHPARAM base;
    auto name = [&](const std::optional<std::string>& strValue, DWORD dwFlag, CString& strField) {
        if (strValue) {
            base.dwFlags |= dwFlag;
            strField = strValue->c_str();
        }
    };
    name(options.strHost, SEARCH_HOST, base.strHostName);
    name(options.strBoard, SEARCH_BOARD, base.strBoardName);
    name(options.strCamera, SEARCH_CAMERA, base.strCameraName);
    if (options.strDisk) {
        base.dwFlags |= SEARCH_DBS;
        base.strDbsName = strDbsName;
    }
    if (options.bRemote)
        base.dwFlags |= SEARCH_REMOTE;
    const DWORD dwNow = static_cast<DWORD>(CTime::GetCurrentTime().GetTime());
    std::vector<tag_SEARCHPARAM> aDays;
    if (options.dwFrom || options.dwTo) {
        base.dwFlags |= SEARCH_BEGIN;
        base.dwBeginTime = options.dwFrom.value_or(0);
        base.dwEndTime = options.dwTo.value_or(dwNow);
        if (options.dwTo)
            base.dwFlags |= SEARCH_END;
        aDays.push_back(base);
    } else if (options.dwAt) {
        base.dwFlags |= SEARCH_DATE | SEARCH_MOMENT;
        base.dwBeginTime = *options.dwAt;
        const CTime tAt(static_cast<time_t>(*options.dwAt));
        const CTime tDayBefore(tAt.GetYear(), tAt.GetMonth(), tAt.GetDay() - 1, kNoon, 0, 0, -1);
        for (DWORD dwDay : {static_cast<DWORD>(tDayBefore.GetTime()), *options.dwAt}) {
            base.dwDate = dwDay;
            aDays.push_back(base);
        }
    } else {
        base.dwFlags |= SEARCH_DATE;
        base.dwDate = options.dwDate.value_or(dwNow);
        aDays.push_back(base);
    }
    if (aSizes.empty())
        return aDays;
    std::vector<tag_SEARCHPARAM> aRequests;
    for (DWORD dwSize : aSizes) {
        for (tag_SEARCHPARAM param : aDays) {
            param.dwFlags |= SEARCH_FRAMESIZE;
            param.dwFrameSize = dwSize;
            aRequests.push_back(param);
        }
    }
    return aRequests;
}

void PrintTable(const CFileSearchInfo& results)
{
    std::printf("%-60s %-12s %-12s %-19s  %-19s  %9s %12s\n", "path", "camera", "board", "begin", "end", "duration",
                "bytes");
    for (POSITION position = results.GetHeadPosition(); position != nullptr;) {
        const auto* pInfo = static_cast<const CZnFileInfo*>(results.GetNext(position));
        std::printf("%-60s %-12s %-12s %-19s  %-19s  %9s %12lu\n", static_cast<LPCSTR>(pInfo->m_strFilePath),
                    static_cast<LPCSTR>(pInfo->m_strCameraName), static_cast<LPCSTR>(pInfo->m_strBoardName),
                    FormatLocalTime(pInfo->m_dwBeginTime).c_str(), FormatLocalTime(pInfo->m_dwEndTime).c_str(),
                    FormatDuration(pInfo->m_dwBeginTime, pInfo->m_dwEndTime).c_str(),
                    static_cast<unsigned long>(pInfo->m_dwFileLength));
    }
    std::printf("%d recording(s)\n", results.GetCount());
}

void PrintJson(const CFileSearchInfo& results)
{
    std::printf("{\"count\": %d, \"recordings\": [", results.GetCount());
    const char* pszSeparator = "\n";
    for (POSITION position = results.GetHeadPosition(); position != nullptr;) {
        const auto* pInfo = static_cast<const CZnFileInfo*>(results.GetNext(position));
        std::printf("%s  {\"path\": %s, \"host\": %s, \"board\": %s, \"camera\": %s, \"board_number\": %u, "
                    "\"camera_number\": %u, \"frame_size\": %u, \"sound_format\": %u, \"begin\": %lu, \"end\": %lu, "
                    "\"begin_local\": %s, \"end_local\": %s, \"duration\": %ld, \"bytes\": %lu, \"gmt_offset\": %d}",
                    pszSeparator, JsonString(pInfo->m_strFilePath).c_str(), JsonString(pInfo->m_strHostName).c_str(),
                    JsonString(pInfo->m_strBoardName).c_str(), JsonString(pInfo->m_strCameraName).c_str(),
                    pInfo->m_byBoard, pInfo->m_byCamera, pInfo->m_byFrameSize, pInfo->m_bySoundFormat,
                    static_cast<unsigned long>(pInfo->m_dwBeginTime), static_cast<unsigned long>(pInfo->m_dwEndTime),
                    JsonString(FormatLocalTime(pInfo->m_dwBeginTime).c_str()).c_str(),
                    JsonString(FormatLocalTime(pInfo->m_dwEndTime).c_str()).c_str(),
                    static_cast<long>(pInfo->m_dwEndTime) - static_cast<long>(pInfo->m_dwBeginTime),
                    static_cast<unsigned long>(pInfo->m_dwFileLength), pInfo->m_nGmtOffset);
        pszSeparator = ",\n";
    }
    std::printf("%s]}\n", results.IsEmpty() ? "" : "\n");
}

} // namespace

int RunSearchCommand(std::span<char* const> args)
{
    tag_SEARCHOPTIONS options;
    std::vector<DWORD> aSizes;
    if (!ParseOptions(args, options) || (options.strSize && !ParseFrameSizes(*options.strSize, aSizes))) {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
    }
    CZnDatabase db;
    std::string strError;
    // The later revision reads recordings of both forms.
    if (!OpenStoreDatabase(db, options.strStore, false, "zndvr", STREAM_REVISION_20020219, strError)) {
        Fail(strError);
        return 1;
    }
    CString strDbsName;
    if (options.strDisk && !ResolveDisk(db, *options.strDisk, strDbsName))
        return 1;
    CFileSearchInfo results;
    for (const tag_SEARCHPARAM& param : MakeRequests(options, strDbsName, aSizes)) {
        CFileSearchInfo search(&param);
        db.SearchFile(&search);
        results += search;
    }
    if (options.bJson)
        PrintJson(results);
    else
        PrintTable(results);
    return 0;
}
