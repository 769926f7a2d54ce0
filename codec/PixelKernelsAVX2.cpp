// The AVX2 forms of the pixel kernels, each giving the bits of its plain form: the packed
// frame to planes and the planes to blue, green, red, 32 pixels a step.
#include "codec/KernelTable.h"

#if ZNDVR_KERNELS_X86

#include "codec/CodecTypes.h"
#include "codec/KernelTargets.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <immintrin.h>

ZNDVR_BEGIN_TARGET_AVX2

#include "codec/PixelKernelParts.h"

namespace {

constexpr int kPixelsPerStep = 32;

__m256i Load32(const BYTE* pby)
{
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pby));
}

__m128i Load16(const BYTE* pby)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pby));
}

void Store16(BYTE* pby, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pby), v);
}

// The 64-bit quarters in the order 0, 2, 1, 3, which undoes the in-lane order of a pack.
__m256i InOrder(__m256i v)
{
    return _mm256_permute4x64_epi64(v, 0xD8);
}

// ---- Packed frame to planes -----------------------------------------------------------

// 32 pixels of two rows: the Y of each row, and the truncating means of their U and V.
void ConvertPixelPairsAVX2(const BYTE* pbyA, const BYTE* pbyB, BYTE* pbyYA, BYTE* pbyYB, BYTE* pbyU, BYTE* pbyV)
{
    const __m256i lowByte = _mm256_set1_epi16(0x00FF);
    const __m256i a0 = Load32(pbyA);
    const __m256i a1 = Load32(pbyA + 32);
    const __m256i b0 = Load32(pbyB);
    const __m256i b1 = Load32(pbyB + 32);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pbyYA),
                        InOrder(_mm256_packus_epi16(_mm256_srli_epi16(a0, 8), _mm256_srli_epi16(a1, 8))));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(pbyYB),
                        InOrder(_mm256_packus_epi16(_mm256_srli_epi16(b0, 8), _mm256_srli_epi16(b1, 8))));
    // U and V alternate in the low bytes of the 16-bit lanes.
    const __m256i mean0 =
        _mm256_srli_epi16(_mm256_add_epi16(_mm256_and_si256(a0, lowByte), _mm256_and_si256(b0, lowByte)), 1);
    const __m256i mean1 =
        _mm256_srli_epi16(_mm256_add_epi16(_mm256_and_si256(a1, lowByte), _mm256_and_si256(b1, lowByte)), 1);
    const __m256i chroma = InOrder(_mm256_packus_epi16(mean0, mean1));
    const __m256i planes =
        InOrder(_mm256_packus_epi16(_mm256_and_si256(chroma, lowByte), _mm256_srli_epi16(chroma, 8)));
    Store16(pbyU, _mm256_castsi256_si128(planes));
    Store16(pbyV, _mm256_extracti128_si256(planes, 1));
}

void UYVYToYUV420AVX2(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight)
{
    const std::ptrdiff_t nRowBytes = 2 * static_cast<std::ptrdiff_t>(nWidth);
    const int nSimd = nWidth / kPixelsPerStep * kPixelsPerStep;
    for (int r = 0; r < nHeight / 2; ++r) {
        const BYTE* pbyA = pbyFrame + 2 * r * nRowBytes;
        const BYTE* pbyB = pbyA + nRowBytes;
        BYTE* pbyYA = img.Y + static_cast<std::ptrdiff_t>(2 * r) * nWidth;
        BYTE* pbyYB = pbyYA + nWidth;
        BYTE* pbyU = img.U + static_cast<std::ptrdiff_t>(r) * (nWidth / 2);
        BYTE* pbyV = img.V + static_cast<std::ptrdiff_t>(r) * (nWidth / 2);
        for (int x = 0; x < nSimd; x += kPixelsPerStep)
            ConvertPixelPairsAVX2(pbyA + 2 * x, pbyB + 2 * x, pbyYA + x, pbyYB + x, pbyU + x / 2, pbyV + x / 2);
        ConvertPixelPairs(pbyA, pbyB, pbyYA, pbyYB, pbyU, pbyV, nSimd, nWidth);
    }
}

// ---- Planes to blue, green, red ---------------------------------------------------------

__m256i PairConstant(short nFirst, short nSecond)
{
    return _mm256_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nFirst))
                             | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nSecond)) << 16));
}

// (a * nScale + nWith * nOffset) >> nShift per 16-bit lane, exact in 32 bits; the lanes
// come back in their order, as unpacking and packing both stay within each half.
__m256i ScaleLanes(__m256i a, __m256i with, __m256i pair, int nShift)
{
    const __m256i lo = _mm256_madd_epi16(_mm256_unpacklo_epi16(a, with), pair);
    const __m256i hi = _mm256_madd_epi16(_mm256_unpackhi_epi16(a, with), pair);
    const __m128i shift = _mm_cvtsi32_si128(nShift);
    return _mm256_packs_epi32(_mm256_sra_epi32(lo, shift), _mm256_sra_epi32(hi, shift));
}

// Byte k of the 48 bytes B G R B G R ... of 16 pixels comes from pixel k / 3 of channel
// k % 3. Each 16 bytes of output take their bytes from each channel by one shuffle;
// an index of -1 takes nothing.
struct tag_SHUFFLES {
    __m256i from[3][3];   // [output part][channel]
};

