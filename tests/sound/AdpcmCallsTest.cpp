// The call contract of the speech codec: directions, lengths, limits, the packing of
// codes into bytes, and a stream that doesn't depend on how it is cut into calls.
#include "AdpcmSignals.h"
#include "sound/CAdpcm.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <new>
#include <memory>
#include <random>
#include <vector>

namespace {

// While set, the nothrow array allocations of this program fail, so that a test sees
// what an object does without its buffer.
std::atomic<bool> g_bRefuseArrays{false};

} // namespace

void* operator new[](std::size_t nSize, const std::nothrow_t&) noexcept
{
    if (g_bRefuseArrays.load())
        return nullptr;
    try {
        return ::operator new[](nSize);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

constexpr BYTE kGuardByte = 0xA5;
constexpr short kGuardSample = 0x5A5A;
constexpr std::size_t kGuard = 32;

std::unique_ptr<CAdpcm> MakeCodec(int nMode)
{
    auto pCodec = std::make_unique<CAdpcm>();
    EXPECT_EQ(pCodec->Init(nMode), 1);
    return pCodec;
}

int CodeBytesOf(int nSamples)
{
    return nSamples / CAdpcm::kSamplesPerGroup * CAdpcm::kBytesPerGroup;
}

int SamplesOf(int nBytes)
{
    return nBytes / CAdpcm::kBytesPerGroup * CAdpcm::kSamplesPerGroup;
}

// Output buffer of the given size followed by guard values, to see what a call wrote.
template <typename T>
std::vector<T> Guarded(std::size_t nSize, T guard)
{
    return std::vector<T>(nSize + kGuard, guard);
}

template <typename T>
bool GuardIntact(const std::vector<T>& buffer, std::size_t nFrom, T guard)
{
    return std::all_of(buffer.begin() + static_cast<std::ptrdiff_t>(nFrom), buffer.end(),
                       [guard](T value) { return value == guard; });
}

std::vector<BYTE> EncodeAll(CAdpcm& encoder, const std::vector<short>& pcm)
{
    std::vector<BYTE> code(static_cast<std::size_t>(CodeBytesOf(static_cast<int>(pcm.size()))));
    EXPECT_EQ(encoder.Encode(pcm.data(), code.data(), static_cast<int>(pcm.size()), 0), 1);
    return code;
}

std::vector<short> DecodeAll(CAdpcm& decoder, const std::vector<BYTE>& code)
{
    std::vector<short> pcm(static_cast<std::size_t>(SamplesOf(static_cast<int>(code.size()))));
    EXPECT_EQ(decoder.Decode(code.data(), pcm.data(), static_cast<int>(code.size()), 0), 1);
    return pcm;
}

// Packs codes three bytes to eight codes, from the low bit upward, byte by byte as the
// code stream lays them out.
std::vector<BYTE> PackByLayout(const std::vector<int>& codes)
{
    std::vector<BYTE> bytes;
    for (std::size_t g = 0; g + 8 <= codes.size(); g += 8) {
        const int* c = &codes[g];
        bytes.push_back(static_cast<BYTE>(c[0] | c[1] << 3 | (c[2] & 3) << 6));
        bytes.push_back(static_cast<BYTE>(c[2] >> 2 | c[3] << 1 | c[4] << 4 | (c[5] & 1) << 7));
        bytes.push_back(static_cast<BYTE>(c[5] >> 1 | c[6] << 2 | c[7] << 5));
    }
    return bytes;
}

TEST(AdpcmPacking, EncoderPacksCodesFromTheLowBitUpward)
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(800, 3);
    tag_G72XSTATE state;
    CAdpcm::InitState(state);
    std::vector<int> codes;
    for (short sample : pcm)
        codes.push_back(CAdpcm::EncodeSample(sample, state));
    // A signal that uses every code the quantizer gives (it never gives 0, which would
    // be a positive zero), so that each bit of each position is exercised.
    for (int code = 1; code < 8; ++code)
        ASSERT_NE(std::find(codes.begin(), codes.end(), code), codes.end()) << "code " << code;

    auto pEncoder = MakeCodec(CAdpcm::kModeEncoder);
    EXPECT_EQ(EncodeAll(*pEncoder, pcm), PackByLayout(codes));
}

TEST(AdpcmPacking, DecoderUnpacksCodesFromTheLowBitUpward)
{
    // Every code once in each position of a group, the first sample in the low bits.
    std::vector<int> codes;
    for (int rotation = 0; rotation < 8; ++rotation) {
        for (int k = 0; k < 8; ++k)
            codes.push_back((k * 3 + rotation) % 8);
    }
    tag_G72XSTATE state;
    CAdpcm::InitState(state);
    std::vector<short> expected;
    for (int code : codes)
        expected.push_back(CAdpcm::DecodeSample(code, state));

    auto pDecoder = MakeCodec(CAdpcm::kModeDecoder);
    EXPECT_EQ(DecodeAll(*pDecoder, PackByLayout(codes)), expected);
}

// A board block and the limit of one call: exactly 3 bytes for 8 samples and back,
// nothing written past them.
TEST(AdpcmCalls, WholeGroupsUpToTheLimitFillExactlyTheirLength)
{
    for (int nSamples : {960, CAdpcm::kMaxSamples}) {
        const int nBytes = CodeBytesOf(nSamples);
        std::vector<short> pcm = adpcm_signals::SpeechLike(nSamples, 4);
        auto pEncoder = MakeCodec(CAdpcm::kModeEncoder);
        auto code = Guarded<BYTE>(static_cast<std::size_t>(nBytes), kGuardByte);
        ASSERT_EQ(pEncoder->Encode(pcm.data(), code.data(), nSamples, 0), 1);
        EXPECT_TRUE(GuardIntact(code, static_cast<std::size_t>(nBytes), kGuardByte)) << nSamples;

        auto pDecoder = MakeCodec(CAdpcm::kModeDecoder);
        auto decoded = Guarded<short>(static_cast<std::size_t>(nSamples), kGuardSample);
        ASSERT_EQ(pDecoder->Decode(code.data(), decoded.data(), nBytes, 0), 1);
        EXPECT_TRUE(GuardIntact(decoded, static_cast<std::size_t>(nSamples), kGuardSample)) << nSamples;
        EXPECT_GT(adpcm_signals::SnrDb(pcm, std::span<const short>(decoded.data(), pcm.size())), 10.0);
    }
}

// A refused call must write nothing and leave the predictor where it was: the stream
// that follows is the one of an object that never saw the call. A call of no samples
// succeeds, with or without buffers, and writes nothing either.
TEST(AdpcmCalls, EncoderRefusalsWriteNothingAndKeepTheState)
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(CAdpcm::kMaxSamples + 64, 6);
    std::vector<short> head(pcm.begin(), pcm.begin() + 480);
    std::vector<short> tail(pcm.begin() + 480, pcm.begin() + 960);

    auto pReference = MakeCodec(CAdpcm::kModeEncoder);
    EncodeAll(*pReference, head);
    std::vector<BYTE> expected = EncodeAll(*pReference, tail);

    auto pEncoder = MakeCodec(CAdpcm::kModeEncoder);
    EncodeAll(*pEncoder, head);
    const int refusedLengths[] = {12, 7, 1, -8, -24000, CAdpcm::kMaxSamples + 8, CAdpcm::kMaxSamples + 64};
    for (int nSamples : refusedLengths) {
        auto code = Guarded<BYTE>(CAdpcm::kMaxCodeBytes, kGuardByte);
        EXPECT_EQ(pEncoder->Encode(pcm.data(), code.data(), nSamples, 0), 0) << nSamples;
        EXPECT_TRUE(GuardIntact(code, 0, kGuardByte)) << nSamples;
    }
    BYTE byte = 0;
    EXPECT_EQ(pEncoder->Encode(nullptr, &byte, 8, 0), 0);
    EXPECT_EQ(pEncoder->Encode(pcm.data(), nullptr, 8, 0), 0);
    auto empty = Guarded<BYTE>(0, kGuardByte);
    EXPECT_EQ(pEncoder->Encode(pcm.data(), empty.data(), 0, 0), 1);
    EXPECT_EQ(pEncoder->Encode(nullptr, nullptr, 0, 0), 1);
    EXPECT_TRUE(GuardIntact(empty, 0, kGuardByte));
    std::vector<BYTE> oneGroup(3);
    EXPECT_EQ(pEncoder->Decode(oneGroup.data(), pcm.data(), 3, 0), 0);

    EXPECT_EQ(EncodeAll(*pEncoder, tail), expected);
}

