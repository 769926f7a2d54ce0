// The rewrite of picture records into an ITU-T H.263 stream: an independent decoder
// (ffmpeg's, when installed) finds in it the pictures that CDecoder makes of the
// records, and records with values H.263 can't carry are refused, not bent.
#include "EncoderTestSupport.h"

#include "codec/BitstreamTables.h"
#include "codec/CH263Writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

using namespace codec_test;

namespace {

using Record = std::vector<BYTE>;

bool HasFFmpeg()
{
    return std::system("ffmpeg -version > /dev/null 2>&1") == 0;
}

// Every picture ffmpeg decodes from the stream, as 4:2:0 planes one after the other.
std::vector<BYTE> DecodeWithFFmpeg(const std::string& strStream)
{
    const std::string strCommand =
        "ffmpeg -v error -f h263 -i '" + strStream + "' -vsync passthrough -f rawvideo -pix_fmt yuv420p -";
    std::vector<BYTE> planes;
    FILE* pPipe = popen(strCommand.c_str(), "r");
    if (pPipe == nullptr)
        return planes;
    BYTE buffer[65536];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pPipe)) > 0;)
        planes.insert(planes.end(), buffer, buffer + n);
    pclose(pPipe);
    return planes;
}

double Psnr(const BYTE* pA, const BYTE* pB, std::size_t nSamples)
{
    double dSum = 0;
    for (std::size_t i = 0; i < nSamples; ++i)
        dSum += (pA[i] - pB[i]) * (pA[i] - pB[i]);
    return dSum == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(nSamples) / dSum);
}

} // namespace

// Standard CIF, and two sizes that need H.263's custom picture format (one of them a
// field, with its pixel aspect ratio). Intra and inter macroblocks, and a second key frame.
TEST(H263Writer, FFmpegDecodesTheStreamWithinFortyFiveDecibelsOfOurDecoder)
{
    if (!HasFFmpeg())
        GTEST_SKIP() << "ffmpeg is not installed";
    const struct {
        int nWidth;
        int nHeight;
        int nQ;
    } rows[] = {{352, 288, 4}, {320, 240, 8}, {640, 240, 12}};
    // A name of this process's own: other test programs may run this test at the same time.
    const std::string strStream =
        (std::filesystem::temp_directory_path() / ("zndvr-h263-test-" + std::to_string(getpid()) + ".h263")).string();
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.nWidth << "x" << row.nHeight);
        CEncoder encoder;
        ASSERT_TRUE(encoder.Create(row.nWidth, row.nHeight, STREAM_REVISION_20020114, 0));
        encoder.SetQi(row.nQ);
        encoder.SetQp(row.nQ);
        encoder.SetIntraThreshold(600);
        CTestDecoder decoder;
        ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020114));
        CH263Writer writer;
        ASSERT_TRUE(writer.Create());
        CScene scene(row.nWidth, row.nHeight, 4, 17, 5);
        std::vector<BYTE> output(static_cast<std::size_t>(row.nWidth) * row.nHeight * 3);
        std::vector<CPlanes> expected;
        std::ofstream stream(strStream, std::ios::binary | std::ios::trunc);
        constexpr int kFrames = 30;
        for (int f = 0; f < kFrames; ++f) {
            std::vector<BYTE> frame = MakeFrame(scene.Next());
            const ENCODER_RETURN coded = encoder.Encode(frame.data(), FALSE, f % 20 == 0 ? 0 : 2);
            ASSERT_FALSE(decoder.DecodeOneFrame(coded.pBuffer, coded.nLength, output.data(), FALSE).bError);
            expected.push_back(decoder.Decoded(row.nWidth, row.nHeight));
            ASSERT_EQ(writer.Rewrite(coded.pBuffer, coded.nLength, static_cast<DWORD>(f * 40)), H263_OK);
            stream.write(reinterpret_cast<const char*>(writer.GetPicture()), writer.GetPictureLength());
        }
        stream.close();
        const std::vector<BYTE> decoded = DecodeWithFFmpeg(strStream);
        const std::size_t nLuma = static_cast<std::size_t>(row.nWidth) * row.nHeight;
        ASSERT_EQ(decoded.size(), nLuma * 3 / 2 * kFrames);
        for (int f = 0; f < kFrames; ++f) {
            std::vector<BYTE> ours = expected[static_cast<std::size_t>(f)].Y;
            ours.insert(ours.end(), expected[static_cast<std::size_t>(f)].U.begin(), expected[static_cast<std::size_t>(f)].U.end());
            ours.insert(ours.end(), expected[static_cast<std::size_t>(f)].V.begin(), expected[static_cast<std::size_t>(f)].V.end());
            EXPECT_GE(Psnr(ours.data(), decoded.data() + nLuma * 3 / 2 * static_cast<std::size_t>(f), ours.size()), 45.0)
                << "frame " << f;
        }
    }
    std::filesystem::remove(strStream);
}

