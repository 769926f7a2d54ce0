// Many encoders and decoders at work on their own threads share nothing: each gives
// the records and pictures that it gives alone.
#include "EncoderTestSupport.h"

#include <gtest/gtest.h>

#include <thread>

using namespace codec_test;

namespace {

struct tag_RUN {
    std::vector<std::vector<BYTE>> records;
    std::vector<std::vector<BYTE>> pictures;
    bool bInStep = true;
};

tag_RUN CodeAndDecode(int nSeed, BOOL bUseMMX)
{
    const int nWidth = 96 + 16 * (nSeed % 3);
    const int nHeight = 64;
    CTestEncoder encoder;
    CTestDecoder decoder;
    tag_RUN run;
    if (!encoder.Create(nWidth, nHeight, STREAM_REVISION_20020114, 0) || !decoder.Create(STREAM_REVISION_20020114))
        return run;
    encoder.m_bUseMMX = decoder.m_bUseMMX = bUseMMX;
    encoder.SetQi(4 + nSeed % 5);
    encoder.SetQp(4 + nSeed % 5);
    encoder.SetIntraThreshold(1500);
    CScene scene(nWidth, nHeight, 5, static_cast<std::uint32_t>(nSeed) + 1);
    std::vector<BYTE> picture(static_cast<std::size_t>(nWidth) * nHeight * 3);
    for (int f = 0; f < 12; ++f) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const ENCODER_RETURN enc = encoder.Encode(frame.data(), FALSE, f % 8 == 0 ? 0 : 2);
        run.records.emplace_back(enc.pBuffer, enc.pBuffer + enc.nLength);
        decoder.DecodeOneFrame(enc.pBuffer, enc.nLength, picture.data(), FALSE);
        run.pictures.push_back(picture);
        run.bInStep = run.bInStep && SamePlanes(encoder.Reference(), decoder.Decoded(nWidth, nHeight));
    }
    return run;
}

} // namespace

TEST(CodecParallelThreads, EncodersAndDecodersOnManyThreadsMatchTheirLoneRuns)
{
    constexpr int kThreads = 8;
    std::vector<tag_RUN> alone;
    for (int t = 0; t < kThreads; ++t)
        alone.push_back(CodeAndDecode(t, t % 2));
    std::vector<tag_RUN> together(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, &together] { together[static_cast<std::size_t>(t)] = CodeAndDecode(t, t % 2); });
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < kThreads; ++t) {
        const tag_RUN& a = alone[static_cast<std::size_t>(t)];
        const tag_RUN& b = together[static_cast<std::size_t>(t)];
        EXPECT_TRUE(a.bInStep && b.bInStep) << "thread " << t;
        EXPECT_EQ(a.records.size(), 12u);
        EXPECT_TRUE(a.records == b.records) << "thread " << t;
        EXPECT_TRUE(a.pictures == b.pictures) << "thread " << t;
    }
}
