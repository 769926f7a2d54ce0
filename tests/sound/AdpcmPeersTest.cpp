// The code stream is standard G.726 at 24 kbit/s, packed from the low bit upward: other
// coders of the standard make and read the same. One is written in this folder from the
// Recommendation's block diagrams; the other is ffmpeg's g726le decoder, run as a
// separate program when the machine has it.
#include "AdpcmSignals.h"
#include "G726BlockCoder.h"
#include "sound/CAdpcm.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::vector<BYTE> EncodeStream(const std::vector<short>& pcm)
{
    CAdpcm encoder;
    EXPECT_EQ(encoder.Init(CAdpcm::kModeEncoder), 1);
    std::vector<BYTE> code(pcm.size() / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup);
    for (std::size_t n = 0; n + CAdpcm::kMaxSamples <= pcm.size(); n += CAdpcm::kMaxSamples) {
        EXPECT_EQ(encoder.Encode(&pcm[n], &code[n / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup],
                                 CAdpcm::kMaxSamples, 0),
                  1);
    }
    return code;
}

std::vector<short> DecodeStream(const std::vector<BYTE>& code)
{
    CAdpcm decoder;
    EXPECT_EQ(decoder.Init(CAdpcm::kModeDecoder), 1);
    std::vector<short> pcm(code.size() / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup);
    for (std::size_t n = 0; n + CAdpcm::kMaxCodeBytes <= code.size(); n += CAdpcm::kMaxCodeBytes) {
        EXPECT_EQ(decoder.Decode(&code[n], &pcm[n / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup],
                                 CAdpcm::kMaxCodeBytes, 0),
                  1);
    }
    return pcm;
}

// A state anywhere in the ranges the coder keeps its delayed variables in, most of which
// a test signal reaches seldom or never: the scale factors at their limits with a tone
// detected, pole coefficients on the edges of the stability triangle.
tag_G72XSTATE RandomState(std::mt19937& generator)
{
    // One draw in eight takes an end of the range.
    auto draw = [&generator](int nLow, int nHigh) {
        switch (generator() % 16) {
        case 0:
            return nLow;
        case 1:
            return nHigh;
        default:
            return nLow + static_cast<int>(generator() % static_cast<unsigned>(nHigh - nLow + 1));
        }
    };
    auto floating = [&draw] {
        int nExp = draw(0, 15);
        return static_cast<std::int16_t>((nExp << 6) + (nExp == 0 ? 32 : draw(32, 63)) - draw(0, 1) * 1024);
    };
    tag_G72XSTATE state{};
    state.yl = draw(544 << 6, 5120 << 6);
    state.yu = static_cast<std::int16_t>(draw(544, 5120));
    state.dms = static_cast<std::int16_t>(draw(0, 3584));
    state.dml = static_cast<std::int16_t>(draw(0, 14336));
    state.ap = static_cast<std::int16_t>(draw(0, 512));
    state.a[1] = static_cast<std::int16_t>(draw(-12288, 12288));
    state.a[0] = static_cast<std::int16_t>(draw(-(15360 - state.a[1]), 15360 - state.a[1]));
    for (std::int16_t& b : state.b)
        b = static_cast<std::int16_t>(draw(-32768, 32767));
    for (std::int16_t& pk : state.pk)
        pk = static_cast<std::int16_t>(draw(0, 1));
    for (std::int16_t& dq : state.dq)
        dq = floating();
    for (std::int16_t& sr : state.sr)
        sr = floating();
    state.td = static_cast<BYTE>(draw(0, 1));
    return state;
}

// The block coder's bit fields as the library's fields: two's complement of their
// width, and floating forms with the sign bit 10 turned into the offset of -1024.
void LoadBlockCoder(CG726BlockCoder& coder, const tag_G72XSTATE& state)
{
    auto floating = [](std::int16_t value) { return static_cast<unsigned>(value) & 0x7FF; };
    coder.m_YL = static_cast<unsigned>(state.yl);
    coder.m_YU = static_cast<unsigned>(state.yu);
    coder.m_DMS = static_cast<unsigned>(state.dms);
    coder.m_DML = static_cast<unsigned>(state.dml);
    coder.m_AP = static_cast<unsigned>(state.ap);
    coder.m_A1 = static_cast<std::uint16_t>(state.a[0]);
    coder.m_A2 = static_cast<std::uint16_t>(state.a[1]);
    for (int n = 0; n < 6; ++n) {
        coder.m_B[n] = static_cast<std::uint16_t>(state.b[n]);
        coder.m_DQ[n] = floating(state.dq[n]);
    }
    coder.m_SR1 = floating(state.sr[0]);
    coder.m_SR2 = floating(state.sr[1]);
    coder.m_PK1 = static_cast<unsigned>(state.pk[0]);
    coder.m_PK2 = static_cast<unsigned>(state.pk[1]);
    coder.m_TD = state.td;
}

tag_G72XSTATE StateOf(const CG726BlockCoder& coder)
{
    auto floating = [](unsigned value) { return static_cast<std::int16_t>((value & 0x3FF) - (value >> 10) * 1024); };
    tag_G72XSTATE state{};
    state.yl = static_cast<std::int32_t>(coder.m_YL);
    state.yu = static_cast<std::int16_t>(coder.m_YU);
    state.dms = static_cast<std::int16_t>(coder.m_DMS);
    state.dml = static_cast<std::int16_t>(coder.m_DML);
    state.ap = static_cast<std::int16_t>(coder.m_AP);
    state.a[0] = static_cast<std::int16_t>(coder.m_A1);
    state.a[1] = static_cast<std::int16_t>(coder.m_A2);
    for (int n = 0; n < 6; ++n) {
        state.b[n] = static_cast<std::int16_t>(coder.m_B[n]);
        state.dq[n] = floating(coder.m_DQ[n]);
    }
    state.sr[0] = floating(coder.m_SR1);
    state.sr[1] = floating(coder.m_SR2);
    state.pk[0] = static_cast<std::int16_t>(coder.m_PK1);
    state.pk[1] = static_cast<std::int16_t>(coder.m_PK2);
    state.td = static_cast<BYTE>(coder.m_TD);
    return state;
}

