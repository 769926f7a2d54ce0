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

// Codes unpacked from the low bit upward, the first sample in the lowest bits.
std::vector<unsigned> UnpackCodes(const std::vector<BYTE>& code)
{
    std::vector<unsigned> codes;
    unsigned dwBits = 0;
    int nBits = 0;
    for (BYTE byte : code) {
        dwBits |= static_cast<unsigned>(byte) << nBits;
        for (nBits += 8; nBits >= 3; nBits -= 3) {
            codes.push_back(dwBits & 7);
            dwBits >>= 3;
        }
    }
    return codes;
}

// Speech, a loud sweep and loud noise: together they reach the limits of the scale
// factor and of the pole coefficients, the tone detector and transitions.
std::vector<short> DemandingSignal()
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(2 * CAdpcm::kMaxSamples, 41);
    auto append = [&pcm](const std::vector<short>& part) { pcm.insert(pcm.end(), part.begin(), part.end()); };
    append(adpcm_signals::SineSweep(CAdpcm::kMaxSamples, 50.0, 3950.0, 32000.0));
    append(adpcm_signals::Noise(CAdpcm::kMaxSamples, 9000.0, 42));
    return pcm;
}

TEST(AdpcmPeers, BlockDiagramEncoderMakesTheSameStream)
{
    std::vector<short> pcm = DemandingSignal();
    std::vector<unsigned> codes = UnpackCodes(EncodeStream(pcm));
    ASSERT_EQ(codes.size(), pcm.size());
    CG726BlockCoder reference;
    for (std::size_t n = 0; n < pcm.size(); ++n)
        ASSERT_EQ(codes[n], reference.Encode(pcm[n])) << "sample " << n;
}

TEST(AdpcmPeers, BlockDiagramDecoderReadsTheSameSamples)
{
    std::vector<BYTE> code = EncodeStream(DemandingSignal());
    // Random codes too: sequences an encoder never makes, such as the positive zero.
    std::mt19937 generator(43);
    for (int n = 0; n < CAdpcm::kMaxCodeBytes; ++n)
        code.push_back(static_cast<BYTE>(generator()));

    std::vector<short> decoded = DecodeStream(code);
    std::vector<unsigned> codes = UnpackCodes(code);
    ASSERT_EQ(codes.size(), decoded.size());
    CG726BlockCoder reference;
    for (std::size_t n = 0; n < codes.size(); ++n)
        ASSERT_EQ(decoded[n], reference.Decode(codes[n])) << "sample " << n;
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
