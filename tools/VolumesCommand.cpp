// zndvr volumes DIR...: for each directory its volume, the volume's file system, whether
// it is accepted as a recording disk, and its total, used and free MB.
#include "Commands.h"

#include "platform/Disks.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace {

constexpr int kMegabyteShift = 20;
constexpr char kRowFormat[] = "%-28s %-24s %-12s %-16s %10s %10s %10s\n";

const char* DescribeDriveType(UINT nDriveType)
{
    switch (nDriveType) {
    case DRIVE_FIXED:
        return "yes (fixed)";
    case DRIVE_REMOTE:
        return "yes (network)";
    case DRIVE_RAMDISK:
        return "no (RAM)";
    case DRIVE_CDROM:
        return "no (read-only)";
    case DRIVE_REMOVABLE:
        return "no (removable)";
    default:
        return "no (no disk)";
    }
}

// Prints one row; false when the directory's volume can't be found or measured.
bool PrintVolumeRow(const char* pszDir)
{
    tag_VOLUMEINFO info;
    if (!GetVolumeInfo(pszDir, &info)) {
        std::printf(kRowFormat, pszDir, "-", "-", "no (not found)", "-", "-", "-");
        return false;
    }
    std::string strFileSystem(static_cast<LPCSTR>(info.strFileSystem));
    if (info.bQuota)
        strFileSystem += "+quota";
    ULARGE_INTEGER freeToCaller{0};
    ULARGE_INTEGER total{0};
    bool bMeasured = GetDiskFreeSpaceExA(info.strVolume, &freeToCaller, &total, nullptr);
    char strTotal[24] = "-";
    char strUsed[24] = "-";
    char strFree[24] = "-";
    if (bMeasured) {
        std::uint64_t nUsed = total.QuadPart - freeToCaller.QuadPart;
        std::snprintf(strTotal, sizeof(strTotal), "%" PRIu64, total.QuadPart >> kMegabyteShift);
        std::snprintf(strUsed, sizeof(strUsed), "%" PRIu64, nUsed >> kMegabyteShift);
        std::snprintf(strFree, sizeof(strFree), "%" PRIu64, freeToCaller.QuadPart >> kMegabyteShift);
    }
    std::printf(kRowFormat, pszDir, static_cast<LPCSTR>(info.strVolume), strFileSystem.c_str(),
                DescribeDriveType(info.nDriveType), strTotal, strUsed, strFree);
    return bMeasured;
}

} // namespace

int RunVolumesCommand(std::span<char* const> args)
{
    std::printf(kRowFormat, "DIRECTORY", "VOLUME", "FILE SYSTEM", "RECORDING DISK", "TOTAL MB", "USED MB", "FREE MB");
    if (args.empty())
        return PrintVolumeRow(".") ? 0 : 1;
    bool bAllFound = true;
    for (char* pszDir : args)
        bAllFound = PrintVolumeRow(pszDir) && bAllFound;
    return bAllFound ? 0 : 1;
}
