// zndvr disks: lists the disks of a store with their space, reserved and alarm space,
// recycling and the days present in each tree; adds, removes and changes disks. Changes
// are saved to the store's database at once. Removing a disk deletes none of its files.
#include "Commands.h"
#include "RecordStore.h"

#include "platform/CObList.h"
#include "platform/CTime.h"
#include "platform/Disks.h"
#include "vocabulary/StreamRevision.h"

#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr char kDefaultStore[] = "store";
constexpr char kUsage[] =
    "usage: zndvr disks [-d STORE]\n"
    "       zndvr disks [-d STORE] add DIR [--reserved MB] [--no-recycle] [--quota MB] [--name NAME]\n"
    "       zndvr disks [-d STORE] remove DISK\n"
    "       zndvr disks [-d STORE] change DISK [--base DIR] [--reserved MB] [--recycle | --no-recycle] [--name NAME]\n"
    "DISK is a number of the list or a directory on the disk's volume.\n";

struct tag_DISKSOPTIONS {
    std::string strStore = kDefaultStore;
    std::string strAction;
    std::string strTarget;
    std::optional<std::string> strBase;
    std::optional<std::string> strName;
    std::optional<DWORD> dwReserved;
    std::optional<DWORD> dwQuota;
    std::optional<bool> bRecycle;
};

bool Fail(const std::string& strMessage)
{
    std::fprintf(stderr, "zndvr disks: %s\n", strMessage.c_str());
    return false;
}

bool ParseMegabytes(std::string_view strOption, std::string_view strValue, bool bZeroAllowed, std::optional<DWORD>& dwValue)
{
    DWORD dwParsed = 0;
    const auto [pEnd, error] = std::from_chars(strValue.data(), strValue.data() + strValue.size(), dwParsed);
    if (strValue.empty() || error != std::errc() || pEnd != strValue.data() + strValue.size() || (dwParsed == 0 && !bZeroAllowed))
        return Fail(std::string(strOption) + ": '" + std::string(strValue) + "' is not a whole number of MB from " +
                    (bZeroAllowed ? "0" : "1") + " to 4294967295");
    dwValue = dwParsed;
    return true;
}

bool ParseOptions(std::span<char* const> args, tag_DISKSOPTIONS& options)
{
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view strArg = args[i];
        const bool bHasValue = i + 1 < args.size();
        const bool bTakesValue = strArg == "-d" || strArg == "--store" || strArg == "--reserved" || strArg == "--quota" ||
                                 strArg == "--name" || strArg == "--base";
        if (bTakesValue && !bHasValue)
            return Fail(std::string(strArg) + " needs a value");
        if (strArg == "-d" || strArg == "--store") {
            options.strStore = args[++i];
        } else if (strArg == "--reserved") {
            if (!ParseMegabytes(strArg, args[++i], true, options.dwReserved))
                return false;
        } else if (strArg == "--quota") {
            if (!ParseMegabytes(strArg, args[++i], false, options.dwQuota))
                return false;
        } else if (strArg == "--name") {
            options.strName = args[++i];
        } else if (strArg == "--base") {
            options.strBase = args[++i];
        } else if (strArg == "--recycle" || strArg == "--no-recycle") {
            options.bRecycle = strArg == "--recycle";
        } else if (!strArg.empty() && strArg[0] != '-' && options.strAction.empty()) {
            options.strAction = strArg;
        } else if (!strArg.empty() && strArg[0] != '-' && options.strTarget.empty()) {
            options.strTarget = strArg;
        } else {
            return Fail("unknown argument '" + std::string(strArg) + "'");
        }
    }
    if (options.strAction.empty())
        return true;
    if (options.strAction != "add" && options.strAction != "remove" && options.strAction != "change")
        return Fail("unknown action '" + options.strAction + "' (add, remove or change)");
    if (options.strTarget.empty())
        return Fail(options.strAction + " needs a " + (options.strAction == "add" ? "directory" : "disk"));
    return true;
}

std::string FormatDays(const CHddObj& disk, int nCount, DWORD (*pfnDate)(const CHddObj&, int))
{
    if (nCount == 0)
        return "0";
    auto format = [](DWORD dwDate) { return std::string(CTime(static_cast<time_t>(dwDate)).Format("%Y-%m-%d")); };
    return std::to_string(nCount) + " (" + format(pfnDate(disk, 0)) + " to " + format(pfnDate(disk, nCount - 1)) + ")";
}

