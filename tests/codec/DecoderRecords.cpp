// The decoder on good, refused, truncated and corrupted records: what it reports, what
// its planes hold afterwards, and that it never writes outside the output.
#include "EncoderTestSupport.h"

#include "codec/BitstreamTables.h"
#include "codec/PixelKernels.h"

#include <gtest/gtest.h>

using namespace codec_test;

namespace {

constexpr BYTE kGuard = 0xCD;
const std::size_t kOutputCapacity = static_cast<std::size_t>(CDecoder::MAX_WIDTH) * CDecoder::MAX_HEIGHT * 3;

using Record = std::vector<BYTE>;

// Records of a moving scene: an I picture, then P pictures.
std::vector<Record> MakeRecords(int nWidth, int nHeight, int nFrames, int nQ, DWORD dwRevision = STREAM_REVISION_20020114)
{
    CEncoder encoder;
    EXPECT_TRUE(encoder.Create(nWidth, nHeight, dwRevision, 0));
    encoder.SetQi(nQ);
    encoder.SetQp(nQ);
    encoder.SetIntraThreshold(1000);
    CScene scene(nWidth, nHeight, 6, 31, 5);
    std::vector<Record> records;
    for (int f = 0; f < nFrames; ++f) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const ENCODER_RETURN result = encoder.Encode(frame.data(), FALSE, f == 0 ? 0 : 2);
        records.emplace_back(result.pBuffer, result.pBuffer + result.nLength);
    }
    return records;
}

// The bits of a record as a string, to shift and edit them.
std::string BitString(const Record& record)
{
    std::string str;
    for (const BYTE b : record)
        str += Bits(b, 8);
    return str;
}

class DecoderRecords : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(decoder.Create(STREAM_REVISION_20020114));
        output.assign(kOutputCapacity + 64, kGuard);
    }

    DECODER_RETURN Decode(const Record& record, BOOL bKeepSize = FALSE)
    {
        return decoder.DecodeOneFrame(record.data(), static_cast<int>(record.size()), output.data(), bKeepSize);
    }

    // Nothing was written beyond the picture that the result reports: the guard bytes
    // right behind it and behind the whole capacity are intact. The written part is
    // filled with guard bytes again for the next call.
    bool OutputInsideReportedSize(const DECODER_RETURN& result)
    {
        const std::size_t nUsed = static_cast<std::size_t>(result.nWidth) * result.nHeight * 3;
        if (nUsed > kOutputCapacity)
            return false;
        const auto isGuard = [](BYTE b) { return b == kGuard; };
        const auto itUsed = output.begin() + static_cast<std::ptrdiff_t>(nUsed);
        const bool bInside = std::all_of(itUsed, itUsed + std::min<std::ptrdiff_t>(output.end() - itUsed, 16384), isGuard) &&
                             std::all_of(output.end() - 64, output.end(), isGuard);
        std::fill(output.begin(), itUsed, kGuard);
        return bInside;
    }

    CTestDecoder decoder;
    std::vector<BYTE> output;
};

} // namespace

TEST_F(DecoderRecords, NotCodedPictureRepeatsThePreviousOne)
{
    const std::vector<Record> records = MakeRecords(96, 64, 2, 8);
    ASSERT_FALSE(Decode(records[0]).bError);
    const std::vector<BYTE> first(output.begin(), output.begin() + 96 * 64 * 3);
    std::fill(output.begin(), output.end(), kGuard);
    const DECODER_RETURN result = Decode({0x00, 0x00, 0x84, 0x00});
    EXPECT_FALSE(result.bError);
    EXPECT_TRUE(result.bNotCoded);
    EXPECT_EQ(result.nFrameType, 2);
    EXPECT_EQ(std::vector<BYTE>(output.begin(), output.begin() + 96 * 64 * 3), first);
}

