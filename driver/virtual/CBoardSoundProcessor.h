// The sound processor of a virtual board: two inputs, each hearing a CWaveSignal (a
// generator or a WAVE file), coded into 360-byte blocks of the speech code at the real
// rate by the platform clock, and shown on the byte bus as the board shows them: start,
// stop and request commands, counts in quarter blocks, block reads. Faults are set per
// channel. Shared by the board's bus and whoever installed the board; thread-safe.
#pragma once

#include "driver/CSpeechEncoder.h"
#include "driver/virtual/CBoardSoundPort.h"
#include "platform/CWaveSignal.h"
#include "platform/Export.h"
#include "platform/WinTypes.h"

#include <functional>
#include <memory>
#include <mutex>
#include <string>

enum tag_SOUNDFAULT : int {
    SOUNDFAULT_NONE = 0,
    SOUNDFAULT_STALLED = 1,  // the channel codes nothing more: its count stands still
    SOUNDFAULT_BUSY = 2,     // the count reads 255 whatever is ready; coding goes on
};

// The sound of a board, as a host or test installs it.
struct tag_BOARDSOUND {
    // What each input hears: by default speech, varied by the channel.
    tag_WAVESIGNAL inputs[2] = {{WAVESIGNAL_SPEECH, 440.0, 8000.0, 1, {}}, {WAVESIGNAL_SPEECH, 440.0, 8000.0, 2, {}}};
    // Makes a channel's coder at each start. Without it the board has no sound processor.
    std::function<std::unique_ptr<CSpeechEncoder>()> pfnCreateEncoder;
};

// What a channel has done since its last start.
struct tag_SOUNDCHANNELSTATE {
    bool bRunning;
    DWORD dwBlocksCoded;
    DWORD dwBlocksRead;
    DWORD dwBlocksLost;  // pushed out of the board's buffer by newer ones
};

class ZNDVR_API CBoardSoundProcessor : public CBoardSoundPort {
public:
    static constexpr int CHANNELS = 2;
    static constexpr int BLOCK_BYTES = 360;     // 960 samples, 120 ms
    static constexpr int BLOCK_SAMPLES = 960;
    static constexpr DWORD BLOCK_MS = 120;
    static constexpr DWORD QUARTER_MS = BLOCK_MS / 4;
    // The board's buffer holds this many blocks a channel (1.92 s); newer blocks push
    // out the oldest.
    static constexpr int BLOCKS_HELD = 16;
    static constexpr BYTE COUNT_NONE = 255;

    // Null when an input's signal can't be made or the buffers can't be had; strError
    // then says why.
    static std::shared_ptr<CBoardSoundProcessor> Create(const tag_BOARDSOUND& setup, std::string& strError);
    ~CBoardSoundProcessor() override;

    // Start, stop or request for a channel; other bytes are passed over.
    void OnCommand(BYTE byCommand) override;
    // The count the last request of the channel found; COUNT_NONE before any.
    BYTE ReadCount(int nChannel) override;
    // The oldest block of the channel the last request was for, once; -1 without one.
    int ReadBlock(BYTE* pData, int nLen) override;

    void SetFault(int nChannel, tag_SOUNDFAULT nFault);
    tag_SOUNDCHANNELSTATE GetChannelState(int nChannel) const;

private:
    struct tag_CHANNEL;

    CBoardSoundProcessor();
    void Start(tag_CHANNEL& channel);
    void Stop(tag_CHANNEL& channel);
    void Request(tag_CHANNEL& channel, int nChannel);
    DWORD Now(const tag_CHANNEL& channel) const;
    void Produce(tag_CHANNEL& channel);
    void MakeBlock(tag_CHANNEL& channel);
    void DropOldest(tag_CHANNEL& channel);

    mutable std::mutex m_mutex;
    tag_BOARDSOUND m_setup;
    std::unique_ptr<tag_CHANNEL[]> m_pChannels;
    // The channel whose block the last request made ready, or -1.
    int m_nReadyChannel = -1;
};
