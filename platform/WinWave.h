// Wave devices in the form of the Win32 multimedia calls: device lists with names, a
// format query, prepared headers queued and completed in order, MM_WOM_DONE and
// MM_WIM_DATA posted to the owner window's thread, and resets that return every queued
// buffer. Devices are the virtual ones (CVirtualWave.h) and then, where the library is
// built with ALSA, the machine's ALSA PCM devices. Every function is thread-safe; a
// header is the caller's again once its notice has been taken from the queue or a reset
// has returned.
#pragma once

#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <cstdint>

using MMRESULT = UINT;
using DWORD_PTR = std::uintptr_t;
using UINT_PTR = std::uintptr_t;

struct HWAVEIN__;
using HWAVEIN = HWAVEIN__*;
using LPHWAVEIN = HWAVEIN*;
struct HWAVEOUT__;
using HWAVEOUT = HWAVEOUT__*;
using LPHWAVEOUT = HWAVEOUT*;

inline constexpr MMRESULT MMSYSERR_NOERROR = 0;
inline constexpr MMRESULT MMSYSERR_ERROR = 1;
inline constexpr MMRESULT MMSYSERR_BADDEVICEID = 2;
inline constexpr MMRESULT MMSYSERR_ALLOCATED = 4;
inline constexpr MMRESULT MMSYSERR_INVALHANDLE = 5;
inline constexpr MMRESULT MMSYSERR_NODRIVER = 6;
inline constexpr MMRESULT MMSYSERR_NOMEM = 7;
inline constexpr MMRESULT MMSYSERR_INVALFLAG = 10;
inline constexpr MMRESULT MMSYSERR_INVALPARAM = 11;
inline constexpr MMRESULT WAVERR_BADFORMAT = 32;
inline constexpr MMRESULT WAVERR_STILLPLAYING = 33;
inline constexpr MMRESULT WAVERR_UNPREPARED = 34;

// The device id that lets the platform choose the first device that takes the format.
inline constexpr UINT WAVE_MAPPER = 0xFFFFFFFFu;

// fdwOpen of waveInOpen and waveOutOpen: only the query and window notices exist here.
inline constexpr DWORD WAVE_FORMAT_QUERY = 0x0001;
inline constexpr DWORD CALLBACK_NULL = 0x00000000;
inline constexpr DWORD CALLBACK_WINDOW = 0x00010000;

// Notices to the window given at opening: wParam the device handle, lParam the WAVEHDR*.
inline constexpr UINT MM_WOM_DONE = 0x3BD;
inline constexpr UINT MM_WIM_DATA = 0x3C0;

inline constexpr WORD WAVE_FORMAT_PCM = 1;
inline constexpr int MAXPNAMELEN = 32;

// dwFlags of WAVEHDR. DONE and INQUEUE belong to the device, PREPARED to the caller.
inline constexpr DWORD WHDR_DONE = 0x00000001;
inline constexpr DWORD WHDR_PREPARED = 0x00000002;
inline constexpr DWORD WHDR_INQUEUE = 0x00000010;

// dwSupport of WAVEOUTCAPS.
inline constexpr DWORD WAVECAPS_VOLUME = 0x0004;

struct tWAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};
using WAVEFORMATEX = tWAVEFORMATEX;
using LPWAVEFORMATEX = WAVEFORMATEX*;

struct wavehdr_tag {
    LPSTR lpData;
    DWORD dwBufferLength;
    DWORD dwBytesRecorded;
    DWORD_PTR dwUser;
    DWORD dwFlags;
    DWORD dwLoops;
    wavehdr_tag* lpNext;
    DWORD_PTR reserved;
};
using WAVEHDR = wavehdr_tag;
using LPWAVEHDR = WAVEHDR*;