TEST_F(DecoderRecords, IPicturesSetSizeAndBothQuantisers)
{
    CEncoder encoder;
    ASSERT_TRUE(encoder.Create(96, 64, STREAM_REVISION_20020114, 0));
    CScene scene(96, 64, 2, 5, 3);
    encoder.SetQi(10);
    encoder.SetQp(20);
    encoder.SetIntraThreshold(0);   // every macroblock intra: the P picture stands
    const auto encode = [&](int nType) {
        std::vector<BYTE> frame = MakeFrame(scene.Next());
        const ENCODER_RETURN result = encoder.Encode(frame.data(), FALSE, nType);
        return Record(result.pBuffer, result.pBuffer + result.nLength);
    };
    DECODER_RETURN result = Decode(encode(0));
    EXPECT_TRUE(result.bSizeChanged);
    EXPECT_EQ(result.nWidth, 96);
    EXPECT_EQ(result.nHeight, 64);
    EXPECT_EQ(result.nFrameType, 0);
    result = Decode(encode(2));
    EXPECT_FALSE(result.bError);
    EXPECT_FALSE(result.bNotCoded);
    EXPECT_EQ(decoder.m_nQp, 20);
    EXPECT_EQ(decoder.m_nQi, 10);
    encoder.SetQi(12);
    result = Decode(encode(1));
    EXPECT_FALSE(result.bSizeChanged);
    EXPECT_EQ(result.nFrameType, 1);
    EXPECT_EQ(decoder.m_nQi, 12);
    EXPECT_EQ(decoder.m_nQp, 12);
    // A change of either dimension alone is a new size.
    for (const auto& [nWidth, nHeight] : {std::pair{96, 32}, std::pair{48, 32}}) {
        result = Decode(MakeRecords(nWidth, nHeight, 1, 8)[0]);
        EXPECT_TRUE(result.bSizeChanged);
        EXPECT_EQ(result.nWidth, nWidth);
        EXPECT_EQ(result.nHeight, nHeight);
    }
}

TEST_F(DecoderRecords, PPictureBeforeAnyIPictureDecodesNothing)
{
    const std::vector<Record> records = MakeRecords(96, 64, 3, 8);
    const DECODER_RETURN result = Decode(records[2]);
    EXPECT_FALSE(result.bError);
    EXPECT_EQ(result.nWidth, 0);
    EXPECT_EQ(result.nHeight, 0);
    EXPECT_EQ(output[0], kGuard);
}

TEST_F(DecoderRecords, RefusedRecordsLeavePlanesAndOutputUntouched)
{
    ASSERT_FALSE(Decode(MakeRecords(96, 64, 1, 8)[0]).bError);
    const std::vector<BYTE> planes = decoder.AllPlanes();
    const std::string strBody = FlatMacroblock(50) + FlatMacroblock(60);
    const std::vector<std::pair<int, int>> badSizes = {{0, 16}, {16, 0}, {100, 64}, {96, 40}, {720, 16}, {16, 592}, {1008, 1008}};
    for (const auto& [nWidth, nHeight] : badSizes) {
        std::fill(output.begin(), output.end(), kGuard);
        const DECODER_RETURN result = Decode(PackBits(IHeader(nWidth, nHeight, 4) + strBody));
        EXPECT_TRUE(result.bError) << nWidth << "x" << nHeight;
        EXPECT_FALSE(result.bSizeChanged);
        EXPECT_EQ(result.nWidth, 96);
        EXPECT_EQ(decoder.m_nQi, 8);
        EXPECT_EQ(decoder.AllPlanes(), planes);
        EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](BYTE b) { return b == kGuard; }));
    }
    Record tooLong(CDecoder::BITSTREAM_BYTES + 1, 0);
    const Record good = MakeRecords(96, 64, 1, 8)[0];
    std::copy(good.begin(), good.end(), tooLong.begin());
    EXPECT_TRUE(Decode(tooLong).bError);
    EXPECT_EQ(decoder.AllPlanes(), planes);
    EXPECT_TRUE(decoder.DecodeOneFrame(nullptr, 0, output.data(), FALSE).bError);
    EXPECT_TRUE(decoder.DecodeOneFrame(good.data(), -1, output.data(), FALSE).bError);
    EXPECT_TRUE(std::all_of(output.begin(), output.end(), [](BYTE b) { return b == kGuard; }));
    // The largest size that the planes hold is taken.
    EXPECT_FALSE(Decode(PackBits(IHeader(704, 576, 4) + [] {
        std::string str;
        for (int i = 0; i < 44 * 36; ++i)
            str += FlatMacroblock(70);
        return str;
    }())).bError);
    EXPECT_TRUE(OutputInsideReportedSize({FALSE, FALSE, 704, 576, 0, FALSE}));
}

