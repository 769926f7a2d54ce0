// The coprocessor path: a stand-in coprocessor codes each batch of ten macroblocks on
// the CPU and hands back reconstruction and bits in the batch layout, so that pictures
// carry tail groups; hooks that fail at every step make the CPU take over.
#include "EncoderTestSupport.h"

#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

#include <climits>

using namespace codec_test;

namespace {

constexpr int kWidth = 176;
constexpr int kHeight = 144;

// Codes one batch as a coprocessor would: the ten macroblocks side by side in a
// picture of one macroblock row, each against its own reference macroblock.
class CBatchCoder : public CEncoder {
public:
    CBatchCoder() { Create(COP_GROUP_MBS * 16, 16, STREAM_REVISION_20020114, 0); }

    // Returns the result length: 3840 bytes of reconstruction, then the bits.
    int Code(const BYTE* pbyBatch, BYTE* pbyResult)
    {
        const bool bPFrame = pbyBatch[0] == 1;
        for (int g = 0; g < COP_GROUP_MBS; ++g) {
            const BYTE* pRecord = pbyBatch + 1 + g * COP_RECORD_BYTES;
            PutMBBytes(g, 0, m_imgCurrent, m_nWidth, pRecord + 2);
            PutMBBytes(g, 0, m_imgReference, m_nWidth, pbyBatch + COP_REFERENCE_OFFSET + g * MB_SAMPLES);
        }
        InitBitWriter();
        for (int g = 0; g < COP_GROUP_MBS; ++g) {
            const BYTE* pRecord = pbyBatch + 1 + g * COP_RECORD_BYTES;
            if (bPFrame) {
                m_nIntraThreshold = pRecord[1] == 1 ? INT_MAX : -1;   // the batch decided the mode
                PFrameEncodeMB(g, m_imgCurrent, m_imgReference, pRecord[0]);
            } else {
                IFrameEncodeMB(g, m_imgCurrent, m_imgReference, pRecord[0]);
            }
        }
        AlignBits();
        for (int g = 0; g < COP_GROUP_MBS; ++g)
            GetMBBytes(g, 0, m_imgReference, m_nWidth, pbyResult + g * MB_SAMPLES);
        std::memcpy(pbyResult + COP_RECON_BYTES, m_pBitBuffer.get(), static_cast<std::size_t>(m_nBitLen));
        return COP_RECON_BYTES + m_nBitLen;
    }
};

enum class tag_FAILSTEP { NONE, SUBMIT, POLL, LENGTH, FETCHDONE };

// Hooks served by CBatchCoder. The clock advances 10 ms at every reading, so the CPU
// codes two macroblocks per group and pictures get several groups, the same on every run.
class CCoprocessorEncoder : public CTestEncoder {
public:
    CCoprocessorEncoder(tag_FAILSTEP step = tag_FAILSTEP::NONE, int nFailAtGroup = 0)
        : m_step(step), m_nFailAtGroup(nFailAtGroup)
    {
    }

    int m_nSubmitted = 0;
    // Failures count groups from the start of each picture.
    void NewPicture() { m_nInPicture = 0; }

protected:
    int CopSubmit(BYTE* pbyBatch) override
    {
        m_nGroup = m_nInPicture++;
        ++m_nSubmitted;
        if (Fails(tag_FAILSTEP::SUBMIT))
            return 1;
        m_nResultLength = m_coder.Code(pbyBatch, m_result);
        return 0;
    }
    int CopPoll() override { return Fails(tag_FAILSTEP::POLL) ? 0 : 1; }
    int CopResultLength() override { return Fails(tag_FAILSTEP::LENGTH) ? COP_MAX_RESULT_BYTES + 2 : m_nResultLength; }
    int CopFetch(BYTE* pbyBatch, int nLength) override
    {
        std::memcpy(pbyBatch, m_result, static_cast<std::size_t>(nLength));
        return 0;
    }
    int CopFetchDone(BYTE* pbyBatch, int) override
    {
        if (!Fails(tag_FAILSTEP::FETCHDONE))
            return 0;
        std::memset(pbyBatch, 0xEE, COP_BATCH_BYTES);   // a lost result may leave anything behind
        return 1;
    }
    DWORD CopTickCount() override { return m_dwClock += 10; }

private:
    bool Fails(tag_FAILSTEP step) const { return m_step == step && m_nGroup >= m_nFailAtGroup; }

