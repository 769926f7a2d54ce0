// What the speech codec does to sound: the decoder follows the encoder's state exactly,
// and the decoded signal stays close to what was encoded.
#include "AdpcmSignals.h"
#include "sound/CAdpcm.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace {

// Every kind of input the codec meets, one after the other: speech, a tone sweeping the
// band, noise, silence and a full-scale square wave that drives the scale factor and the
// predictor to their limits.
std::vector<short> MixedSignal()
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(24000, 21);
    auto append = [&pcm](const std::vector<short>& part) { pcm.insert(pcm.end(), part.begin(), part.end()); };
    append(adpcm_signals::SineSweep(16000, 50.0, 3950.0, 30000.0));
    append(adpcm_signals::Noise(16000, 8000.0, 22));
    append(std::vector<short>(4000, 0));
    std::vector<short> square(16000);
    for (std::size_t n = 0; n < square.size(); ++n)
        square[n] = (n / 37) % 2 ? 32767 : -32768;
    append(square);
    append(adpcm_signals::Noise(8000, 300.0, 23));
    return pcm;
}

TEST(AdpcmStates, DecoderStateEqualsEncoderStateAfterEverySample)
{
    std::vector<short> pcm = MixedSignal();
    tag_G72XSTATE encoderState;
    tag_G72XSTATE decoderState;
    CAdpcm::InitState(encoderState);
    CAdpcm::InitState(decoderState);
    ASSERT_EQ(encoderState, decoderState);
    bool bReachedScaleLimit = false;
    for (std::size_t n = 0; n < pcm.size(); ++n) {
        int nCode = CAdpcm::EncodeSample(pcm[n], encoderState);
        ASSERT_GE(nCode, 0);
        ASSERT_LE(nCode, 7);
        CAdpcm::DecodeSample(nCode, decoderState);
        ASSERT_EQ(encoderState, decoderState) << "states part at sample " << n;
        bReachedScaleLimit = bReachedScaleLimit || encoderState.yu == 5120;
    }
    EXPECT_TRUE(bReachedScaleLimit) << "the signal should drive the scale factor to its limit";
}

TEST(AdpcmStates, ObjectsCarryTheSameStreamAsTheSampleFunctions)
{
    std::vector<short> pcm = MixedSignal();
    pcm.resize(pcm.size() / CAdpcm::kMaxSamples * CAdpcm::kMaxSamples);
    tag_G72XSTATE encoderState;
    tag_G72XSTATE decoderState;
    CAdpcm::InitState(encoderState);
    CAdpcm::InitState(decoderState);
    std::vector<short> expected;
    for (short sample : pcm)
        expected.push_back(CAdpcm::DecodeSample(CAdpcm::EncodeSample(sample, encoderState), decoderState));

    CAdpcm encoder;
    CAdpcm decoder;
    ASSERT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    ASSERT_EQ(decoder.Init(CAdpcm::kModeDecoder), 1);
    std::vector<BYTE> code(CAdpcm::kMaxCodeBytes);
    std::vector<short> decoded(pcm.size());
    for (std::size_t n = 0; n < pcm.size(); n += CAdpcm::kMaxSamples) {
        ASSERT_EQ(encoder.Encode(&pcm[n], code.data(), CAdpcm::kMaxSamples, 0), 1);
        ASSERT_EQ(decoder.Decode(code.data(), &decoded[n], CAdpcm::kMaxCodeBytes, 0), 1);
    }
    EXPECT_EQ(decoded, expected);
}

double RoundTripSnrDb(const std::vector<short>& pcm)
{
    CAdpcm encoder;
    CAdpcm decoder;
    EXPECT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    EXPECT_EQ(decoder.Init(CAdpcm::kModeDecoder), 1);
    std::vector<BYTE> code(CAdpcm::kMaxCodeBytes);
    std::vector<short> decoded(pcm.size());
    for (std::size_t n = 0; n + CAdpcm::kMaxSamples <= pcm.size(); n += CAdpcm::kMaxSamples) {
        EXPECT_EQ(encoder.Encode(&pcm[n], code.data(), CAdpcm::kMaxSamples, 0), 1);
        EXPECT_EQ(decoder.Decode(code.data(), &decoded[n], CAdpcm::kMaxCodeBytes, 0), 1);
    }
    return adpcm_signals::SnrDb(pcm, decoded);
}

// Floors lie about 3 dB below what the codec measures, so that a wrong table or a lost
// bit of precision fails while the arithmetic stays free to be rearranged bit-exactly.
TEST(AdpcmQuality, SineSweepRoundTripKeepsItsSignalToNoiseRatio)
{
    std::vector<short> sweep = adpcm_signals::SineSweep(3 * CAdpcm::kMaxSamples, 100.0, 3400.0, 16000.0);
    double dSnr = RoundTripSnrDb(sweep);
    std::printf("sine sweep 100-3400 Hz at -6 dBFS: SNR %.2f dB\n", dSnr);
    RecordProperty("SweepSnrDb", std::to_string(dSnr));
    EXPECT_GT(dSnr, 27.0);
}

TEST(AdpcmQuality, NoiseRoundTripKeepsItsSignalToNoiseRatio)
{
    std::vector<short> noise = adpcm_signals::Noise(3 * CAdpcm::kMaxSamples, 4000.0, 31);
    double dSnr = RoundTripSnrDb(noise);
    std::printf("white noise, deviation 4000: SNR %.2f dB\n", dSnr);
    RecordProperty("NoiseSnrDb", std::to_string(dSnr));
    EXPECT_GT(dSnr, 11.0);
}

TEST(AdpcmQuality, SpeechLikeRoundTripKeepsItsSignalToNoiseRatio)
{
    std::vector<short> speech = adpcm_signals::SpeechLike(3 * CAdpcm::kMaxSamples, 32);
    double dSnr = RoundTripSnrDb(speech);
    std::printf("speech-like signal: SNR %.2f dB\n", dSnr);
    RecordProperty("SpeechSnrDb", std::to_string(dSnr));
    EXPECT_GT(dSnr, 16.0);
}

} // namespace