// A player that decodes for its host holds a smaller area than the largest picture:
// the size its output would have is known before anything is decoded.
TEST_F(DecoderRecords, PicturesBeyondTheOutputCapacityAreRefusedBeforeDecoding)
{
    const struct {
        int nWidth;
        int nHeight;
        BOOL bKeepSize;
        int nOutputBytes;
    } rows[] = {{352, 288, FALSE, 704 * 288 * 3}, {352, 288, TRUE, 352 * 288 * 3},
                {160, 128, TRUE, 320 * 240 * 3},  {64, 32, FALSE, 64 * 32 * 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << row.nWidth << "x" << row.nHeight << " keep " << row.bKeepSize);
        CTestDecoder wide;
        ASSERT_TRUE(wide.Create(STREAM_REVISION_20020219));
        std::string strPicture = IHeader(row.nWidth, row.nHeight, 4);
        for (int i = 0; i < row.nWidth * row.nHeight / 256; ++i)
            strPicture += FlatMacroblock(90);
        const Record picture = PackBits(strPicture);
        const auto decode = [&](const Record& record) {
            return wide.DecodeOneFrame(record.data(), static_cast<int>(record.size()), output.data(), row.bKeepSize);
        };
        const std::vector<BYTE> planes = wide.AllPlanes();
        wide.SetOutputCapacity(row.nOutputBytes - 1);
        EXPECT_TRUE(decode(picture).bError);
        EXPECT_EQ(wide.AllPlanes(), planes);
        EXPECT_EQ(output[0], kGuard);
        wide.SetOutputCapacity(row.nOutputBytes);
        const DECODER_RETURN result = decode(picture);
        ASSERT_FALSE(result.bError);
        EXPECT_EQ(result.nWidth * result.nHeight * 3, row.nOutputBytes);
        EXPECT_TRUE(OutputInsideReportedSize(result));
        // A P picture keeps the size in force, so it is held to the capacity too.
        wide.SetOutputCapacity(row.nOutputBytes - 1);
        EXPECT_TRUE(decode({0x00, 0x00, 0x84, 0x00}).bError);
        EXPECT_EQ(output[0], kGuard);
    }
}

TEST_F(DecoderRecords, StartCodeIsFoundUpToBitOffset160)
{
    const Record record = MakeRecords(96, 64, 1, 8)[0];
    ASSERT_FALSE(Decode(record).bError);
    const std::vector<BYTE> planes = decoder.AllPlanes();
    // Offsets that keep the 16-bit alignment give the same picture.
    const std::string strBits = BitString(record);
    CTestDecoder shifted;
    ASSERT_TRUE(shifted.Create(STREAM_REVISION_20020114));
    shifted.m_bUseMMX = decoder.m_bUseMMX;
    EXPECT_FALSE(shifted.DecodeOneFrame(PackBits(std::string(160, '0') + strBits).data(),
                                        static_cast<int>(record.size() + 20), output.data(), FALSE).bError);
    EXPECT_EQ(shifted.AllPlanes(), planes);
    std::fill(output.begin(), output.end(), kGuard);
    const Record late = PackBits(std::string(161, '0') + strBits);
    const DECODER_RETURN result = shifted.DecodeOneFrame(late.data(), static_cast<int>(late.size()), output.data(), FALSE);
    EXPECT_TRUE(result.bError);
    EXPECT_EQ(result.nFrameType, 0);
    EXPECT_EQ(output[0], kGuard);
    EXPECT_TRUE(Decode({}).bError);
    // No start code in the first 161 bits ends the record, even where a P picture that
    // repeats the last one follows.
    EXPECT_TRUE(Decode(PackBits(std::string(161, '1') + "100")).bError);
}

TEST_F(DecoderRecords, IntraDcOfZeroIsTakenAnd128EndsThePicture)
{
    ASSERT_FALSE(Decode(PackBits(IHeader(32, 16, 4) + FlatMacroblock(50) + FlatMacroblock(50))).bError);
    // DC 0 on the first macroblock is taken.
    ASSERT_FALSE(Decode(PackBits(IHeader(32, 16, 4) + FlatMacroblock(0) + FlatMacroblock(90))).bError);
    EXPECT_EQ(decoder.Decoded(32, 16).Luma(0, 0), 0);
    EXPECT_EQ(decoder.Decoded(32, 16).Luma(16, 0), 90);
    // DC 128 on the second macroblock fails; the first one stays decoded.
    const DECODER_RETURN result = Decode(PackBits(IHeader(32, 16, 4) + FlatMacroblock(120) + FlatMacroblock(128)));
    EXPECT_TRUE(result.bError);
    CPlanes planes = decoder.Decoded(32, 16);
    EXPECT_EQ(planes.Luma(5, 5), 120);
    EXPECT_EQ(planes.Luma(20, 5), 90);
    EXPECT_EQ(output[0], 120 + 1);   // the partly decoded picture is shown
}