    tag_FAILSTEP m_step;
    int m_nFailAtGroup;
    int m_nGroup = 0;
    int m_nInPicture = 0;
    CBatchCoder m_coder;
    BYTE m_result[CEncoder::COP_BATCH_BYTES] = {};
    int m_nResultLength = 0;
    DWORD m_dwClock = 0;
};

int GroupsOf(const ENCODER_RETURN& result)
{
    if (result.nLength <= 4)
        return 0;
    const int nField = result.nFrameType == 2 ? 4 : 8;
    return result.pBuffer[nField] << 8 | result.pBuffer[nField + 1];
}

// Codes the same scene with a CPU-only encoder and with the coprocessor encoder, decodes
// the coprocessor's records and checks that all three hold the same picture after each
// frame. Returns the groups of every record.
std::vector<int> CodeAlongsideCpu(CCoprocessorEncoder& copEncoder, int nFrames, int nNoise)
{
    CTestEncoder cpuEncoder;
    CTestDecoder decoder;
    EXPECT_TRUE(cpuEncoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 0));
    EXPECT_TRUE(copEncoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 1));
    EXPECT_TRUE(decoder.Create(STREAM_REVISION_20020114));
    cpuEncoder.m_bUseMMX = copEncoder.m_bUseMMX = decoder.m_bUseMMX = FALSE;
    for (CEncoder* pEncoder : {static_cast<CEncoder*>(&cpuEncoder), static_cast<CEncoder*>(&copEncoder)}) {
        pEncoder->SetQi(6);
        pEncoder->SetQp(6);
        pEncoder->SetIntraThreshold(1200);
    }
    CScene scene(kWidth, kHeight, nNoise, 17, 6);
    std::vector<BYTE> output(kWidth * kHeight * 3);
    std::vector<int> groups;
    for (int f = 0; f < nFrames; ++f) {
        const CPlanes source = scene.Next();
        std::vector<BYTE> frame = MakeFrame(source);
        const int nType = f % 6 == 0 ? 0 : 2;
        const ENCODER_RETURN cpu = cpuEncoder.Encode(frame.data(), FALSE, nType);
        frame = MakeFrame(source);
        copEncoder.NewPicture();
        const ENCODER_RETURN cop = copEncoder.Encode(frame.data(), FALSE, nType);
        EXPECT_EQ(cop.bMoved, cpu.bMoved) << "frame " << f;
        EXPECT_EQ(cop.nLength == 4, cpu.nLength == 4) << "frame " << f;
        EXPECT_EQ(cop.nLength % 2, 0);
        groups.push_back(GroupsOf(cop));
        const DECODER_RETURN dec = decoder.DecodeOneFrame(cop.pBuffer, cop.nLength, output.data(), FALSE);
        EXPECT_FALSE(dec.bError) << "frame " << f;
        const CPlanes copPicture = copEncoder.Reference();
        EXPECT_TRUE(SamePlanes(copPicture, decoder.Decoded(kWidth, kHeight))) << "frame " << f;
        EXPECT_TRUE(SamePlanes(copPicture, cpuEncoder.Reference())) << "frame " << f;
        if (::testing::Test::HasFailure())
            break;
    }
    return groups;
}

} // namespace

TEST(Coprocessor, TailGroupsDecodeToTheCpuOnlyPicture)
{
    CCoprocessorEncoder encoder;
    const std::vector<int> groups = CodeAlongsideCpu(encoder, 12, 5);
    // 99 macroblocks: eight groups of ten while the CPU codes two per group, then a tail.
    EXPECT_EQ(groups.front(), 8);
    int nWithGroups = 0;
    for (const int nGroups : groups)
        nWithGroups += nGroups > 0;
    EXPECT_GE(nWithGroups, 8);
}

