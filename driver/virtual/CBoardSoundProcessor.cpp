#include "driver/virtual/CBoardSoundProcessor.h"

#include "driver/CSpciDebi.h"
#include "platform/TickClock.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr BYTE kCommandKind = 0xF0;
constexpr BYTE kCommandChannel = 0x0F;
// The most a count says: a full buffer and three quarters of the next block.
constexpr DWORD kMaxCount = CBoardSoundProcessor::BLOCKS_HELD * 4 + 3;

WAVEFORMATEX SpeechFormat()
{
    return WAVEFORMATEX{WAVE_FORMAT_PCM, 1, 8000, 16000, 2, 16, 0};
}

} // namespace

// One input: its signal and coder while it runs, and its buffer, a ring of blocks whose
// oldest began at dwBase on the clock.
struct CBoardSoundProcessor::tag_CHANNEL {
    CWaveSignal input;
    CWaveSignal signal;
    std::unique_ptr<CSpeechEncoder> pEncoder;
    bool bRunning = false;
    tag_SOUNDFAULT nFault = SOUNDFAULT_NONE;
    DWORD dwStallTime = 0;
    DWORD dwBase = 0;
    BYTE blocks[BLOCKS_HELD][BLOCK_BYTES] = {};
    int nFirst = 0;
    int nHeld = 0;
    BYTE byCount = COUNT_NONE;
    tag_SOUNDCHANNELSTATE state{};
    short pcm[BLOCK_SAMPLES] = {};
};

std::shared_ptr<CBoardSoundProcessor> CBoardSoundProcessor::Create(const tag_BOARDSOUND& setup, std::string& strError)
{
    std::shared_ptr<CBoardSoundProcessor> pProcessor(new (std::nothrow) CBoardSoundProcessor);
    if (pProcessor == nullptr || pProcessor->m_pChannels == nullptr) {
        strError = "out of memory for the board's sound";
        return nullptr;
    }
    pProcessor->m_setup = setup;
    for (int nChannel = 0; nChannel < CHANNELS; ++nChannel) {
        CWaveSignal& input = pProcessor->m_pChannels[nChannel].input;
        if (!input.Open(setup.inputs[nChannel], SpeechFormat())) {
            strError = "sound input " + std::to_string(nChannel) + ": " + input.GetError();
            return nullptr;
        }
    }
    return pProcessor;
}

CBoardSoundProcessor::CBoardSoundProcessor() : m_pChannels(new (std::nothrow) tag_CHANNEL[CHANNELS])
{
}

CBoardSoundProcessor::~CBoardSoundProcessor() = default;

void CBoardSoundProcessor::OnCommand(BYTE byCommand)
{
    const int nChannel = byCommand & kCommandChannel;
    if (nChannel >= CHANNELS)
        return;
    std::lock_guard lock(m_mutex);
    tag_CHANNEL& channel = m_pChannels[nChannel];
    switch (byCommand & kCommandKind) {
    case SOUND_COMMAND_START:
        Start(channel);
        break;
    case SOUND_COMMAND_STOP:
        Stop(channel);
        if (m_nReadyChannel == nChannel)
            m_nReadyChannel = -1;
        break;
    case SOUND_COMMAND_REQUEST:
        Request(channel, nChannel);
        break;
    default:
        break;
    }
}

BYTE CBoardSoundProcessor::ReadCount(int nChannel)
{
    std::lock_guard lock(m_mutex);
    return nChannel >= 0 && nChannel < CHANNELS ? m_pChannels[nChannel].byCount : COUNT_NONE;
}

int CBoardSoundProcessor::ReadBlock(BYTE* pData, int nLen)
{
    std::lock_guard lock(m_mutex);
    if (m_nReadyChannel < 0 || pData == nullptr || nLen < 1)
        return -1;
    tag_CHANNEL& channel = m_pChannels[m_nReadyChannel];
    m_nReadyChannel = -1;
    if (channel.nHeld == 0)
        return -1;
    const int nCopy = std::min(nLen, BLOCK_BYTES);
    std::memcpy(pData, channel.blocks[channel.nFirst], static_cast<std::size_t>(nCopy));
    DropOldest(channel);
    ++channel.state.dwBlocksRead;
    return nCopy;
}

void CBoardSoundProcessor::SetFault(int nChannel, tag_SOUNDFAULT nFault)
{
    if (nChannel < 0 || nChannel >= CHANNELS)
        return;
    std::lock_guard lock(m_mutex);
    tag_CHANNEL& channel = m_pChannels[nChannel];
    if (nFault == channel.nFault)
        return;
    // A stall freezes the channel's time; when it ends the coding goes on from there.
    if (nFault == SOUNDFAULT_STALLED) {
        channel.dwStallTime = GetTickCount();
    } else if (channel.nFault == SOUNDFAULT_STALLED) {
        channel.dwBase += GetTickCount() - channel.dwStallTime;
    }
    channel.nFault = nFault;
}