TEST(AdpcmCalls, DecoderRefusalsWriteNothingAndKeepTheState)
{
    std::vector<BYTE> code(CAdpcm::kMaxCodeBytes + 30);
    std::mt19937 generator(7);
    for (BYTE& byte : code)
        byte = static_cast<BYTE>(generator());
    std::vector<BYTE> head(code.begin(), code.begin() + 180);
    std::vector<BYTE> tail(code.begin() + 180, code.begin() + 360);

    auto pReference = MakeCodec(CAdpcm::kModeDecoder);
    DecodeAll(*pReference, head);
    std::vector<short> expected = DecodeAll(*pReference, tail);

    auto pDecoder = MakeCodec(CAdpcm::kModeDecoder);
    DecodeAll(*pDecoder, head);
    const int refusedLengths[] = {4, 2, 1, -3, -9000, CAdpcm::kMaxCodeBytes + 3, CAdpcm::kMaxCodeBytes + 30};
    for (int nBytes : refusedLengths) {
        auto pcm = Guarded<short>(static_cast<std::size_t>(SamplesOf(CAdpcm::kMaxCodeBytes + 30)), kGuardSample);
        EXPECT_EQ(pDecoder->Decode(code.data(), pcm.data(), nBytes, 0), 0) << nBytes;
        EXPECT_TRUE(GuardIntact(pcm, 0, kGuardSample)) << nBytes;
    }
    short sample = 0;
    EXPECT_EQ(pDecoder->Decode(nullptr, &sample, 3, 0), 0);
    EXPECT_EQ(pDecoder->Decode(code.data(), nullptr, 3, 0), 0);
    auto empty = Guarded<short>(0, kGuardSample);
    EXPECT_EQ(pDecoder->Decode(code.data(), empty.data(), 0, 0), 1);
    EXPECT_EQ(pDecoder->Decode(nullptr, nullptr, 0, 0), 1);
    EXPECT_TRUE(GuardIntact(empty, 0, kGuardSample));
    std::vector<short> oneGroup(8);
    std::vector<BYTE> encoded(3, kGuardByte);
    EXPECT_EQ(pDecoder->Encode(oneGroup.data(), encoded.data(), 8, 0), 0);
    EXPECT_EQ(encoded, std::vector<BYTE>(3, kGuardByte));

    EXPECT_EQ(DecodeAll(*pDecoder, tail), expected);
}

