// The SIMD forms of the pixel kernels for x86, each giving the bits of its plain form:
// macroblock stores, the 16-bit SAD and the colour conversion in SSE2.
#include "codec/KernelTable.h"

#if ZNDVR_KERNELS_X86

#include "codec/PixelKernelParts.h"

#include <cstdint>

#include <emmintrin.h>

namespace {

__m128i LoadBytes(const BYTE* pby)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(pby));
}

void StoreBytes(BYTE* pby, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(pby), v);
}

__m128i LoadHalf(const BYTE* pby)
{
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pby));
}

void StoreHalf(BYTE* pby, __m128i v)
{
    _mm_storel_epi64(reinterpret_cast<__m128i*>(pby), v);
}

// The low byte of each 16-bit lane of a and b, in order.
__m128i LowBytes(__m128i a, __m128i b)
{
    const __m128i mask = _mm_set1_epi16(0x00FF);
    return _mm_packus_epi16(_mm_and_si128(a, mask), _mm_and_si128(b, mask));
}

void PutMBSSE2(int nCol, int nRow, const IMAGE& img, int nWidth, const YUV_Block* pMB)
{
    const tag_MBPLANES planes = LocateMB(nCol, nRow, img, nWidth);
    for (int r = 0; r < MB_LUMA_SIZE; ++r) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->Y + MB_LUMA_SIZE * r));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->Y + MB_LUMA_SIZE * r + 8));
        StoreBytes(planes.pbyY + static_cast<std::ptrdiff_t>(r) * planes.nLumaStride, LowBytes(a, b));
    }
    for (int r = 0; r < MB_CHROMA_SIZE; r += 2) {
        const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * planes.nChromaStride;
        const __m128i u = LowBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->U + MB_CHROMA_SIZE * r)),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->U + MB_CHROMA_SIZE * (r + 1))));
        const __m128i v = LowBytes(_mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->V + MB_CHROMA_SIZE * r)),
                                   _mm_loadu_si128(reinterpret_cast<const __m128i*>(pMB->V + MB_CHROMA_SIZE * (r + 1))));
        StoreHalf(planes.pbyU + nOffset, u);
        StoreHalf(planes.pbyU + nOffset + planes.nChromaStride, _mm_srli_si128(u, 8));
        StoreHalf(planes.pbyV + nOffset, v);
        StoreHalf(planes.pbyV + nOffset + planes.nChromaStride, _mm_srli_si128(v, 8));
    }
}

int HorizontalSum32(__m128i v)
{
    v = _mm_add_epi32(v, _mm_srli_si128(v, 8));
    v = _mm_add_epi32(v, _mm_srli_si128(v, 4));
    return _mm_cvtsi128_si32(v);
}

// |a - b| of 16-bit values is max - min taken as an unsigned 16-bit number, which holds
// even the difference of -32768 and 32767.
int SADMBSSE2(const YUV_Block* pFirst, const YUV_Block* pSecond)
{
    const __m128i zero = _mm_setzero_si128();
    __m128i sum = zero;
    for (int n = 0; n < MB_LUMA_SAMPLES; n += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pFirst->Y + n));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pSecond->Y + n));
        const __m128i diff = _mm_sub_epi16(_mm_max_epi16(a, b), _mm_min_epi16(a, b));
        sum = _mm_add_epi32(sum, _mm_unpacklo_epi16(diff, zero));
        sum = _mm_add_epi32(sum, _mm_unpackhi_epi16(diff, zero));
    }
    return HorizontalSum32(sum);
}

// The colour tables as arithmetic on u = U - 128: (m * u + o) >> 13 reproduces TB and TR
// for all 256 values, and 22554 * (256 - U - V) + 2 * 21491 is TG[U] + TG[V].
constexpr int kColourShift = 13;
constexpr short kBlueScale = 14516;
constexpr short kBlueOffset = 11344;
constexpr short kRedScale = 11485;
constexpr short kRedOffset = 9812;

constexpr bool MatchesTable(const std::array<int, 256>& table, int nScale, int nOffset)
{
    for (int i = 0; i < 256; ++i) {
        if (((nScale * (i - 128) + nOffset) >> kColourShift) != table[i])
            return false;
    }
    return true;
}
static_assert(MatchesTable(kTableB, kBlueScale, kBlueOffset));
static_assert(MatchesTable(kTableR, kRedScale, kRedOffset));

__m128i PairConstant(short nFirst, short nSecond)
{
    return _mm_set1_epi32(static_cast<int>(static_cast<std::uint16_t>(nFirst))
                          | static_cast<int>(static_cast<std::uint32_t>(static_cast<std::uint16_t>(nSecond)) << 16));
}

// (a * nScale + nWith * nOffset) >> nShift per 16-bit lane, exact in 32 bits.
__m128i ScaleLanes(__m128i a, __m128i with, __m128i pair, int nShift)
{
    const __m128i lo = _mm_madd_epi16(_mm_unpacklo_epi16(a, with), pair);
    const __m128i hi = _mm_madd_epi16(_mm_unpackhi_epi16(a, with), pair);
    return _mm_packs_epi32(_mm_srai_epi32(lo, nShift), _mm_srai_epi32(hi, nShift));
}

