#include "platform/CWaveSignal.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

// Speech-like sound is built of syllables of this length: voiced, hissed, voiced, pause.
constexpr double kSyllableSeconds = 0.2;
constexpr int kSyllableKinds = 4;
constexpr int kHarmonics = 12;
// Pitch of the voiced syllables: a base that glides slowly up and down.
constexpr double kBasePitchHz = 110.0;
constexpr double kPitchSwingHz = 40.0;
constexpr double kPitchGlideHz = 0.7;
// Hissing is quieter than voice, as fricatives are.
constexpr double kHissShare = 0.6;

double ToSixteenBit(double dValue)
{
    return std::clamp(std::round(dValue), -32768.0, 32767.0);
}

bool IsUsableFormat(const WAVEFORMATEX& format)
{
    return format.wFormatTag == WAVE_FORMAT_PCM && format.nChannels >= 1 && format.nChannels <= 2 &&
           (format.wBitsPerSample == 8 || format.wBitsPerSample == 16) && format.nSamplesPerSec > 0;
}

// The file's frames as mono values on the 16-bit scale; stereo frames are averaged.
std::vector<float> ToMono(const tag_WAVEFILEDATA& wave)
{
    const WORD wChannels = wave.format.nChannels;
    const bool bSixteen = wave.format.wBitsPerSample == 16;
    const std::size_t nFrames = wave.data.size() / wave.format.nBlockAlign;
    std::vector<float> samples(nFrames);
    const BYTE* p = wave.data.data();
    for (std::size_t n = 0; n < nFrames; ++n) {
        float fSum = 0.0f;
        for (WORD c = 0; c < wChannels; ++c) {
            if (bSixteen) {
                fSum += static_cast<float>(static_cast<std::int16_t>(p[0] | p[1] << 8));
                p += 2;
            } else {
                fSum += static_cast<float>((p[0] - 128) * 256);
                p += 1;
            }
        }
        samples[n] = fSum / wChannels;
    }
    return samples;
}

} // namespace

bool CWaveSignal::Open(const tag_WAVESIGNAL& signal, const WAVEFORMATEX& format)
{
    m_signal = signal;
    m_format = format;
    m_nSample = 0;
    m_dPhase = 0.0;
    m_dwNoise = (signal.dwSeed * 2654435761u) | 1u; // xorshift stays at 0 once there
    m_fileSamples.clear();
    m_dFilePos = 0.0;
    m_strError.clear();
    if (!IsUsableFormat(format)) {
        m_strError = "the format isn't PCM with 1 or 2 channels of 8 or 16 bits";
        return false;
    }
    if (signal.nKind != WAVESIGNAL_FILE)
        return true;
    tag_WAVEFILEDATA wave;
    if (!ReadWaveFile(signal.strFile.c_str(), wave, m_strError))
        return false;
    if (wave.data.empty()) {
        m_strError = signal.strFile + ": no sound in the file";
        return false;
    }
    m_fileSamples = ToMono(wave);
    m_dFileStep = static_cast<double>(wave.format.nSamplesPerSec) / format.nSamplesPerSec;
    return true;
}

const std::string& CWaveSignal::GetError() const
{
    return m_strError;
}

void CWaveSignal::Generate(BYTE* pData, DWORD nFrames)
{
    for (DWORD n = 0; n < nFrames; ++n) {
        const int nValue = static_cast<int>(ToSixteenBit(NextSample()));
        for (WORD c = 0; c < m_format.nChannels; ++c) {
            if (m_format.wBitsPerSample == 16) {
                *pData++ = static_cast<BYTE>(nValue & 0xFF);
                *pData++ = static_cast<BYTE>((nValue >> 8) & 0xFF);
            } else {
                // 8-bit PCM is unsigned, silence at 128.
                *pData++ = static_cast<BYTE>((nValue >> 8) + 128);
            }
        }
    }
}

void CWaveSignal::Skip(DWORD nFrames)
{
    for (DWORD n = 0; n < nFrames; ++n)
        NextSample();
}

double CWaveSignal::NextSample()
{
    double dValue = 0.0;
    switch (m_signal.nKind) {
    case WAVESIGNAL_TONE:
        dValue = m_signal.dAmplitude *
                 std::sin(2.0 * std::numbers::pi * m_signal.dFrequency * static_cast<double>(m_nSample) / m_format.nSamplesPerSec);
        break;
    case WAVESIGNAL_SPEECH:
        dValue = NextSpeechSample();
        break;
    case WAVESIGNAL_FILE:
        dValue = NextFileSample();
        break;
    case WAVESIGNAL_SILENCE:
        break;
    }
    ++m_nSample;
    return dValue;
}

// Syllables with a rising and falling loudness: a voiced harmonic tone of gliding pitch,
// a hissing burst, a voiced tone a little higher, a pause.
double CWaveSignal::NextSpeechSample()
{
    const double dRate = m_format.nSamplesPerSec;
    const double t = static_cast<double>(m_nSample) / dRate;
    const unsigned long long nSyllableSamples = static_cast<unsigned long long>(kSyllableSeconds * dRate);
    const unsigned long long nSyllable = m_nSample / std::max(nSyllableSamples, 1ull);
    const double dInSyllable = static_cast<double>(m_nSample % std::max(nSyllableSamples, 1ull)) / nSyllableSamples;
    const double dEnvelope = std::sin(std::numbers::pi * dInSyllable);
    const int nKind = static_cast<int>((nSyllable + m_signal.dwSeed) % kSyllableKinds);
    if (nKind == 1)
        return NextNoise() * kHissShare * m_signal.dAmplitude * dEnvelope;
    if (nKind == 3)
        return 0.0;
    const double dPitch = kBasePitchHz + kPitchSwingHz * std::sin(2.0 * std::numbers::pi * kPitchGlideHz * t) +
                          15.0 * nKind + 5.0 * (m_signal.dwSeed % 8);
    m_dPhase = std::fmod(m_dPhase + 2.0 * std::numbers::pi * dPitch / dRate, 2.0 * std::numbers::pi);
    double dValue = 0.0;
    for (int h = 1; h <= kHarmonics; ++h)
        dValue += std::sin(h * m_dPhase) / h;
    // The harmonic sum peaks near 1.7 times its first term.
    return dValue / 1.7 * m_signal.dAmplitude * dEnvelope;
}

// Linear interpolation between the file's samples, looping at its end.
double CWaveSignal::NextFileSample()
{
    const std::size_t nCount = m_fileSamples.size();
    const auto nIndex = static_cast<std::size_t>(m_dFilePos);
    const double dFraction = m_dFilePos - static_cast<double>(nIndex);
    const double dFirst = m_fileSamples[nIndex % nCount];
    const double dValue = dFraction == 0.0 ? dFirst : dFirst + (m_fileSamples[(nIndex + 1) % nCount] - dFirst) * dFraction;
    m_dFilePos += m_dFileStep;
    if (m_dFilePos >= static_cast<double>(nCount))
        m_dFilePos -= static_cast<double>(nCount);
    return dValue;
}

// Uniform noise in [-1, 1) from a 32-bit xorshift generator (Marsaglia 2003), the same
// on every machine.
double CWaveSignal::NextNoise()
{
    m_dwNoise ^= m_dwNoise << 13;
    m_dwNoise ^= m_dwNoise >> 17;
    m_dwNoise ^= m_dwNoise << 5;
    return static_cast<double>(m_dwNoise) / 2147483648.0 - 1.0;
}
