// Deterministic test signals for the speech codec: 16-bit PCM at 8000 samples a second.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <span>
#include <vector>

namespace adpcm_signals {

inline constexpr double kSampleRate = 8000.0;

inline short ToSample(double value)
{
    return static_cast<short>(std::clamp(std::lround(value), -32768L, 32767L));
}

// A sine whose frequency rises linearly from dFromHz to dToHz over the signal.
inline std::vector<short> SineSweep(int nSamples, double dFromHz, double dToHz, double dAmplitude)
{
    std::vector<short> pcm(static_cast<std::size_t>(nSamples));
    double dPhase = 0.0;
    for (int n = 0; n < nSamples; ++n) {
        double dHz = dFromHz + (dToHz - dFromHz) * n / nSamples;
        dPhase += 2.0 * std::numbers::pi * dHz / kSampleRate;
        pcm[static_cast<std::size_t>(n)] = ToSample(dAmplitude * std::sin(dPhase));
    }
    return pcm;
}

// Near-Gaussian white noise (sum of four uniform values) with the given deviation. The
// generator's raw output is the same on every standard library, so the signal is too.
inline std::vector<short> Noise(int nSamples, double dDeviation, std::uint32_t dwSeed)
{
    std::mt19937 generator(dwSeed);
    std::vector<short> pcm(static_cast<std::size_t>(nSamples));
    for (short& sample : pcm) {
        double dSum = 0.0;
        for (int k = 0; k < 4; ++k)
            dSum += static_cast<double>(generator()) / 4294967296.0 - 0.5;
        // Four uniform values of variance 1/12 each: deviation 1/sqrt(3).
        sample = ToSample(dSum * std::sqrt(3.0) * dDeviation);
    }
    return pcm;
}

// Speech-like sound: syllables of a voiced harmonic tone with a gliding pitch, hissing
// fricative bursts and pauses, with rising and falling loudness.
inline std::vector<short> SpeechLike(int nSamples, std::uint32_t dwSeed)
{
    std::mt19937 generator(dwSeed);
    std::vector<short> pcm(static_cast<std::size_t>(nSamples));
    double dPhase = 0.0;
    for (int n = 0; n < nSamples; ++n) {
        double t = n / kSampleRate;
        int nSyllable = n / 1600;
        double dInSyllable = (n % 1600) / 1600.0;
        double dEnvelope = std::sin(std::numbers::pi * dInSyllable);
        double dValue = 0.0;
        switch (nSyllable % 4) {
        case 0:
        case 2: {
            double dPitch = 110.0 + 40.0 * std::sin(2.0 * std::numbers::pi * 0.7 * t) + 15.0 * (nSyllable % 4);
            dPhase += 2.0 * std::numbers::pi * dPitch / kSampleRate;
            for (int h = 1; h <= 12; ++h)
                dValue += std::sin(h * dPhase) / h;
            dValue *= 9000.0 * dEnvelope;
            break;
        }
        case 1:
            dValue = (static_cast<double>(generator()) / 4294967296.0 - 0.5) * 6000.0 * dEnvelope;
            break;
        default:
            break;
        }
        pcm[static_cast<std::size_t>(n)] = ToSample(dValue);
    }
    return pcm;
}

// Signal-to-noise ratio in dB of the decoded samples, brought back to the 16-bit scale
// of the input (decoded values are a quarter of the encoded amplitude).
inline double SnrDb(std::span<const short> original, std::span<const short> decoded)
{
    double dSignal = 0.0;
    double dNoise = 0.0;
    for (std::size_t n = 0; n < original.size(); ++n) {
        double dError = original[n] - 4.0 * decoded[n];
        dSignal += static_cast<double>(original[n]) * original[n];
        dNoise += dError * dError;
    }
    return 10.0 * std::log10(dSignal / std::max(dNoise, 1.0));
}

} // namespace adpcm_signals
