// Board sound for one recording camera: a channel of the board's voice thread and the
// fill buffer that the thread appends blocks to and the camera's frames empty. To the
// camera it is a CWaveCodec like any other: StartRecord, GetRecordData, Close. Owned by
// the camera channel on the window thread; the voice thread reaches the buffer only
// through LockCode and UnlockCode, under the codec's mutex.
#pragma once

#include "platform/PrivateHeader.h"

#include "sound/CWaveCodec.h"

class CVoiceThread;

class CVoiceCodec : public CWaveCodec {
public:
    static constexpr DWORD NO_CHANNEL = 0xFFFFFFFF;
    // The fill buffer: the sound area of a frame.
    static constexpr int CODE_BYTES = static_cast<int>(ZNFRAME_SOUND_BUFFER_SIZE);
    // How long a frame waits for the buffer before it goes without sound.
    static constexpr DWORD CODE_WAIT_MS = 100;

    CVoiceCodec();
    ~CVoiceCodec() override;

    // Ties the codec to channel nChannel (0 or 1) of the thread and makes its buffer; 0
    // when it is open already, for another channel, without a thread, or without memory.
    int OpenVoice(CVoiceThread* pThread, int nChannel);
    // Starts the channel; 1 also when started already.
    int StartRecord() override;
    // No wave device reports here: always 0.
    int OnRecordData(WPARAM wParam, LPARAM lParam) override;
    // Hands over the code gathered since the last call (at most nMaxLen bytes, the rest
    // dropped). 0, with nLen alone, when not started; 0 with nLen 0 when the buffer stays
    // busy for CODE_WAIT_MS, and the code then waits for the next call.
    int GetRecordData(BYTE* pData, int& nLen, int nMaxLen) override;
    // Stops the channel (waiting for the thread's answer) and frees everything.
    void Close() override;

    // The voice thread's side: waits for the buffer and gives its length in nPos, or
    // returns null when the codec isn't open; UnlockCode stores the new length.
    BYTE* LockCode(int& nPos);
    void UnlockCode(int nPos);

private:
    int m_bStarted = 0;
    DWORD m_nChannel = NO_CHANNEL;
    CVoiceThread* m_pVoiceThread = nullptr;
    HANDLE m_hMutex = nullptr;
};
