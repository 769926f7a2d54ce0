#include "sound/CVoiceThread.h"

#include "platform/WinThreads.h"
#include "sound/CVoiceCodec.h"

namespace {

constexpr DWORD kBusLockMs = 100;
// The processor needs this long after a request before its count can be read.
constexpr DWORD kRequestPauseMs = 1;
constexpr int kByteRetries = 5;
constexpr int kBlockRetries = 15;
constexpr BYTE kQuartersPerBlock = 4;
constexpr BYTE kCountNone = 255;

bool IsSignalled(HANDLE hEvent)
{
    return hEvent != nullptr && WaitForSingleObject(hEvent, 0) == WAIT_OBJECT_0;
}

bool HasWholeBlock(BYTE byCount)
{
    return byCount >= kQuartersPerBlock && byCount != kCountNone;
}

} // namespace

CVoiceThread::CVoiceThread(CSpciDebi* pDebi)
    : m_pDebi(pDebi), m_hExited(CreateEvent(nullptr, TRUE, FALSE, nullptr)),
      m_hStop(CreateEvent(nullptr, TRUE, FALSE, nullptr)), m_hStarted(CreateEvent(nullptr, TRUE, FALSE, nullptr)),
      m_hChannel{CreateEvent(nullptr, TRUE, FALSE, nullptr), CreateEvent(nullptr, TRUE, FALSE, nullptr)}
{
}

CVoiceThread::~CVoiceThread()
{
    Exit();
    for (HANDLE hEvent : {m_hExited, m_hStop, m_hStarted, m_hChannel[0], m_hChannel[1]}) {
        if (hEvent != nullptr)
            CloseHandle(hEvent);
    }
}

int CVoiceThread::IsValid() const
{
    return m_pDebi != nullptr && m_hExited != nullptr && m_hStop != nullptr && m_hStarted != nullptr &&
           m_hChannel[0] != nullptr && m_hChannel[1] != nullptr;
}

int CVoiceThread::Run()
{
    if (!IsValid())
        return 0;
    if (m_hThread != nullptr) {
        if (!HasExited())
            return 1;
        Exit();
    }
    for (HANDLE hEvent : {m_hStop, m_hExited, m_hStarted, m_hChannel[0], m_hChannel[1]})
        ResetEvent(hEvent);
    m_hThread = CreateThread(nullptr, 0, &CVoiceThread::ThreadProc, this, 0, &m_dwThreadID);
    if (m_hThread == nullptr) {
        m_dwThreadID = 0;
        return 0;
    }
    WaitForSingleObject(m_hStarted, INFINITE);
    return 1;
}

void CVoiceThread::Exit()
{
    if (!IsValid() || m_hThread == nullptr)
        return;
    if (!HasExited()) {
        SetEvent(m_hStop);
        WaitForSingleObject(m_hExited, INFINITE);
    }
    WaitForSingleObject(m_hThread, INFINITE);
    CloseHandle(m_hThread);
    m_hThread = nullptr;
    m_dwThreadID = 0;
}

int CVoiceThread::Start(int nChannel, CVoiceCodec* pCodec)
{
    if (nChannel < 0 || nChannel >= CHANNELS || pCodec == nullptr)
        return 0;
    if (!Run() || IsRunning(nChannel))
        return 0;
    // The thread makes its queue before it reports having started, so a post fails only
    // when the thread has ended.
    if (!PostThreadMessage(m_dwThreadID, WM_VOICE_START, static_cast<WPARAM>(nChannel), reinterpret_cast<LPARAM>(pCodec)))
        return 0;
    const HANDLE handles[] = {m_hChannel[nChannel], m_hExited};
    return WaitForMultipleObjects(2, handles, FALSE, INFINITE) == WAIT_OBJECT_0 ? 1 : 0;
}

void CVoiceThread::Stop(int nChannel)
{
    if (nChannel < 0 || nChannel >= CHANNELS || m_hThread == nullptr)
        return;
    if (IsRunning(nChannel) && !HasExited()) {
        ResetEvent(m_hChannel[nChannel]);
        const HANDLE handles[] = {m_hChannel[nChannel], m_hExited};
        if (PostThreadMessage(m_dwThreadID, WM_VOICE_STOP, static_cast<WPARAM>(nChannel), 0))
            WaitForMultipleObjects(2, handles, FALSE, INFINITE);
        ResetEvent(m_hChannel[nChannel]);
    }
    // The last channel ends the thread; so does finding that it has ended by itself.
    if (!AnyChannel() || HasExited())
        Exit();
}

int CVoiceThread::IsRunning(int nChannel) const
{
    return nChannel >= 0 && nChannel < CHANNELS && IsSignalled(m_hChannel[nChannel]) ? 1 : 0;
}

int CVoiceThread::AnyChannel() const
{
    return m_pCodec[0] != nullptr || m_pCodec[1] != nullptr ? 1 : 0;
}

bool CVoiceThread::HasExited() const
{
    return IsSignalled(m_hExited);
}

DWORD CVoiceThread::ThreadProc(LPVOID lpParameter)
{
    static_cast<CVoiceThread*>(lpParameter)->ThreadMain();
    return 0;
}