TEST(H263Writer, RecordsThatH263CannotCarryAreRefusedAndChangeNothing)
{
    CH263Writer writer;
    ASSERT_TRUE(writer.Create());
    const std::string strEscape = "0000011";
    const auto picture = [](int nWidth, int nHeight, int nQ, const std::string& strMacroblock) {
        std::string strBits = IHeader(nWidth, nHeight, nQ);
        for (int i = 0; i < nWidth * nHeight / 256; ++i)
            strBits += strMacroblock;
        return PackBits(strBits);
    };
    // One AC event on block 0 of a flat macroblock.
    const auto withEvent = [](const std::string& strEvent) {
        return Bits(g_vlcCBPY[8].wCode, g_vlcCBPY[8].byLength) + "00" + Bits(100, 8) + strEvent + Bits(100, 8) +
               Bits(100, 8) + Bits(100, 8) + Bits(255, 8) + Bits(255, 8);
    };
    const auto rewrite = [&](const Record& record, DWORD dwStamp) {
        return writer.Rewrite(record.data(), static_cast<int>(record.size()), dwStamp);
    };
    const Record notCoded = {0x00, 0x00, 0x84, 0x00};
    EXPECT_EQ(rewrite(notCoded, 0), H263_NO_PICTURE);
    ASSERT_EQ(rewrite(picture(176, 144, 1, FlatMacroblock(90)), 1000), H263_OK);
    const struct {
        Record record;
        tag_H263RESULT nResult;
    } rows[] = {
        {picture(352, 288, 0, FlatMacroblock(90)), H263_NOT_EXPRESSIBLE},
        {picture(352, 288, 32, FlatMacroblock(90)), H263_NOT_EXPRESSIBLE},
        {picture(352, 288, 4, FlatMacroblock(0)), H263_NOT_EXPRESSIBLE},
        {picture(352, 288, 4, withEvent(strEscape + "1" + Bits(3, 6) + Bits(0, 8))), H263_NOT_EXPRESSIBLE},
        {picture(352, 288, 4, withEvent(strEscape + "1" + Bits(3, 6) + Bits(128, 8))), H263_NOT_EXPRESSIBLE},
        {picture(352, 288, 4, withEvent(strEscape + "1" + Bits(63, 6) + Bits(1, 8))), H263_BAD_RECORD},
        {picture(352, 288, 4, FlatMacroblock(128)), H263_BAD_RECORD},
        {picture(360, 288, 4, FlatMacroblock(90)), H263_BAD_RECORD},
        {picture(0, 288, 4, FlatMacroblock(90)), H263_BAD_RECORD},
        {Record(200, 0), H263_BAD_RECORD},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rewrite(row.record, 40), row.nResult);
        EXPECT_EQ(writer.GetPictureLength(), 0);
    }
    EXPECT_EQ(rewrite(picture(352, 288, 4, withEvent(strEscape + "1" + Bits(3, 6) + Bits(127, 8))), 40), H263_OK);
    // The refused pictures left the size of the stream at 176 x 144: a picture that codes
    // nothing is its 50-bit head and one bit for each of the 99 macroblocks.
    ASSERT_EQ(rewrite(picture(176, 144, 4, FlatMacroblock(90)), 80), H263_OK);
    ASSERT_EQ(rewrite(notCoded, 1000 + 1001), H263_OK);
    EXPECT_EQ(writer.GetPictureLength(), (50 + 99 + 7) / 8);
    // TR, behind the 22 bits of PSC, counts the 29.97 Hz periods since the first picture.
    const BYTE* pOut = writer.GetPicture();
    EXPECT_EQ((pOut[2] & 0x3) << 6 | pOut[3] >> 2, 30);
}