TEST(AdpcmInit, SecondInitInTheSameDirectionKeepsThePredictor)
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(1920, 8);
    std::vector<short> head(pcm.begin(), pcm.begin() + 960);
    std::vector<short> tail(pcm.begin() + 960, pcm.end());

    auto pContinuing = MakeCodec(CAdpcm::kModeEncoder);
    EncodeAll(*pContinuing, head);
    std::vector<BYTE> continued = EncodeAll(*pContinuing, tail);

    auto pFresh = MakeCodec(CAdpcm::kModeEncoder);
    std::vector<BYTE> fromReset = EncodeAll(*pFresh, tail);
    ASSERT_NE(continued, fromReset) << "the signal must tell a reset predictor apart";

    auto pEncoder = MakeCodec(CAdpcm::kModeEncoder);
    EncodeAll(*pEncoder, head);
    EXPECT_EQ(pEncoder->Init(CAdpcm::kModeEncoder), 0);
    EXPECT_EQ(EncodeAll(*pEncoder, tail), continued);

    std::vector<BYTE> code = EncodeAll(*MakeCodec(CAdpcm::kModeEncoder), pcm);
    std::vector<BYTE> codeHead(code.begin(), code.begin() + 360);
    std::vector<BYTE> codeTail(code.begin() + 360, code.end());
    auto pContinuingDecoder = MakeCodec(CAdpcm::kModeDecoder);
    DecodeAll(*pContinuingDecoder, codeHead);
    std::vector<short> decodedTail = DecodeAll(*pContinuingDecoder, codeTail);

    auto pDecoder = MakeCodec(CAdpcm::kModeDecoder);
    DecodeAll(*pDecoder, codeHead);
    EXPECT_EQ(pDecoder->Init(CAdpcm::kModeDecoder), 0);
    EXPECT_EQ(DecodeAll(*pDecoder, codeTail), decodedTail);
}