tag_SHUFFLES MakeShuffles()
{
    tag_SHUFFLES shuffles;
    for (int nPart = 0; nPart < 3; ++nPart) {
        for (int nChannel = 0; nChannel < 3; ++nChannel) {
            alignas(32) signed char index[32];
            for (int k = 0; k < 16; ++k) {
                const int nByte = 16 * nPart + k;
                index[k] = index[k + 16] = nByte % 3 == nChannel ? static_cast<signed char>(nByte / 3) : -1;
            }
            shuffles.from[nPart][nChannel] = _mm256_load_si256(reinterpret_cast<const __m256i*>(index));
        }
    }
    return shuffles;
}

// 32 pixels of B, G, R bytes, 16 in each half, to 96 bytes.
void StorePixels(BYTE* pbyDst, const tag_SHUFFLES& shuffles, __m256i b, __m256i g, __m256i r)
{
    __m256i parts[3];
    for (int nPart = 0; nPart < 3; ++nPart) {
        parts[nPart] = _mm256_or_si256(_mm256_or_si256(_mm256_shuffle_epi8(b, shuffles.from[nPart][0]),
                                                       _mm256_shuffle_epi8(g, shuffles.from[nPart][1])),
                                       _mm256_shuffle_epi8(r, shuffles.from[nPart][2]));
    }
    for (int nPart = 0; nPart < 3; ++nPart) {
        Store16(pbyDst + 16 * nPart, _mm256_castsi256_si128(parts[nPart]));
        Store16(pbyDst + 48 + 16 * nPart, _mm256_extracti128_si256(parts[nPart], 1));
    }
}

// The chroma terms of 32 pixels, TB, TR and TG as 16 values each, one per pixel pair.
struct tag_CHROMATERMS {
    __m256i tb;
    __m256i tr;
    __m256i tg;
};

tag_CHROMATERMS ChromaTerms(const BYTE* pbyU, const BYTE* pbyV)
{
    const __m256i ones = _mm256_set1_epi16(1);
    const __m256i twos = _mm256_set1_epi16(2);
    const __m256i centre = _mm256_set1_epi16(128);
    const __m256i greenZero = _mm256_set1_epi16(2 * kGreenZero);
    const __m256i u = _mm256_cvtepu8_epi16(Load16(pbyU));
    const __m256i v = _mm256_cvtepu8_epi16(Load16(pbyV));
    return {ScaleLanes(_mm256_sub_epi16(u, centre), ones, PairConstant(kBlueScale, kBlueOffset), kColourShift),
            ScaleLanes(_mm256_sub_epi16(v, centre), ones, PairConstant(kRedScale, kRedOffset), kColourShift),
            ScaleLanes(_mm256_sub_epi16(_mm256_sub_epi16(greenZero, u), v), twos,
                       PairConstant(kGreenWeight, kGreenOffset), 16)};
}

// 32 pixels of one row from their luma and chroma terms. Unpacking within halves pairs
// pixels 0-7 and 16-23 in lo, 8-15 and 24-31 in hi, for the luma as for the doubled
// chroma; packing puts them back in order.
void ConvertPixelsAVX2(BYTE* pbyDst, const BYTE* pbyY, const tag_CHROMATERMS& terms, const tag_SHUFFLES& shuffles)
{
    const __m256i zero = _mm256_setzero_si256();
    const __m256i y = Load32(pbyY);
    const __m256i yLo = _mm256_unpacklo_epi8(y, zero);
    const __m256i yHi = _mm256_unpackhi_epi8(y, zero);
    const auto channel = [&](__m256i t) {
        return _mm256_packus_epi16(_mm256_add_epi16(yLo, _mm256_unpacklo_epi16(t, t)),
                                   _mm256_add_epi16(yHi, _mm256_unpackhi_epi16(t, t)));
    };
    StorePixels(pbyDst, shuffles, channel(terms.tb), channel(terms.tg), channel(terms.tr));
}

// Two rows share their chroma, so its terms are formed once for both. Whole steps of
// 32 pixels run in AVX2, the rest of a row in the plain loop.
void YUVToRGB24AVX2(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    const tag_SHUFFLES shuffles = MakeShuffles();
    const int nSimd = nWidth / kPixelsPerStep * kPixelsPerStep;
    for (int y = 0; y < nHeight; y += 2) {
        const tag_ROWPOINTERS first = RowOf(pbyDst, img, nWidth, y);
        const tag_ROWPOINTERS second = RowOf(pbyDst, img, nWidth, y + 1);
        for (int x = 0; x < nSimd; x += kPixelsPerStep) {
            const tag_CHROMATERMS terms = ChromaTerms(first.pbyU + x / 2, first.pbyV + x / 2);
            ConvertPixelsAVX2(first.pbyDst + 3 * static_cast<std::ptrdiff_t>(x), first.pbyY + x, terms, shuffles);
            ConvertPixelsAVX2(second.pbyDst + 3 * static_cast<std::ptrdiff_t>(x), second.pbyY + x, terms, shuffles);
        }
        ConvertPixels(first.pbyDst, first.pbyY, first.pbyU, first.pbyV, nSimd, nWidth);
        ConvertPixels(second.pbyDst, second.pbyY, second.pbyU, second.pbyV, nSimd, nWidth);
    }
}

} // namespace

ZNDVR_END_TARGET

void FillPixelKernelsAVX2(tag_KERNELTABLE& table)
{
    table.pfnUYVYToYUV420 = UYVYToYUV420AVX2;
    table.pfnYUVToRGB24 = YUVToRGB24AVX2;
}

#endif
