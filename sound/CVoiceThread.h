// Fetches a board's own sound: a thread that polls the board's sound processor over
// the byte bus every 200 ms and moves finished blocks into the CVoiceCodec of each
// running channel. One per board with sound inputs, owned by the board's capture
// window; Start, Stop and Exit are called on the window thread, which hands channels to
// the voice thread by thread message and waits for its answer.
#pragma once

#include "platform/PrivateHeader.h"

#include "driver/CSpciDebi.h"
#include "platform/WinMessages.h"
#include "platform/WinTypes.h"

#include <atomic>

class CVoiceCodec;

// Thread messages to the voice thread: wParam the channel, lParam the codec or 0.
inline constexpr UINT WM_VOICE_START = WM_USER + 1;
inline constexpr UINT WM_VOICE_STOP = WM_USER + 2;

class CVoiceThread {
public:
    static constexpr int CHANNELS = 2;
    // The thread polls when this long has passed without a message.
    static constexpr DWORD POLL_MS = 200;
    // A block of the board: 960 samples, 120 ms of code.
    static constexpr int BLOCK_BYTES = 360;

    // pDebi is the board's bus, not owned; without it the object is unusable.
    explicit CVoiceThread(CSpciDebi* pDebi);
    // Ends the thread.
    virtual ~CVoiceThread();
    CVoiceThread(const CVoiceThread&) = delete;
    CVoiceThread& operator=(const CVoiceThread&) = delete;

    int IsValid() const;
    // Starts the thread if none runs (or the one there ended by itself); 1 when it runs.
    int Run();
    // Ends the thread and waits for it.
    void Exit();
    // Starts channel nChannel (0 or 1) for the codec and returns once the thread has
    // taken it, so that IsRunning is 1 and a Stop can't miss it; 0 for a bad argument, a
    // running channel, or a thread that can't run.
    int Start(int nChannel, CVoiceCodec* pCodec);
    // Stops the channel and returns once no block will reach its codec; the last
    // channel ends the thread. Returns at once when the thread has ended by itself.
    void Stop(int nChannel);
    int IsRunning(int nChannel) const;
    int AnyChannel() const;

private:
    enum tag_POLLRESULT : int {
        POLL_END = 0,          // the thread must end
        POLL_DONE = 1,
        POLL_INTERRUPTED = 2,  // a message came during a pause; it is served first
    };

    static DWORD ThreadProc(LPVOID lpParameter);
    void ThreadMain();
    void TakeMessages();
    void OnVoiceStart(int nChannel, CVoiceCodec* pCodec);
    void OnVoiceStop(int nChannel);
    void EndChannels();
    tag_POLLRESULT PollChannel(int nChannel);
    tag_POLLRESULT RequestAndPause(int nChannel);
    BYTE ReadCount(int nChannel);
    bool MoveBlock(CVoiceCodec& codec);
    void WriteCommand(BYTE byKind, int nChannel);
    bool HasExited() const;

    CSpciDebi* m_pDebi;
    HANDLE m_hExited;
    HANDLE m_hStop;
    HANDLE m_hStarted;
    HANDLE m_hChannel[CHANNELS];
    HANDLE m_hThread = nullptr;
    DWORD m_dwThreadID = 0;
    // Written by the voice thread alone, which clears them when it ends.
    std::atomic<CVoiceCodec*> m_pCodec[CHANNELS] = {};
};