TEST_F(DecoderRecords, EventsMayEndAtPosition63ButNotBeyond)
{
    // Pattern: block 0 only. Its DC, then one event: ESCAPE, LAST, RUN, LEVEL.
    const tag_VLCCODE cbpy = g_vlcCBPY[8];
    const auto macroblock = [&](const std::string& strEvents) {
        return Bits(cbpy.wCode, cbpy.byLength) + "00" + Bits(100, 8) + strEvents + Bits(100, 8) + Bits(100, 8) +
               Bits(100, 8) + Bits(255, 8) + Bits(255, 8);
    };
    const std::string strEscape = "0000011";
    const struct {
        std::string strEvents;
        bool bError;
    } rows[] = {{strEscape + "1" + Bits(62, 6) + Bits(1, 8), false},
                {strEscape + "1" + Bits(63, 6) + Bits(1, 8), true},
                {strEscape + "0" + Bits(62, 6) + Bits(1, 8) + "0111" "0", true},
                {strEscape + "1" + Bits(3, 6) + Bits(0, 8), false},     // ESCAPE levels 0 and 128
                {strEscape + "1" + Bits(3, 6) + Bits(128, 8), false},   // are accepted
                {"000000000111", true}};                                // nine zeros start no code
    for (const auto& row : rows) {
        SCOPED_TRACE(row.strEvents);
        EXPECT_EQ(Decode(PackBits(IHeader(16, 16, 4) + macroblock(row.strEvents))).bError, row.bError);
    }
}

TEST_F(DecoderRecords, PaddingAfterTheLastMacroblockIsIgnored)
{
    const std::string strPicture = IHeader(16, 16, 4) + FlatMacroblock(77);
    ASSERT_FALSE(Decode(PackBits(strPicture)).bError);
    const std::vector<BYTE> planes = decoder.AllPlanes();
    const std::vector<BYTE> shown(output.begin(), output.begin() + 16 * 16 * 3);
    EXPECT_FALSE(Decode(PackBits(strPicture + "1011011011")).bError);
    EXPECT_EQ(decoder.AllPlanes(), planes);
    EXPECT_EQ(std::vector<BYTE>(output.begin(), output.begin() + 16 * 16 * 3), shown);
}

TEST_F(DecoderRecords, EveryPrefixOfRealRecordsStaysInsideTheOutput)
{
    const std::vector<Record> records = MakeRecords(64, 48, 3, 3);
    for (const Record& record : records) {
        for (std::size_t nLength = 0; nLength <= record.size(); ++nLength) {
            // An exact-size copy, so that a read past its end is caught by the sanitizer.
            const Record prefix(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(nLength));
            const DECODER_RETURN result = Decode(prefix);
            ASSERT_TRUE(OutputInsideReportedSize(result)) << nLength;
            if (nLength < 4) {
                EXPECT_TRUE(result.bError);
            }
        }
    }
}

TEST_F(DecoderRecords, RandomBitFlipsNeverWriteOutsideTheOutput)
{
    const std::vector<Record> records = MakeRecords(96, 64, 4, 4);
    CRandom random(99);
    int nErrors = 0;
    for (int n = 0; n < 1500; ++n) {
        Record record = records[static_cast<std::size_t>(n) % records.size()];
        const int nFlips = 1 + random.Uniform(0, 4);
        for (int k = 0; k < nFlips; ++k) {
            const std::size_t nBit = random.Next() % (record.size() * 8);
            record[nBit / 8] = static_cast<BYTE>(record[nBit / 8] ^ (0x80 >> (nBit % 8)));
        }
        const DECODER_RETURN result = Decode(record);
        nErrors += result.bError;
        ASSERT_TRUE(OutputInsideReportedSize(result)) << n;
    }
    EXPECT_GT(nErrors, 100);   // the corruptions were seen, not silently skipped
}
