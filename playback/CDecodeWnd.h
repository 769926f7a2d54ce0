// The player. In window mode it plays one recording file at a time from a hidden child
// window: a 20 ms timer decodes each frame when its stamp is due and sends the picture
// to the host window. In decoder-only mode it decodes single frames that the host passes
// in. The host owns the object; every call, the timer and the host messages run on the
// thread that opened it.
#pragma once

#include "platform/CString.h"
#include "platform/CTime.h"
#include "platform/CWnd.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"
#include "recording/CZnFile.h"
#include "vocabulary/FrameRecords.h"
#include "vocabulary/Messages.h"
#include "vocabulary/SoundFormat.h"

#include <memory>

class CAdpcm;
class CDecoder;
class CWaveCodec;
struct tag_OWNEDFRAME;

// The position and settings of a playback, handed to the host. All zero while no video
// is open.
struct tag_VIDEOPLAYINFO {
    int nBlockIndex;        // read position of the file at the last frame shown: during
    int nFrameIndex;        // play the index of that frame + 1, after a seek the pending one's
    DWORD dwFrameStamp;     // stamp of the frame shown last
    DWORD dwBeginStamp;     // the stamp that stands for the start of the file
    DWORD dwLastTick;       // GetTickCount when the last frame was shown or play resumed
    CTime tBegin;
    CTime tEnd;
    CTime tCurrent;         // wall-clock time of the playing position
    int nPlaySpeed;         // 0 normal; +n 2n times faster; -n 2n times slower
    tag_SOUNDFMT nSoundFmt;
    int bEnableSound;
    int nWaveOutID;         // -1: the first device that takes the format
};

// What WM_VIDEOPLAY with wParam VIDEOPLAY_FRAME points to. Valid until the host returns.
struct tag_PLAYFRAME {
    DWORD dwReserved;
    const tag_CAMERAINFO* pCameraInfo;
    const tag_ZNFRAMEDATA* pFrame;      // the frame shown, with its coded video and sound
    BYTE* pPicture;                     // width x height pixels, blue-green-red
    const tag_VIDEOPLAYINFO* pPlayInfo;
};

// wParam of WM_VIDEOPLAY.
inline constexpr WPARAM VIDEOPLAY_END = 0;      // lParam 0: the playing has ended by itself
inline constexpr WPARAM VIDEOPLAY_FRAME = 1;    // lParam a tag_PLAYFRAME
inline constexpr WPARAM VIDEOPLAY_CLOCK = 2;    // lParam the tag_VIDEOPLAYINFO: no frame, new time

// Result of the decoder-only DecodeOneFrame.
struct tag_DECODEINFO {
    int nFrameType;         // not written for a frame without picture
    int bError;
    int nWidth;             // 0 for a frame without picture
    int nHeight;
    int nSoundLen;          // bytes of 16-bit PCM the call produced (or would have needed)
    WORD wFlags;            // DECODEINFO_...
};

inline constexpr WORD DECODEINFO_LOST = 0x0001;
inline constexpr WORD DECODEINFO_ALARM = 0x0002;
inline constexpr WORD DECODEINFO_FLAG4 = 0x0004;   // bit 0x0004 of the frame's flags

class ZNDVR_API CDecodeWnd : public CWnd {
public:
    // The picture area of decoder-only mode: 640 x 480 pixels of 3 bytes.
    static constexpr int DECODE_ONLY_PICTURE_BYTES = 640 * 480 * 3;

    CDecodeWnd();
    ~CDecodeWnd() override;

    // Window mode (bDecodeOnly 0): a hidden child window of hParent, which gets the
    // messages. Decoder-only mode: a decoder of stream revision dwRevision; 0 if one
    // exists already. An object open in one mode refuses the other.
    int OpenDecodeWnd(HWND hParent, int bDecodeOnly, DWORD dwRevision);
    void CloseDecodeWnd();

    // Window mode: opens a recording and starts playing it; 1 or 0, with nothing sent to
    // the host on failure. nReserved isn't read.
    int OpenVideo(CString strFile, int nPlaySpeed, int nReserved, int nWaveOutID);
    // Stops and frees everything of the video; with bNotify the host gets VIDEOPLAY_END.
    void CloseVideo(int bNotify);

