// The virtual wave devices: inputs that record a CWaveSignal and outputs that play at
// the pace of the platform clock and keep what they played. They come first in the
// device lists, before the machine's ALSA devices, so a test or a host that sets them
// up knows their ids. A process starts with the default set. Configure them while no
// device is open; every function is thread-safe.
#pragma once

#include "platform/CWaveSignal.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "platform/WinWave.h"

#include <string>
#include <vector>

struct tag_VIRTUALWAVEDEVICE {
    std::string strName;
    // An input's sound.
    tag_WAVESIGNAL signal;
    // Formats taken: PCM of 8 or 16 bits, at most wMaxChannels channels, a rate within
    // these bounds (0: no bound).
    WORD wMaxChannels = 2;
    DWORD dwMinRate = 0;
    DWORD dwMaxRate = 0;
};

// One buffer an output has played: when it began (platform clock) and where its bytes
// are in the played sound.
struct tag_PLAYEDBUFFER {
    DWORD dwStartTime;
    DWORD dwOffset;
    DWORD dwBytes;
};

class ZNDVR_API CVirtualWave {
public:
    // The default set: the input "virtual-in" (speech) and the output "virtual-out"; the
    // machine's devices listed after them.
    static void InstallDefault();
    // No virtual devices at all.
    static void Clear();
    // A new device at the end of the virtual inputs or outputs; its device id.
    static UINT AddInput(const tag_VIRTUALWAVEDEVICE& device);
    static UINT AddOutput(const tag_VIRTUALWAVEDEVICE& device);
    // Whether the machine's devices (ALSA) follow the virtual ones in the lists, and
    // whether this library was built with them at all.
    static void EnableSystemDevices(bool bEnable);
    static bool IsSystemBackendBuilt();

    // Everything an output has played since it was added or its record was cleared, in
    // the format it was played in, with the buffers in order. false for a bad id.
    static bool GetPlayed(UINT uDeviceID, std::vector<BYTE>& sound, WAVEFORMATEX& format,
                          std::vector<tag_PLAYEDBUFFER>* pBuffers = nullptr);
    static void ClearPlayed(UINT uDeviceID);
};