// Sleeps in one wait; serves the channels' messages, and polls both channels when the
// wait has run out. A failed bus lock ends it.
void CVoiceThread::ThreadMain()
{
    MSG msg;
    PeekMessage(&msg, nullptr, 0, 0, PM_NOREMOVE);
    SetEvent(m_hStarted);
    for (;;) {
        const DWORD dwWait = MsgWaitForMultipleObjects(1, &m_hStop, FALSE, POLL_MS, QS_ALLPOSTMESSAGE);
        if (dwWait == WAIT_OBJECT_0 + 1) {
            TakeMessages();
            continue;
        }
        if (dwWait != WAIT_TIMEOUT)
            break;
        tag_POLLRESULT nResult = PollChannel(0);
        if (nResult == POLL_DONE)
            nResult = PollChannel(1);
        if (nResult == POLL_END)
            break;
    }
    EndChannels();
    SetEvent(m_hExited);
}

// Every message is taken, so that none outside the two keeps the wait from sleeping.
void CVoiceThread::TakeMessages()
{
    MSG msg;
    while (PeekMessage(&msg, nullptr, 0, 0, PM_REMOVE)) {
        const int nChannel = static_cast<int>(msg.wParam);
        if (msg.wParam >= static_cast<WPARAM>(CHANNELS))
            continue;
        if (msg.message == WM_VOICE_START)
            OnVoiceStart(nChannel, reinterpret_cast<CVoiceCodec*>(msg.lParam));
        else if (msg.message == WM_VOICE_STOP)
            OnVoiceStop(nChannel);
    }
}

// Both answer through the channel's event, which the caller waits for.
void CVoiceThread::OnVoiceStart(int nChannel, CVoiceCodec* pCodec)
{
    if (m_pCodec[nChannel] == nullptr) {
        WriteCommand(SOUND_COMMAND_START, nChannel);
        m_pCodec[nChannel] = pCodec;
    }
    SetEvent(m_hChannel[nChannel]);
}

void CVoiceThread::OnVoiceStop(int nChannel)
{
    if (m_pCodec[nChannel] != nullptr) {
        WriteCommand(SOUND_COMMAND_STOP, nChannel);
        m_pCodec[nChannel] = nullptr;
    }
    SetEvent(m_hChannel[nChannel]);
}

// The thread ends: the processor stops both channels, and no channel runs any more.
void CVoiceThread::EndChannels()
{
    for (int nChannel = 0; nChannel < CHANNELS; ++nChannel) {
        if (m_pCodec[nChannel] != nullptr) {
            WriteCommand(SOUND_COMMAND_STOP, nChannel);
            m_pCodec[nChannel] = nullptr;
        }
        ResetEvent(m_hChannel[nChannel]);
    }
}

// Moves every whole block the processor holds for the channel into its codec, with the
// bus held. The codec's mutex is held only while a block goes in, never across a pause:
// a frame never waits for the bus.
CVoiceThread::tag_POLLRESULT CVoiceThread::PollChannel(int nChannel)
{
    if (IsSignalled(m_hStop))
        return POLL_END;
    CVoiceCodec* pCodec = m_pCodec[nChannel];
    if (pCodec == nullptr)
        return POLL_DONE;
    if (!m_pDebi->Lock(kBusLockMs))
        return POLL_END;
    tag_POLLRESULT nResult = RequestAndPause(nChannel);
    BYTE byCount = nResult == POLL_DONE ? ReadCount(nChannel) : kCountNone;
    while (HasWholeBlock(byCount) && MoveBlock(*pCodec)) {
        byCount -= kQuartersPerBlock;
        if (byCount < kQuartersPerBlock)
            break;
        nResult = RequestAndPause(nChannel);
        byCount = nResult == POLL_DONE ? ReadCount(nChannel) : kCountNone;
    }
    m_pDebi->Unlock();
    return nResult;
}

// A request, then the pause the processor needs; a stop or a message cuts it short.
CVoiceThread::tag_POLLRESULT CVoiceThread::RequestAndPause(int nChannel)
{
    WriteCommand(SOUND_COMMAND_REQUEST, nChannel);
    const DWORD dwWait = MsgWaitForMultipleObjects(1, &m_hStop, FALSE, kRequestPauseMs, QS_ALLPOSTMESSAGE);
    if (dwWait == WAIT_TIMEOUT)
        return POLL_DONE;
    return dwWait == WAIT_OBJECT_0 + 1 ? POLL_INTERRUPTED : POLL_END;
}

BYTE CVoiceThread::ReadCount(int nChannel)
{
    BYTE byCount = kCountNone;
    if (m_pDebi->ReadDebiByte(static_cast<WORD>(BUS_ADDRESS_SOUNDCOUNT + nChannel), byCount, kByteRetries) != 1)
        return kCountNone;
    return byCount;
}

// One block into the codec's buffer behind what it holds; when it wouldn't fit, it
// replaces the last block, so the buffer is never passed. A block the bus doesn't
// deliver whole isn't taken.
bool CVoiceThread::MoveBlock(CVoiceCodec& codec)
{
    int nHeld = 0;
    BYTE* pCode = codec.LockCode(nHeld);
    if (pCode == nullptr)
        return false;
    const int nPos = nHeld + BLOCK_BYTES > CVoiceCodec::CODE_BYTES ? nHeld - BLOCK_BYTES : nHeld;
    const bool bRead =
        m_pDebi->ReadDebiBlock(BUS_ADDRESS_SOUNDBLOCK, pCode + nPos, BLOCK_BYTES, kBlockRetries) == BLOCK_BYTES;
    codec.UnlockCode(bRead ? nPos + BLOCK_BYTES : nHeld);
    return bRead;
}

void CVoiceThread::WriteCommand(BYTE byKind, int nChannel)
{
    m_pDebi->WriteDebiByte(BUS_ADDRESS_COMMAND, static_cast<BYTE>(byKind + nChannel), kByteRetries);
}
