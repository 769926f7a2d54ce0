#include "sound/CVoiceCodec.h"

#include "platform/WinThreads.h"
#include "sound/CVoiceThread.h"

#include <algorithm>
#include <cstring>
#include <new>

CVoiceCodec::CVoiceCodec() = default;

CVoiceCodec::~CVoiceCodec()
{
    CVoiceCodec::Close();
}

int CVoiceCodec::OpenVoice(CVoiceThread* pThread, int nChannel)
{
    if (m_nChannel != NO_CHANNEL || (nChannel != 0 && nChannel != 1) || pThread == nullptr)
        return 0;
    m_pCode.reset(new (std::nothrow) BYTE[CODE_BYTES]);
    m_hMutex = CreateMutex(nullptr, FALSE, nullptr);
    if (m_pCode == nullptr || m_hMutex == nullptr) {
        Close();
        return 0;
    }
    m_pVoiceThread = pThread;
    m_nChannel = static_cast<DWORD>(nChannel);
    m_nCodeLen = 0;
    return 1;
}

int CVoiceCodec::StartRecord()
{
    if (m_nChannel == NO_CHANNEL)
        return 0;
    if (m_bStarted)
        return 1;
    m_bStarted = m_pVoiceThread->Start(static_cast<int>(m_nChannel), this);
    return m_bStarted;
}

int CVoiceCodec::OnRecordData(WPARAM, LPARAM)
{
    return 0;
}

int CVoiceCodec::GetRecordData(BYTE* pData, int& nLen, int nMaxLen)
{
    if (!m_bStarted || m_pCode == nullptr || pData == nullptr)
        return 0;
    const DWORD dwWait = WaitForSingleObject(m_hMutex, CODE_WAIT_MS);
    if (dwWait != WAIT_OBJECT_0 && dwWait != WAIT_ABANDONED_0) {
        nLen = 0;
        return 0;
    }
    const int nCopy = std::clamp(m_nCodeLen, 0, std::max(nMaxLen, 0));
    std::memcpy(pData, m_pCode.get(), static_cast<std::size_t>(nCopy));
    nLen = nCopy;
    m_nCodeLen = 0;
    ReleaseMutex(m_hMutex);
    return 1;
}

void CVoiceCodec::Close()
{
    if (m_nChannel != NO_CHANNEL && m_bStarted)
        m_pVoiceThread->Stop(static_cast<int>(m_nChannel));
    m_bStarted = 0;
    m_pCode.reset();
    if (m_hMutex != nullptr)
        CloseHandle(m_hMutex);
    m_hMutex = nullptr;
    m_nCodeLen = 0;
    m_pVoiceThread = nullptr;
    m_nChannel = NO_CHANNEL;
}

BYTE* CVoiceCodec::LockCode(int& nPos)
{
    if (m_pCode == nullptr || m_hMutex == nullptr)
        return nullptr;
    WaitForSingleObject(m_hMutex, INFINITE);
    nPos = m_nCodeLen;
    return m_pCode.get();
}

void CVoiceCodec::UnlockCode(int nPos)
{
    m_nCodeLen = nPos;
    ReleaseMutex(m_hMutex);
}