// What a device is. dwFormats is 0: the format query is the way to ask about a format.
struct tagWAVEINCAPSA {
    WORD wMid;
    WORD wPid;
    UINT vDriverVersion;
    char szPname[MAXPNAMELEN];
    DWORD dwFormats;
    WORD wChannels;
    WORD wReserved1;
};
using WAVEINCAPS = tagWAVEINCAPSA;
using LPWAVEINCAPS = WAVEINCAPS*;

struct tagWAVEOUTCAPSA {
    WORD wMid;
    WORD wPid;
    UINT vDriverVersion;
    char szPname[MAXPNAMELEN];
    DWORD dwFormats;
    WORD wChannels;
    WORD wReserved1;
    DWORD dwSupport;
};
using WAVEOUTCAPS = tagWAVEOUTCAPSA;
using LPWAVEOUTCAPS = WAVEOUTCAPS*;

// Playing. Buffers play one after the other in the order written; each finished one
// gets WHDR_DONE and an MM_WOM_DONE notice. A device can be open once at a time.
// waveOutOpen with WAVE_FORMAT_QUERY only asks whether the device takes the format
// (phwo may then be null). Close fails with WAVERR_STILLPLAYING while buffers are queued.
ZNDVR_API UINT waveOutGetNumDevs();
ZNDVR_API MMRESULT waveOutGetDevCaps(UINT_PTR uDeviceID, LPWAVEOUTCAPS pwoc, UINT cbwoc);
ZNDVR_API MMRESULT waveOutOpen(LPHWAVEOUT phwo, UINT uDeviceID, const WAVEFORMATEX* pwfx,
                               DWORD_PTR dwCallback, DWORD_PTR dwInstance, DWORD fdwOpen);
ZNDVR_API MMRESULT waveOutClose(HWAVEOUT hwo);
ZNDVR_API MMRESULT waveOutPrepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);
ZNDVR_API MMRESULT waveOutUnprepareHeader(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);
ZNDVR_API MMRESULT waveOutWrite(HWAVEOUT hwo, LPWAVEHDR pwh, UINT cbwh);
// Stops playing and returns every queued buffer as done, each with its notice.
ZNDVR_API MMRESULT waveOutReset(HWAVEOUT hwo);
ZNDVR_API MMRESULT waveOutSetVolume(HWAVEOUT hwo, DWORD dwVolume);
ZNDVR_API MMRESULT waveOutGetVolume(HWAVEOUT hwo, LPDWORD pdwVolume);
// How often the device ran dry while it was playing and sound was still to come.
ZNDVR_API MMRESULT waveOutGetUnderrunCount(HWAVEOUT hwo, LPDWORD pdwCount);

// Recording. Buffers fill in the order added once the device is started; a full one
// gets WHDR_DONE, dwBytesRecorded and an MM_WIM_DATA notice. Stop returns the buffer
// being filled with what it holds; Reset returns every queued buffer.
ZNDVR_API UINT waveInGetNumDevs();
ZNDVR_API MMRESULT waveInGetDevCaps(UINT_PTR uDeviceID, LPWAVEINCAPS pwic, UINT cbwic);
ZNDVR_API MMRESULT waveInOpen(LPHWAVEIN phwi, UINT uDeviceID, const WAVEFORMATEX* pwfx,
                              DWORD_PTR dwCallback, DWORD_PTR dwInstance, DWORD fdwOpen);
ZNDVR_API MMRESULT waveInClose(HWAVEIN hwi);
ZNDVR_API MMRESULT waveInPrepareHeader(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh);
ZNDVR_API MMRESULT waveInUnprepareHeader(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh);
ZNDVR_API MMRESULT waveInAddBuffer(HWAVEIN hwi, LPWAVEHDR pwh, UINT cbwh);
ZNDVR_API MMRESULT waveInStart(HWAVEIN hwi);
ZNDVR_API MMRESULT waveInStop(HWAVEIN hwi);
ZNDVR_API MMRESULT waveInReset(HWAVEIN hwi);
// How often sound was lost because no buffer was there to take it.
ZNDVR_API MMRESULT waveInGetOverrunCount(HWAVEIN hwi, LPDWORD pdwCount);