tag_SOUNDCHANNELSTATE CBoardSoundProcessor::GetChannelState(int nChannel) const
{
    std::lock_guard lock(m_mutex);
    return nChannel >= 0 && nChannel < CHANNELS ? m_pChannels[nChannel].state : tag_SOUNDCHANNELSTATE{};
}

// The input is heard from the start of its signal, through a coder at the start of its
// stream, as when the processor starts a channel. Its buffer is empty: a stop left it so.
void CBoardSoundProcessor::Start(tag_CHANNEL& channel)
{
    if (channel.bRunning)
        return;
    channel.pEncoder = m_setup.pfnCreateEncoder ? m_setup.pfnCreateEncoder() : nullptr;
    if (channel.pEncoder == nullptr)
        return;
    channel.signal = channel.input;
    channel.bRunning = true;
    channel.dwBase = GetTickCount();
    channel.dwStallTime = channel.dwBase;
    channel.state = tag_SOUNDCHANNELSTATE{true, 0, 0, 0};
}

void CBoardSoundProcessor::Stop(tag_CHANNEL& channel)
{
    channel.bRunning = false;
    channel.state.bRunning = false;
    channel.pEncoder.reset();
    channel.nHeld = 0;
    channel.byCount = COUNT_NONE;
}

// Codes what has come in, then latches the count: the sound since the oldest block
// held began, in quarter blocks.
void CBoardSoundProcessor::Request(tag_CHANNEL& channel, int nChannel)
{
    if (!channel.bRunning) {
        channel.byCount = COUNT_NONE;
        return;
    }
    Produce(channel);
    const DWORD dwQuarters = std::min((Now(channel) - channel.dwBase) / QUARTER_MS, kMaxCount);
    channel.byCount = channel.nFault == SOUNDFAULT_BUSY ? COUNT_NONE : static_cast<BYTE>(dwQuarters);
    m_nReadyChannel = nChannel;
}

DWORD CBoardSoundProcessor::Now(const tag_CHANNEL& channel) const
{
    return channel.nFault == SOUNDFAULT_STALLED ? channel.dwStallTime : GetTickCount();
}

void CBoardSoundProcessor::Produce(tag_CHANNEL& channel)
{
    if (!channel.bRunning)
        return;
    const DWORD dwBlocksDue = (Now(channel) - channel.dwBase) / BLOCK_MS;
    DWORD dwToMake = dwBlocksDue - static_cast<DWORD>(channel.nHeld);
    // After a long time without requests only the newest buffer-full is coded: older
    // blocks would have been pushed out, and the signal passes them by.
    if (dwToMake > static_cast<DWORD>(BLOCKS_HELD)) {
        const DWORD dwSkipped = dwToMake - BLOCKS_HELD;
        channel.state.dwBlocksLost += static_cast<DWORD>(channel.nHeld) + dwSkipped;
        channel.dwBase += (static_cast<DWORD>(channel.nHeld) + dwSkipped) * BLOCK_MS;
        channel.nHeld = 0;
        for (DWORD dw = 0; dw < dwSkipped; ++dw)
            channel.signal.Skip(BLOCK_SAMPLES);
        dwToMake = BLOCKS_HELD;
    }
    for (DWORD dw = 0; dw < dwToMake; ++dw)
        MakeBlock(channel);
}

void CBoardSoundProcessor::MakeBlock(tag_CHANNEL& channel)
{
    if (channel.nHeld == BLOCKS_HELD) {
        DropOldest(channel);
        ++channel.state.dwBlocksLost;
    }
    BYTE* pBlock = channel.blocks[(channel.nFirst + channel.nHeld) % BLOCKS_HELD];
    channel.signal.Generate(reinterpret_cast<BYTE*>(channel.pcm), BLOCK_SAMPLES);
    if (!channel.pEncoder->Encode(channel.pcm, pBlock, BLOCK_SAMPLES))
        std::memset(pBlock, 0, BLOCK_BYTES);
    ++channel.nHeld;
    ++channel.state.dwBlocksCoded;
}

void CBoardSoundProcessor::DropOldest(tag_CHANNEL& channel)
{
    channel.nFirst = (channel.nFirst + 1) % BLOCKS_HELD;
    --channel.nHeld;
    channel.dwBase += BLOCK_MS;
}
