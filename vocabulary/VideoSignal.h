// What counts as a video signal in a frame of UYVY samples: more than
// VIDEO_SIGNAL_LIT_SAMPLES luma samples above VIDEO_SIGNAL_LUMA. An input without a camera
// gives black with a little noise, which stays at or below that level. The camera channel
// tests every frame with it, the virtual boards draw their black by it, and the host
// program reports it.
#pragma once

#include "platform/WinTypes.h"

inline constexpr BYTE VIDEO_SIGNAL_LUMA = 20;
inline constexpr int VIDEO_SIGNAL_LIT_SAMPLES = 10;

// Whether the dwBytes bytes of UYVY at pFrame hold a signal; false for a null frame.
inline bool HasVideoSignal(const BYTE* pFrame, DWORD dwBytes)
{
    if (pFrame == nullptr)
        return false;
    int nLit = 0;
    // Every odd byte is a luma sample.
    for (DWORD i = 1; i < dwBytes; i += 2) {
        if (pFrame[i] > VIDEO_SIGNAL_LUMA && ++nLit > VIDEO_SIGNAL_LIT_SAMPLES)
            return true;
    }
    return false;
}
