// One wave device of the platform in one direction, with a fixed set of queued buffers:
// in format 0 it turns the device's 16-bit PCM into the speech code of recordings and
// back. Owned by its user (a camera channel, the player, a sound file window); it has
// no window and no thread of its own, and all its calls and the device's notices run
// on the thread of the window given to Open.
#pragma once

#include "platform/CObject.h"
#include "platform/CString.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "platform/WinWave.h"
#include "vocabulary/FrameRecords.h"
#include "vocabulary/SoundFormat.h"

#include <memory>

class CAdpcm;

class ZNDVR_API CWaveCodec : public CObject {
    DECLARE_DYNAMIC(CWaveCodec)

public:
    // The device id that asks for the first device that takes the format and opens.
    static constexpr DWORD ANY_DEVICE = 0xFFFFFFFF;
    // Below this many queued buffers, a playing object asks for more sound.
    static constexpr int PLAY_LOW_WATER = 4;
    // Where the code of a recording object waits for GetRecordData: a whole number of
    // 3-byte groups, the most below the sound area of a frame.
    static constexpr int CODE_CAPACITY = static_cast<int>(ZNFRAME_SOUND_BUFFER_SIZE) / 3 * 3;

    CWaveCodec();
    ~CWaveCodec() override;

    // The devices of the machine as the first living object found them.
    static DWORD GetWaveInDevNum();
    static DWORD GetWaveOutDevNum();
    // A device's name; empty for an id out of range or when the platform can't say.
    static CString GetWaveInDevName(DWORD dwID);
    static CString GetWaveOutDevName(DWORD dwID);
    // The first device of exactly that name, or ANY_DEVICE.
    static DWORD GetWaveInID(const CString& strName);
    static DWORD GetWaveOutID(const CString& strName);
    // 1 if the device exists and takes the format, else 0.
    static int CheckInFmt(DWORD dwID, tag_SOUNDFMT nFmt);
    static int CheckOutFmt(DWORD dwID, tag_SOUNDFMT nFmt);
    // The format a device format is, or SOUNDFMT_UNKNOWN; never SOUNDFMT_ADPCM, which
    // looks like SOUNDFMT_8K_16BIT_MONO from outside.
    static tag_SOUNDFMT GetSoundFmt(const WAVEFORMATEX* pFormat);
    // Fills pFormat with the device format of nFmt: 1, or 0 for a null pointer and a
    // value that isn't a format.
    static int GetSoundFmt(tag_SOUNDFMT nFmt, WAVEFORMATEX* pFormat);

    // Opens device dwID (or the first that works, for ANY_DEVICE) to play
    // (ZNFILE_WRITE) or record (ZNFILE_READ) in nFmt; hWnd gets the device's notices.
    // 0 if this object is open already, or no device takes it.
    int Open(HWND hWnd, DWORD dwID, tag_SOUNDFMT nFmt, tag_ZNFILEMODE nMode);
    // Closes the device with every buffer and drops its notices still queued for the
    // window; the object can be opened again. Any time, also half-opened.
    virtual void Close();

    // Playing. StartPlay queues the first buffers: in format 0 two of silence, in the
    // others all of them. Play decodes format 0 code into free buffers and queues them;
    // 1 when all of it went out, 0 when buffers ran out (the rest is dropped) or the
    // object doesn't play format 0. A last 1 or 2 bytes, which hold no whole sample,
    // are dropped. OnPlayDone takes back a finished buffer (from MM_WOM_DONE) and says
    // in bNeedData whether fewer than PLAY_LOW_WATER are still queued.
    int StartPlay();
    int Play(const BYTE* pCode, int nLen);
    int OnPlayDone(HWAVEOUT hWaveOut, WAVEHDR* pHdr, int& bNeedData);

    // Recording. StartRecord queues every buffer and starts the device; OnRecordData
    // takes a filled one (the wParam and lParam of MM_WIM_DATA), codes it and queues it
    // again; GetRecordData hands over the code gathered since the last call, at most
    // nMaxLen bytes (the rest is dropped), and 0 for an object that isn't open.
    virtual int StartRecord();
    virtual int OnRecordData(WPARAM wParam, LPARAM lParam);
    virtual int GetRecordData(BYTE* pData, int& nLen, int nMaxLen);

protected:
    int OpenWavePlay();
    int CloseWavePlay();
    int OpenWaveRecord();
    int CloseWaveRecord();
    int AllocBuf(int nBufNum, int nBufSize);
    // Frees buffers, headers and the code area without touching the device.
    void FreeBuf();

    WAVEFORMATEX m_WaveFormat{};
    DWORD m_nDevice = ANY_DEVICE;
    HWAVEIN m_hWaveIn = nullptr;
    HWAVEOUT m_hWaveOut = nullptr;
    tag_SOUNDFMT m_nSoundFmt = SOUNDFMT_ADPCM;
    tag_ZNFILEMODE m_nMode = ZNFILE_WRITE;
    HWND m_hWnd = nullptr;
    std::unique_ptr<WAVEHDR[]> m_pWaveHdr;
    int m_nBufNum = 0;
    int m_nBufSize = 0;
    std::unique_ptr<BYTE[]> m_pCode;
    int m_nCodeLen = 0;
    std::unique_ptr<CAdpcm> m_pAdpcm;

    static DWORD m_dwObjNum;
    static DWORD m_dwWaveInNum;
    static DWORD m_dwWaveOutNum;
    static std::unique_ptr<int[]> m_pfWaveInFlag;
    static std::unique_ptr<int[]> m_pfWaveOutFlag;

private:
    // The sound file window fills and empties the buffers of its PCM device itself.
    friend class CWaveWnd;

    static void InitWaveDriver();
    static void CloseWaveDriver();

    // The buffer table: how many buffers of how many bytes a format needs in a direction.
    static bool GetBufferRow(tag_SOUNDFMT nFmt, tag_ZNFILEMODE nMode, int& nBufNum, int& nBufSize);
    // Whether pHdr is one of this object's headers.
    bool IsOwnHeader(const WAVEHDR* pHdr) const;
    int CountQueued() const;
    // Opening a device, one try: the parameters of Open restored, then the direction's open.
    int TryDevice(DWORD dwID);
    void ForgetOpen();
    // Takes the device's notices of type nMessage for m_hWnd out of the queue.
    void DropNotices(UINT nMessage, WPARAM wDevice);
    // The flag of a device, or null for an id beyond the lists; under the driver lock.
    static int* FlagOf(tag_ZNFILEMODE nMode, DWORD dwID);
    static bool IsTaken(tag_ZNFILEMODE nMode, DWORD dwID);

    std::unique_ptr<std::unique_ptr<BYTE[]>[]> m_pBufData;
    HWND m_hOpenWnd = nullptr;
    tag_SOUNDFMT m_nOpenFmt = SOUNDFMT_ADPCM;
    tag_ZNFILEMODE m_nOpenMode = ZNFILE_WRITE;
};