TEST(Coprocessor, EveryFailingHookFallsBackToTheCpu)
{
    for (const tag_FAILSTEP step : {tag_FAILSTEP::SUBMIT, tag_FAILSTEP::POLL, tag_FAILSTEP::LENGTH, tag_FAILSTEP::FETCHDONE}) {
        for (const int nFailAtGroup : {0, 3}) {
            SCOPED_TRACE(::testing::Message() << "step " << static_cast<int>(step) << " at group " << nFailAtGroup);
            CCoprocessorEncoder encoder(step, nFailAtGroup);
            for (const int nGroups : CodeAlongsideCpu(encoder, 5, 12))
                EXPECT_EQ(nGroups, 0);
            EXPECT_GT(encoder.m_nSubmitted, 0);
        }
    }
}

TEST(Coprocessor, ClassHooksProduceTheCpuOnlyRecord)
{
    // The encoder's own hooks accept a batch and never report it done: each picture
    // waits out the first window and is then coded by the CPU, byte for byte as without
    // a coprocessor.
    CTestEncoder withHooks;
    CTestEncoder cpuOnly;
    ASSERT_TRUE(withHooks.Create(96, 64, STREAM_REVISION_20020114, 1));
    ASSERT_TRUE(cpuOnly.Create(96, 64, STREAM_REVISION_20020114, 0));
    withHooks.m_bUseMMX = cpuOnly.m_bUseMMX = FALSE;
    CScene scene(96, 64, 4, 8);
    for (int f = 0; f < 2; ++f) {
        const CPlanes source = scene.Next();
        std::vector<BYTE> frame = MakeFrame(source);
        const ENCODER_RETURN a = withHooks.Encode(frame.data(), FALSE, f == 0 ? 0 : 2);
        frame = MakeFrame(source);
        const ENCODER_RETURN b = cpuOnly.Encode(frame.data(), FALSE, f == 0 ? 0 : 2);
        EXPECT_EQ(std::vector<BYTE>(a.pBuffer, a.pBuffer + a.nLength), std::vector<BYTE>(b.pBuffer, b.pBuffer + b.nLength));
    }
}

TEST(Coprocessor, IntraMacroblocksOfGroupsCountOnceForTheDrop)
{
    for (const tag_FAILSTEP step : {tag_FAILSTEP::NONE, tag_FAILSTEP::POLL, tag_FAILSTEP::LENGTH}) {
        SCOPED_TRACE(::testing::Message() << "step " << static_cast<int>(step));
        CCoprocessorEncoder encoder(step);
        ASSERT_TRUE(encoder.Create(kWidth, kHeight, STREAM_REVISION_20020114, 1));
        encoder.m_bUseMMX = FALSE;
        encoder.SetQi(8);
        encoder.SetQp(8);
        const auto encode = [&](const CPlanes& planes, int nType) {
            std::vector<BYTE> frame = MakeFrame(planes);
            encoder.NewPicture();
            return encoder.Encode(frame.data(), FALSE, nType);
        };
        CPlanes moved(kWidth, kHeight, 100);
        encode(moved, 0);
        // Three moved macroblocks in the last group: the picture is dropped.
        for (const int nCol : {6, 8, 10})
            moved.RaiseMacroblock(nCol, 8, 90);
        EXPECT_EQ(encode(moved, 2).nLength, 4);
        EXPECT_EQ(encoder.MoveMapCount(), 0);
        // A fourth one keeps it, with all four in the map.
        moved.RaiseMacroblock(9, 8, 90);
        const ENCODER_RETURN result = encode(moved, 2);
        EXPECT_TRUE(result.bMoved);
        EXPECT_EQ(encoder.MoveMapCount(), 4);
        EXPECT_EQ(GroupsOf(result), step == tag_FAILSTEP::NONE ? 8 : 0);
    }
}