// One sample from random states: both coders give the same code or sample and move to
// the same state, field by field.
TEST(AdpcmPeers, BlockDiagramCoderAgreesFromAnyState)
{
    std::mt19937 generator(44);
    for (int nTrial = 0; nTrial < 200000; ++nTrial) {
        const tag_G72XSTATE start = RandomState(generator);
        const auto sample = static_cast<std::int16_t>(generator());
        const unsigned nCode = generator() % 8;
        tag_G72XSTATE ours = start;
        CG726BlockCoder reference;
        LoadBlockCoder(reference, start);
        ASSERT_EQ(StateOf(reference), start) << "trial " << nTrial;
        if (nTrial % 2 == 0) {
            ASSERT_EQ(static_cast<unsigned>(CAdpcm::EncodeSample(sample, ours)), reference.Encode(sample))
                << "trial " << nTrial;
        } else {
            ASSERT_EQ(CAdpcm::DecodeSample(static_cast<int>(nCode), ours), reference.Decode(nCode))
                << "trial " << nTrial;
        }
        ASSERT_EQ(ours, StateOf(reference)) << "trial " << nTrial;
    }
}

bool HaveFfmpeg()
{
    return std::system("command -v ffmpeg >/dev/null 2>&1") == 0;
}

// Decodes low-bit-first G.726 code at 24 kbit/s with ffmpeg into 16-bit samples.
std::vector<short> DecodeWithFfmpeg(const std::vector<BYTE>& code)
{
    std::filesystem::path dir = std::filesystem::temp_directory_path() /
                                ("zndvr-adpcm-peer-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    std::filesystem::path codePath = dir / "stream.g726";
    std::filesystem::path pcmPath = dir / "stream.raw";
    {
        std::ofstream out(codePath, std::ios::binary);
        out.write(reinterpret_cast<const char*>(code.data()), static_cast<std::streamsize>(code.size()));
    }
    std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -y -f g726le -code_size 3 "
                          "-sample_rate 8000 -i '" + codePath.string() + "' -f s16le -acodec pcm_s16le '" +
                          pcmPath.string() + "'";
    int nStatus = std::system(command.c_str());
    std::vector<short> pcm;
    if (nStatus == 0) {
        std::ifstream in(pcmPath, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        pcm.resize(bytes.size() / 2);
        for (std::size_t n = 0; n < pcm.size(); ++n)
            pcm[n] = static_cast<short>(static_cast<BYTE>(bytes[2 * n]) | static_cast<BYTE>(bytes[2 * n + 1]) << 8);
    }
    std::filesystem::remove_all(dir);
    EXPECT_EQ(nStatus, 0) << command;
    return pcm;
}

// ffmpeg's decoder mixes the two scale factors with a rounding of its own, so its
// samples drift a little from the Recommendation's (and ours); its output is otherwise
// ours shifted left by 2. A wrong bit order or a wrong code meaning would leave nothing
// in common, so a close agreement is proof enough.
TEST(AdpcmPeers, FfmpegDecodesOurStreamToOurSamples)
{
    if (!HaveFfmpeg())
        GTEST_SKIP() << "ffmpeg is not installed";
    struct Case {
        const char* strName;
        std::vector<short> pcm;
    };
    Case cases[] = {
        {"speech-like", adpcm_signals::SpeechLike(CAdpcm::kMaxSamples, 51)},
        {"sine sweep", adpcm_signals::SineSweep(CAdpcm::kMaxSamples, 100.0, 3400.0, 16000.0)},
        {"noise", adpcm_signals::Noise(CAdpcm::kMaxSamples, 4000.0, 52)},
    };
    for (const Case& c : cases) {
        std::vector<BYTE> code = EncodeStream(c.pcm);
        std::vector<short> ours = DecodeStream(code);
        std::vector<short> theirs = DecodeWithFfmpeg(code);
        ASSERT_EQ(theirs.size(), ours.size()) << c.strName;
        double dAgreement = adpcm_signals::SnrDb(theirs, ours);
        double dOurs = adpcm_signals::SnrDb(c.pcm, ours);
        double dTheirs = 0.0;
        {
            // Both against the original: ffmpeg's samples are already on the 16-bit scale.
            std::vector<short> theirsQuarter(theirs.size());
            for (std::size_t n = 0; n < theirs.size(); ++n)
                theirsQuarter[n] = static_cast<short>(theirs[n] / 4);
            dTheirs = adpcm_signals::SnrDb(c.pcm, theirsQuarter);
        }
        std::printf("%s: ffmpeg agrees with ours to %.1f dB; SNR ours %.2f dB, ffmpeg %.2f dB\n", c.strName,
                    dAgreement, dOurs, dTheirs);
        EXPECT_GT(dAgreement, 25.0) << c.strName;
        EXPECT_NEAR(dTheirs, dOurs, 1.0) << c.strName;
        EXPECT_EQ(theirs[0], ours[0] * 4) << c.strName;
    }
}

} // namespace