void PrintDisk(CZnDatabase& db, int nIndex, const CHddObj& snapshot, const std::string& strWorkBase)
{
    const CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(nIndex));
    const std::string strBase = static_cast<LPCSTR>(pDisk->GetBaseDir());
    std::printf("disk %d%s: %s\n  base directory  %s\n", nIndex + 1, strBase == strWorkBase ? " (work disk)" : "",
                static_cast<LPCSTR>(pDisk->GetDbsName()), strBase.c_str());
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    tag_VOLUMEINFO volume;
    const bool bQuota = GetVolumeInfo(strBase.c_str(), &volume) && volume.bQuota;
    if (db.GetHddSpace(nIndex, dwTotal, dwUsed, dwFree))
        std::printf("  space           %lu MB%s, %lu MB used, %lu MB free\n", static_cast<unsigned long>(dwTotal),
                    bQuota ? " (quota volume)" : "", static_cast<unsigned long>(dwUsed), static_cast<unsigned long>(dwFree));
    else
        std::printf("  space           can't be measured\n");
    std::printf("  reserved        %lu MB; low below %lu MB\n  recycling       %s\n",
                static_cast<unsigned long>(pDisk->GetReservedSpace()), static_cast<unsigned long>(pDisk->GetAlarmSpace()),
                pDisk->IsRecycle() ? "on: gives up its oldest days when space runs out" : "off: keeps every day");
    const auto local = [](const CHddObj& disk, int i) { return disk.GetDirDate(i, CHddObj::DIR_LOCAL); };
    const auto remote = [](const CHddObj& disk, int i) { return disk.GetDirDate(i, CHddObj::DIR_REMOTE); };
    const auto picture = [](const CHddObj& disk, int i) { return disk.GetPictureDirDate(i); };
    std::printf("  days            Local %s, Remote %s, Picture %s\n",
                FormatDays(snapshot, snapshot.GetDirNum(CHddObj::DIR_LOCAL), local).c_str(),
                FormatDays(snapshot, snapshot.GetDirNum(CHddObj::DIR_REMOTE), remote).c_str(),
                FormatDays(snapshot, snapshot.GetPictureDirNum(), picture).c_str());
}

bool ListDisks(CZnDatabase& db, const tag_DISKSOPTIONS& options)
{
    CObList snapshots;
    db.GetHDDInfo(&snapshots);
    CString strWorkName;
    CString strWorkBase;
    db.GetWorkHDD(strWorkName, strWorkBase);
    std::printf("store %s: %d disk(s)\n", options.strStore.c_str(), db.GetHddNum());
    int nIndex = 0;
    for (POSITION position = snapshots.GetHeadPosition(); position != nullptr; ++nIndex) {
        std::unique_ptr<CHddObj> pSnapshot(static_cast<CHddObj*>(snapshots.GetNext(position)));
        PrintDisk(db, nIndex, *pSnapshot, std::string(strWorkBase));
    }
    return true;
}

// A list number from 1, or a directory on the disk's volume; -1 if no disk matches.
int FindDisk(CZnDatabase& db, const std::string& strTarget)
{
    int nNumber = 0;
    const auto [pEnd, error] = std::from_chars(strTarget.data(), strTarget.data() + strTarget.size(), nNumber);
    if (error == std::errc() && pEnd == strTarget.data() + strTarget.size())
        return nNumber >= 1 && nNumber <= db.GetHddNum() ? nNumber - 1 : -1;
    for (int i = 0; i < db.GetHddNum(); ++i) {
        if (*db.GetHDDInfo(db.GetDbsName(i)) == strTarget.c_str())
            return i;
    }
    return -1;
}