    CZnFile* GetZnFile() const;
    const tag_VIDEOPLAYINFO* GetPlayInfo();
    int GetPlaySpeed();
    // Both act at the next tick, frame or finished sound buffer, and send nothing.
    void ChangePlaySpeed(int nSpeed);
    void EnableSound(int bEnable);

    // Decoder-only mode: decodes one frame into the host's buffers. 0 for the wrong mode
    // or a missing decoder, a record that doesn't decode, or a host picture or sound
    // buffer that is too small (nSoundLen then says what was needed).
    int DecodeOneFrame(tag_ZNFRAMEDATA* pFrame, tag_DECODEINFO& info, BYTE* pPicture, int nPictureSize,
                       BYTE* pSound, int nSoundSize, tag_SOUNDFMT nFmt);

    // Stops a running video, starts a stopped one.
    void Pause();
    // Normal speed, and running.
    void ResetPlay();
    // 1 while stopped, and while no video is open.
    int IsPause();
    // Goes to frame nFrame of block nBlock: 1, or 0 with the pending frame, the position
    // and the timer as they were.
    int PlayFrom(int nBlock, int nFrame);
    // Goes to the first frames later than tWhen; 1 or 0 as above.
    int PlayFrom(CTime tWhen);

    static DWORD m_dwObjNum;

protected:
    void OnTimer(UINT nIDEvent);
    // MM_WOM_DONE: wParam the wave-out handle, lParam the finished WAVEHDR (a pointer,
    // so it comes as LPARAM).
    void OnWomDone(WPARAM wParam, LPARAM lParam);
    DECLARE_MESSAGE_MAP()

private:
    int OpenWindowMode(HWND hParent);
    int OpenDecodeOnlyMode(int bDecodeOnly, DWORD dwRevision);
    BOOL AllocatePlayBuffers();
    void FillPlayInfo(int nPlaySpeed, int nWaveOutID);
    BOOL CreateDecoder(DWORD dwRevision, int nPictureBytes);
    BOOL StartTimer();

    void DecodeOneFrame(DWORD dwNow);
    void DecodePicture(const tag_ZNFRAMEDATA& frame);
    BOOL WantsSound() const;
    void CheckAudio();
    int OpenAudio();
    void CloseAudio();
    BOOL SkipFramesWithoutSoundBytes();
    void UpdatePlayClock(DWORD dwElapsed);
    void NotifyHost(WPARAM wParam, LPARAM lParam);
    CTime GetStampTime(DWORD dwStamp) const;

    BOOL ReadAndDecode(int nBlock);
    int TakeSeekFrame(int nBlock, int nFrame, BOOL bRefuseBlankSingleBlock);
    int FindBlock(CTime tWhen) const;

    int DecodeSound(const tag_ZNFRAMEDATA& frame, tag_DECODEINFO& info, BYTE* pSound, int nSoundSize,
                    tag_SOUNDFMT nFmt);

    std::unique_ptr<tag_OWNEDFRAME> m_pFrame;
    tag_CAMERAINFO m_CameraInfo;
    std::unique_ptr<CZnFile> m_pFile;
    std::unique_ptr<BYTE[]> m_pPicture;
    HWND m_hNotifyWnd;
    UINT m_nTimer;
    tag_VIDEOPLAYINFO m_PlayInfo;
    int m_bDecodeOnly;
    std::unique_ptr<CAdpcm> m_pAdpcm;
    std::unique_ptr<CWaveCodec> m_pWave;
    std::unique_ptr<CDecoder> m_pDecoder;

    int m_nPictureBytes;
    // A seek reads into this frame and trades it with m_pFrame when it has succeeded.
    std::unique_ptr<tag_OWNEDFRAME> m_pSeekFrame;
    // Decoder-only mode: the PCM of one CAdpcm call, copied on to the host's buffer,
    // which need not be aligned for 16-bit samples.
    std::unique_ptr<short[]> m_pPcmPiece;
};
