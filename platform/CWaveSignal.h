// The sound a virtual wave-in device records: a tone, a speech-like signal, silence or
// the samples of a WAVE file, produced sample by sample in any PCM format. A test or a
// host makes a second signal of the same description to know what a device recorded.
// Owned by its maker; one thread at a time.
#pragma once

#include "platform/Export.h"
#include "platform/WaveFile.h"
#include "platform/WinTypes.h"
#include "platform/WinWave.h"

#include <string>
#include <vector>

enum tag_WAVESIGNALKIND : int {
    WAVESIGNAL_SILENCE = 0,
    WAVESIGNAL_TONE = 1,
    WAVESIGNAL_SPEECH = 2,
    WAVESIGNAL_FILE = 3,
};

struct tag_WAVESIGNAL {
    tag_WAVESIGNALKIND nKind = WAVESIGNAL_SPEECH;
    double dFrequency = 440.0;  // a tone's, in Hz
    double dAmplitude = 8000.0; // peak of a tone, loudest peaks of speech, on the 16-bit scale
    DWORD dwSeed = 1;           // varies the speech
    std::string strFile;        // a WAVE file, played in a loop
};

class ZNDVR_API CWaveSignal {
public:
    // Ready to produce the signal in the format (PCM, 1 or 2 channels, 8 or 16 bits),
    // from its start. false when the format isn't such, or the file can't be read;
    // GetError then says why.
    bool Open(const tag_WAVESIGNAL& signal, const WAVEFORMATEX& format);
    // The next nFrames sample frames, in the format, into pData. Every channel carries
    // the same sample.
    void Generate(BYTE* pData, DWORD nFrames);
    // Passes over nFrames frames, as if they had been produced.
    void Skip(DWORD nFrames);
    const std::string& GetError() const;

private:
    double NextSample();
    double NextSpeechSample();
    double NextFileSample();
    double NextNoise();

    tag_WAVESIGNAL m_signal;
    WAVEFORMATEX m_format{};
    unsigned long long m_nSample = 0;
    double m_dPhase = 0.0;
    DWORD m_dwNoise = 0;
    // The file's sound as mono values, and the read position in its samples.
    std::vector<float> m_fileSamples;
    double m_dFilePos = 0.0;
    double m_dFileStep = 1.0;
    std::string m_strError;
};
