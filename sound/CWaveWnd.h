// Plays and records plain RIFF WAVE files with PCM sound, for the host: a hidden child
// window that takes the device's notices, the device (a CWaveCodec, while busy) and the
// file. Made and owned by the host; every call and handler runs on the thread that
// called Open.
#pragma once

#include "platform/CString.h"
#include "platform/CWnd.h"
#include "platform/Export.h"
#include "platform/WinMmio.h"
#include "platform/WinWave.h"
#include "sound/CWaveCodec.h"
#include "vocabulary/SoundFormat.h"

#include <atomic>
#include <memory>

// Why the last Play or Record failed.
enum tag_WAVEWNDRESULT : int {
    WAVEWND_OK = 0,
    WAVEWND_NOWINDOW = 1,   // Open hasn't made the window
    WAVEWND_BUSY = 2,       // the object plays or records already
    WAVEWND_NOFILE = 3,     // the file can't be opened (to play) or created (to record)
    WAVEWND_NOTWAVE = 4,    // not a RIFF WAVE file with a format and a data chunk
    WAVEWND_BADFORMAT = 5,  // a format outside formats 3 to 8: compressed, extensible, 24-bit, another rate...
    WAVEWND_SHORTDATA = 6,  // fewer than WAVE_MIN_DATA_BYTES of sound
    WAVEWND_NODEVICE = 7,   // no device opens for the format
};

class ZNDVR_API CWaveWnd : public CWnd {
public:
    // A file with less sound than this isn't played.
    static constexpr DWORD WAVE_MIN_DATA_BYTES = 1600;
    // The id that lets the device be the first that takes the format and opens.
    static constexpr DWORD ANY_DEVICE = CWaveCodec::ANY_DEVICE;

    CWaveWnd();
    // Stops what still runs, as Close does.
    ~CWaveWnd() override;

    // The hidden child window of hParent, which gets WM_WAVEPLAYEND.
    int Open(HWND hParent);
    // Stops playing (without notice) and recording, and destroys the window.
    void Close();

    // Plays a file of formats 3 to 8 on device dwWaveOutID: every buffer goes out full of
    // the file's sound, each is refilled when played, and when the last has played
    // WM_WAVEPLAYEND is posted to the host. 1, or 0 with the reason in GetLastResult.
    int Play(const CString& strFile, DWORD dwWaveOutID);
    // Stops playing; posts WM_WAVEPLAYEND when bNotify is set. Nothing while not playing.
    void StopPlay(int bNotify);

    // Makes strFile anew and records nFmt into it from device dwWaveInID. Format 0 gives
    // a file of format 5's values. 1, or 0 with the reason in GetLastResult; the file is
    // made only once a device has opened.
    int Record(const CString& strFile, tag_SOUNDFMT nFmt, DWORD dwWaveInID);
    // Writes what has been recorded up to now, finishes the file and closes it.
    void StopRecord();

    int GetLastResult() const;
    static const char* GetResultText(int nResult);
    // While busy: the format, the device, and the sound bytes (of the file while it
    // plays, written so far while recording).
    const WAVEFORMATEX& GetFormat() const;
    DWORD GetDevice() const;
    DWORD GetDataBytes() const;

protected:
    void OnWomDone(WPARAM wParam, LPARAM lParam);
    void OnWimData(WPARAM wParam, LPARAM lParam);
    DECLARE_MESSAGE_MAP()

private:
    enum tag_WAVESTATE : int { STATE_IDLE = -1, STATE_PLAYING = 0, STATE_RECORDING = 1 };

    int Fail(tag_WAVEWNDRESULT nResult);
    tag_WAVEWNDRESULT OpenSoundFile();
    bool CreateSoundFile();
    void FinishSoundFile();
    void CloseFile();
    bool QueueNextSound(WAVEHDR& hdr);
    bool IsDoneBuffer(WPARAM wParam, const WAVEHDR* pHdr) const;
    bool WriteSound(const WAVEHDR& hdr);
    bool WriteQueuedSound();

    static std::atomic<DWORD> m_dwObjNum;

    HWND m_hNotifyWnd = nullptr;
    int m_nState = STATE_IDLE;
    CString m_strFile;
    HMMIO m_hMmio = nullptr;
    MMCKINFO m_ckRiff{};
    MMCKINFO m_ckData{};
    WAVEFORMATEX m_Format{};
    std::unique_ptr<CWaveCodec> m_pCodec;
    tag_WAVEWNDRESULT m_nLastResult = WAVEWND_OK;
    // Playing: the sound bytes of the file and those not read yet. Recording: written.
    DWORD m_dwDataBytes = 0;
    DWORD m_dwDataLeft = 0;
};
