// zndvr devices: the wave-in and wave-out devices the library sees, the virtual ones
// first, each with the sound formats it accepts.
#include "Commands.h"

#include "sound/CWaveCodec.h"

#include <cstdio>

namespace {

struct tag_FORMATNAME {
    tag_SOUNDFMT nFmt;
    const char* pszName;
};

constexpr tag_FORMATNAME kFormatNames[] = {
    {SOUNDFMT_ADPCM, "speech code (8 kHz 16-bit mono)"},
    {SOUNDFMT_8K_8BIT_MONO, "8 kHz 8-bit mono"},
    {SOUNDFMT_8K_8BIT_STEREO, "8 kHz 8-bit stereo"},
    {SOUNDFMT_8K_16BIT_MONO, "8 kHz 16-bit mono"},
    {SOUNDFMT_8K_16BIT_STEREO, "8 kHz 16-bit stereo"},
    {SOUNDFMT_44K_16BIT_STEREO, "44.1 kHz 16-bit stereo"},
    {SOUNDFMT_22K_16BIT_STEREO, "22.05 kHz 16-bit stereo"},
};

void ListDevices(bool bInput)
{
    const DWORD dwDevices = bInput ? CWaveCodec::GetWaveInDevNum() : CWaveCodec::GetWaveOutDevNum();
    std::printf("wave-%s devices: %lu\n", bInput ? "in" : "out", static_cast<unsigned long>(dwDevices));
    for (DWORD dwID = 0; dwID < dwDevices; ++dwID) {
        const CString strName = bInput ? CWaveCodec::GetWaveInDevName(dwID) : CWaveCodec::GetWaveOutDevName(dwID);
        std::printf("  %2lu  %-24s formats:", static_cast<unsigned long>(dwID), static_cast<LPCSTR>(strName));
        bool bAny = false;
        for (const tag_FORMATNAME& format : kFormatNames) {
            const int bAccepted = bInput ? CWaveCodec::CheckInFmt(dwID, format.nFmt) : CWaveCodec::CheckOutFmt(dwID, format.nFmt);
            if (bAccepted) {
                std::printf(" %d", static_cast<int>(format.nFmt));
                bAny = true;
            }
        }
        std::printf("%s\n", bAny ? "" : " none (busy or not usable now)");
    }
}

} // namespace

int RunDevicesCommand(std::span<char* const> args)
{
    if (!args.empty()) {
        std::fprintf(stderr, "usage: zndvr devices\n");
        return 2;
    }
    // The device counts are those of the moment the first codec object is made.
    CWaveCodec codec;
    ListDevices(true);
    ListDevices(false);
    std::printf("formats:\n");
    for (const tag_FORMATNAME& format : kFormatNames)
        std::printf("  %d  %s\n", static_cast<int>(format.nFmt), format.pszName);
    return 0;
}