// 16 pixels of B, G, R bytes to 48 bytes B G R B G R ...; writes 2 bytes past the 48.
void StorePixels(BYTE* pbyDst, __m128i b, __m128i g, __m128i r)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i bgLo = _mm_unpacklo_epi8(b, g);
    const __m128i bgHi = _mm_unpackhi_epi8(b, g);
    const __m128i rLo = _mm_unpacklo_epi8(r, zero);
    const __m128i rHi = _mm_unpackhi_epi8(r, zero);
    const __m128i quads[4] = {_mm_unpacklo_epi16(bgLo, rLo), _mm_unpackhi_epi16(bgLo, rLo),
                              _mm_unpacklo_epi16(bgHi, rHi), _mm_unpackhi_epi16(bgHi, rHi)};
    const __m128i lowPixel = _mm_set1_epi64x(0x0000000000FFFFFF);
    const __m128i highPixel = _mm_set1_epi64x(0x0000FFFFFF000000);
    for (int n = 0; n < 4; ++n) {
        // Two 4-byte pixels per 64-bit half become 6 packed bytes.
        const __m128i packed = _mm_or_si128(_mm_and_si128(quads[n], lowPixel),
                                            _mm_and_si128(_mm_srli_epi64(quads[n], 8), highPixel));
        StoreHalf(pbyDst + 12 * n, packed);
        StoreHalf(pbyDst + 12 * n + 6, _mm_srli_si128(packed, 8));
    }
}

constexpr int kPixelsPerStep = 16;

void ConvertRowSSE2(const tag_ROWPOINTERS& row, int nPixels)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i ones = _mm_set1_epi16(1);
    const __m128i twos = _mm_set1_epi16(2);
    const __m128i centre = _mm_set1_epi16(128);
    const __m128i greenZero = _mm_set1_epi16(2 * kGreenZero);
    const __m128i blue = PairConstant(kBlueScale, kBlueOffset);
    const __m128i red = PairConstant(kRedScale, kRedOffset);
    const __m128i green = PairConstant(kGreenWeight, kGreenOffset);
    for (int x = 0; x < nPixels; x += kPixelsPerStep) {
        const __m128i u = _mm_unpacklo_epi8(LoadHalf(row.pbyU + x / 2), zero);
        const __m128i v = _mm_unpacklo_epi8(LoadHalf(row.pbyV + x / 2), zero);
        const __m128i tb = ScaleLanes(_mm_sub_epi16(u, centre), ones, blue, kColourShift);
        const __m128i tr = ScaleLanes(_mm_sub_epi16(v, centre), ones, red, kColourShift);
        const __m128i tg = ScaleLanes(_mm_sub_epi16(_mm_sub_epi16(greenZero, u), v), twos, green, 16);
        const __m128i y = LoadBytes(row.pbyY + x);
        const __m128i yLo = _mm_unpacklo_epi8(y, zero);
        const __m128i yHi = _mm_unpackhi_epi8(y, zero);
        const auto channel = [&](__m128i t) {
            return _mm_packus_epi16(_mm_add_epi16(yLo, _mm_unpacklo_epi16(t, t)),
                                    _mm_add_epi16(yHi, _mm_unpackhi_epi16(t, t)));
        };
        StorePixels(row.pbyDst + 3 * static_cast<std::ptrdiff_t>(x), channel(tb), channel(tg), channel(tr));
    }
}

// Whole steps of 16 pixels run in SSE2; the rest of a row runs the reference loop. A
// step's stores reach 2 bytes past its pixels, into the next pixels, which are written
// afterwards; the picture's last step would reach past the end and runs the reference
// loop.
void YUVToRGB24SSE2(BYTE* pbyDst, const IMAGE& img, int nWidth, int nHeight)
{
    for (int y = 0; y < nHeight; ++y) {
        const tag_ROWPOINTERS row = RowOf(pbyDst, img, nWidth, y);
        int nSimd = nWidth / kPixelsPerStep * kPixelsPerStep;
        const bool bLastRow = y == nHeight - 1;
        if (bLastRow && nSimd == nWidth && nSimd > 0)
            nSimd -= kPixelsPerStep;
        ConvertRowSSE2(row, nSimd);
        ConvertPixels(row.pbyDst, row.pbyY, row.pbyU, row.pbyV, nSimd, nWidth);
    }
}

} // namespace

void FillPixelKernelsX86(tag_KERNELTABLE& table, DWORD dwFeatures)
{
    if ((dwFeatures & KERNEL_FEATURE_SSE2) == 0)
        return;
    table.pfnPutMB = PutMBSSE2;
    table.pfnSADMB = SADMBSSE2;
    table.pfnYUVToRGB24 = YUVToRGB24SSE2;
}

#endif
