// What the speech codec does to sound: the decoded signal stays close to what was
// encoded. The floors lie about 3 dB below what the codec measures, so that a wrong
// table or a lost bit of precision fails, also one that a second coder would share.
#include "AdpcmSignals.h"
#include "sound/CAdpcm.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

namespace {

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

TEST(AdpcmQuality, RoundTripsKeepTheirSignalToNoiseRatio)
{
    constexpr int kSamples = 3 * CAdpcm::kMaxSamples;
    struct Case {
        const char* strName;
        std::vector<short> pcm;
        double dFloorDb;
    };
    const Case cases[] = {
        {"sine sweep 100-3400 Hz at -6 dBFS", adpcm_signals::SineSweep(kSamples, 100.0, 3400.0, 16000.0), 27.0},
        {"white noise, deviation 4000", adpcm_signals::Noise(kSamples, 4000.0, 31), 11.0},
        {"speech-like signal", adpcm_signals::SpeechLike(kSamples, 32), 16.0},
    };
    for (const Case& c : cases) {
        double dSnr = RoundTripSnrDb(c.pcm);
        std::printf("%s: SNR %.2f dB\n", c.strName, dSnr);
        EXPECT_GT(dSnr, c.dFloorDb) << c.strName;
    }
}

} // namespace