bool AddDisk(CZnDatabase& db, const tag_DISKSOPTIONS& options)
{
    if (options.dwQuota) {
        std::string strError;
        if (!SaveQuotaVolume(options.strStore, options.strTarget, *options.dwQuota, strError))
            return Fail(strError);
    }
    const int nSameVolume = FindDisk(db, options.strTarget);
    tag_HDDPARAM param;
    param.strBaseDir = options.strTarget.c_str();
    param.dwReservedSpace = options.dwReserved.value_or(param.dwReservedSpace);
    param.bRecycle = options.bRecycle.value_or(true);
    param.strDbsName = options.strName.value_or("").c_str();
    if (!db.AddHDD(&param)) {
        std::string strError;
        if (options.dwQuota)
            SaveQuotaVolume(options.strStore, options.strTarget, 0, strError);
        if (nSameVolume >= 0)
            return Fail(options.strTarget + ": lies on the volume of disk " + std::to_string(nSameVolume + 1) +
                        "; a store keeps one disk per volume");
        return Fail(options.strTarget + ": " + DescribeBaseDirProblem(CHddObj::CheckBaseDir(param.strBaseDir)));
    }
    const CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(db.GetHddNum() - 1));
    std::printf("added disk %d: %s at %s\n", db.GetHddNum(), static_cast<LPCSTR>(pDisk->GetDbsName()),
                static_cast<LPCSTR>(pDisk->GetBaseDir()));
    DWORD dwTotal = 0;
    DWORD dwUsed = 0;
    DWORD dwFree = 0;
    if (db.GetHddSpace(db.GetHddNum() - 1, dwTotal, dwUsed, dwFree) && dwTotal <= pDisk->GetAlarmSpace())
        std::printf("note: the volume has %lu MB and counts as low below %lu MB: it will never have room; "
                    "give a smaller --reserved\n",
                    static_cast<unsigned long>(dwTotal), static_cast<unsigned long>(pDisk->GetAlarmSpace()));
    return true;
}

bool RemoveDisk(CZnDatabase& db, const tag_DISKSOPTIONS& options)
{
    const int nIndex = FindDisk(db, options.strTarget);
    if (nIndex < 0)
        return Fail(options.strTarget + ": no disk of the store");
    if (db.GetHddNum() == 1)
        return Fail("disk " + std::to_string(nIndex + 1) + " is the store's only disk; add another one first");
    const std::string strBase = static_cast<LPCSTR>(db.GetBaseDir(nIndex));
    db.RemoveHDD(nIndex);
    std::string strError;
    SaveQuotaVolume(options.strStore, strBase, 0, strError);
    std::printf("removed disk %d; its recordings stay in %s\n", nIndex + 1, strBase.c_str());
    return true;
}

bool ChangeDisk(CZnDatabase& db, const tag_DISKSOPTIONS& options)
{
    const int nIndex = FindDisk(db, options.strTarget);
    if (nIndex < 0)
        return Fail(options.strTarget + ": no disk of the store");
    const CHddObj* pDisk = db.GetHDDInfo(db.GetDbsName(nIndex));
    tag_HDDPARAM param;
    db.GetHddParam(nIndex, &param);
    // The block carries the display name; the disk keeps its plain one unless renamed.
    param.strDbsName = options.strName ? CString(options.strName->c_str()) : pDisk->GetDbsName1();
    param.dwReservedSpace = options.dwReserved.value_or(param.dwReservedSpace);
    param.bRecycle = options.bRecycle.value_or(param.bRecycle != 0);
    if (options.strBase)
        param.strBaseDir = options.strBase->c_str();
    if (!(*pDisk == param.strBaseDir))
        return Fail(std::string(param.strBaseDir) + ": lies on another volume than disk " + std::to_string(nIndex + 1) +
                    "; remove the disk and add the new directory instead");
    if (!db.ChangeBaseDir(nIndex, &param))
        return Fail(std::string(param.strBaseDir) + ": " + DescribeBaseDirProblem(CHddObj::CheckBaseDir(param.strBaseDir)));
    std::printf("changed disk %d\n", nIndex + 1);
    return true;
}

} // namespace

int RunDisksCommand(std::span<char* const> args)
{
    tag_DISKSOPTIONS options;
    if (!ParseOptions(args, options)) {
        std::fprintf(stderr, "%s", kUsage);
        return 2;
    }
    CZnDatabase db;
    std::string strError;
    if (!OpenStoreDatabase(db, options.strStore, options.strAction == "add", "zndvr", STREAM_REVISION_20020219,
                           strError)) {
        Fail(strError);
        return 1;
    }
    bool bDone = true;
    if (options.strAction.empty())
        bDone = ListDisks(db, options);
    else if (options.strAction == "add")
        bDone = AddDisk(db, options);
    else if (options.strAction == "remove")
        bDone = RemoveDisk(db, options);
    else
        bDone = ChangeDisk(db, options);
    if (bDone && !options.strAction.empty() && !db.SaveDatabase())
        bDone = Fail(options.strStore + "/" + STORE_DATABASE_FILE + ": the disk list can't be saved");
    return bDone ? 0 : 1;
}