// Never initialised, an unknown direction, or a buffer that couldn't be allocated:
// the object codes nothing, and a later Init can still make it.
TEST(AdpcmInit, ObjectWithoutDirectionRefusesEverything)
{
    std::vector<short> pcm(8, 1000);
    std::vector<BYTE> code(3, kGuardByte);

    CAdpcm uninitialised;
    EXPECT_EQ(uninitialised.Encode(pcm.data(), code.data(), 8, 0), 0);
    EXPECT_EQ(uninitialised.Decode(code.data(), pcm.data(), 3, 0), 0);

    CAdpcm unknownDirection;
    EXPECT_EQ(unknownDirection.Init(2), 0);
    EXPECT_EQ(unknownDirection.Init(-1), 0);
    EXPECT_EQ(unknownDirection.Encode(pcm.data(), code.data(), 8, 0), 0);
    EXPECT_EQ(unknownDirection.Decode(code.data(), pcm.data(), 3, 0), 0);

    CAdpcm unallocated;
    g_bRefuseArrays = true;
    const int nRefused = unallocated.Init(CAdpcm::kModeEncoder);
    g_bRefuseArrays = false;
    EXPECT_EQ(nRefused, 0);
    EXPECT_EQ(unallocated.Encode(pcm.data(), code.data(), 8, 0), 0);
    EXPECT_EQ(code, std::vector<BYTE>(3, kGuardByte));
    EXPECT_EQ(pcm, std::vector<short>(8, 1000));
    EXPECT_EQ(unallocated.Init(CAdpcm::kModeEncoder), 1);
    EXPECT_EQ(unallocated.Encode(pcm.data(), code.data(), 8, 0), 1);
}

// Cuts a length into pieces of whole groups: single groups, board blocks and random sizes.
std::vector<int> CallLengths(int nTotal, int nGroupSize, std::uint32_t dwSeed)
{
    std::mt19937 generator(dwSeed);
    const int fixedGroups[] = {1, 1, 2, 120, 37, 1};
    std::vector<int> lengths;
    int nDone = 0;
    for (std::size_t k = 0; nDone < nTotal; ++k) {
        int nGroups = k < std::size(fixedGroups) ? fixedGroups[k] : 1 + static_cast<int>(generator() % 400);
        int nLength = std::min(nGroups * nGroupSize, nTotal - nDone);
        lengths.push_back(nLength);
        nDone += nLength;
    }
    return lengths;
}

TEST(AdpcmCalls, StreamDoesNotDependOnHowItIsCutIntoCalls)
{
    std::vector<short> pcm = adpcm_signals::SpeechLike(CAdpcm::kMaxSamples, 9);
    std::vector<BYTE> whole = EncodeAll(*MakeCodec(CAdpcm::kModeEncoder), pcm);

    auto pEncoder = MakeCodec(CAdpcm::kModeEncoder);
    std::vector<BYTE> pieces(whole.size());
    int nSample = 0;
    for (int nLength : CallLengths(CAdpcm::kMaxSamples, CAdpcm::kSamplesPerGroup, 10)) {
        ASSERT_EQ(pEncoder->Encode(pcm.data() + nSample, pieces.data() + CodeBytesOf(nSample), nLength, 0), 1);
        nSample += nLength;
    }
    EXPECT_EQ(pieces, whole);

    std::vector<short> decodedWhole = DecodeAll(*MakeCodec(CAdpcm::kModeDecoder), whole);
    auto pDecoder = MakeCodec(CAdpcm::kModeDecoder);
    std::vector<short> decodedPieces(decodedWhole.size());
    int nByte = 0;
    for (int nLength : CallLengths(CAdpcm::kMaxCodeBytes, CAdpcm::kBytesPerGroup, 11)) {
        ASSERT_EQ(pDecoder->Decode(whole.data() + nByte, decodedPieces.data() + SamplesOf(nByte), nLength, 0), 1);
        nByte += nLength;
    }
    EXPECT_EQ(decodedPieces, decodedWhole);
}

} // namespace
