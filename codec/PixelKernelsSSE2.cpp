// The SSE2 forms of the pixel kernels, each giving the bits of its plain form: the loads
// and stores of macroblocks in blocks, and both colour conversions.
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

__m128i LoadShorts(const short* ps)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(ps));
}

void StoreShorts(short* ps, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i*>(ps), v);
}

// Eight bytes widened to 16 bits.
__m128i WidenHalf(const BYTE* pby)
{
    return _mm_unpacklo_epi8(LoadHalf(pby), _mm_setzero_si128());
}

// ---- Macroblocks in blocks --------------------------------------------------------------

void LoadMBSSE2(const IMAGE& img, int nCol, int nRow, int nWidth, short* psBlocks)
{
    const tag_MBPLANES planes = LocateMB(nCol, nRow, img, nWidth);
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const tag_BLOCKPLACE place = LocateBlock(planes, b);
        for (int r = 0; r < BLOCK_SIZE; ++r)
            StoreShorts(psBlocks + BLOCK_SAMPLES * b + BLOCK_SIZE * r, WidenHalf(place.pby + r * place.nStride));
    }
}

void LoadDifferenceMBSSE2(const IMAGE& img, const IMAGE& imgReference, int nCol, int nRow, int nWidth,
                          short* psBlocks)
{
    const tag_MBPLANES planes = LocateMB(nCol, nRow, img, nWidth);
    const tag_MBPLANES reference = LocateMB(nCol, nRow, imgReference, nWidth);
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const tag_BLOCKPLACE place = LocateBlock(planes, b);
        const tag_BLOCKPLACE referencePlace = LocateBlock(reference, b);
        for (int r = 0; r < BLOCK_SIZE; ++r) {
            const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * place.nStride;
            StoreShorts(psBlocks + BLOCK_SAMPLES * b + BLOCK_SIZE * r,
                        _mm_sub_epi16(WidenHalf(place.pby + nOffset), WidenHalf(referencePlace.pby + nOffset)));
        }
    }
}

// Narrowing with unsigned saturation is the clip to 0..255.
void StoreMBSSE2(const short* psBlocks, const IMAGE& img, int nCol, int nRow, int nWidth)
{
    const tag_MBPLANES planes = LocateMB(nCol, nRow, img, nWidth);
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const tag_BLOCKPLACE place = LocateBlock(planes, b);
        for (int r = 0; r < BLOCK_SIZE; r += 2) {
            const short* psRow = psBlocks + BLOCK_SAMPLES * b + BLOCK_SIZE * r;
            const __m128i bytes = _mm_packus_epi16(LoadShorts(psRow), LoadShorts(psRow + BLOCK_SIZE));
            StoreHalf(place.pby + r * place.nStride, bytes);
            StoreHalf(place.pby + (r + 1) * place.nStride, _mm_srli_si128(bytes, 8));
        }
    }
}

// The sum wraps in 16 bits, as AddMB does, before the clip.
void StoreSumMBSSE2(const short* psBlocks, int nPattern, const IMAGE& imgReference, const IMAGE& imgTarget, int nCol,
                    int nRow, int nWidth)
{
    const tag_MBPLANES reference = LocateMB(nCol, nRow, imgReference, nWidth);
    const tag_MBPLANES target = LocateMB(nCol, nRow, imgTarget, nWidth);
    for (int b = 0; b < MB_BLOCKS; ++b) {
        const tag_BLOCKPLACE from = LocateBlock(reference, b);
        const tag_BLOCKPLACE to = LocateBlock(target, b);
        const bool bCoded = (nPattern & (1 << (MB_BLOCKS - 1 - b))) != 0;
        if (!bCoded && from.pby == to.pby)
            continue;
        for (int r = 0; r < BLOCK_SIZE; ++r) {
            const std::ptrdiff_t nOffset = static_cast<std::ptrdiff_t>(r) * from.nStride;
            if (!bCoded) {
                StoreHalf(to.pby + nOffset, LoadHalf(from.pby + nOffset));
                continue;
            }
            const __m128i sum =
                _mm_add_epi16(WidenHalf(from.pby + nOffset), LoadShorts(psBlocks + BLOCK_SAMPLES * b + BLOCK_SIZE * r));
            StoreHalf(to.pby + nOffset, _mm_packus_epi16(sum, sum));
        }
    }
}

// ---- Packed frame to planes -----------------------------------------------------------

constexpr int kPixelsPerStep = 16;

// 16 pixels of two rows: the Y of each row, and the truncating means of their U and V.
void ConvertPixelPairsSSE2(const BYTE* pbyA, const BYTE* pbyB, BYTE* pbyYA, BYTE* pbyYB, BYTE* pbyU, BYTE* pbyV)
{
    const __m128i lowByte = _mm_set1_epi16(0x00FF);
    const __m128i a0 = LoadBytes(pbyA);
    const __m128i a1 = LoadBytes(pbyA + 16);
    const __m128i b0 = LoadBytes(pbyB);
    const __m128i b1 = LoadBytes(pbyB + 16);
    StoreBytes(pbyYA, _mm_packus_epi16(_mm_srli_epi16(a0, 8), _mm_srli_epi16(a1, 8)));
    StoreBytes(pbyYB, _mm_packus_epi16(_mm_srli_epi16(b0, 8), _mm_srli_epi16(b1, 8)));
    // U and V alternate in the low bytes of the 16-bit lanes.
    const __m128i mean0 = _mm_srli_epi16(_mm_add_epi16(_mm_and_si128(a0, lowByte), _mm_and_si128(b0, lowByte)), 1);
    const __m128i mean1 = _mm_srli_epi16(_mm_add_epi16(_mm_and_si128(a1, lowByte), _mm_and_si128(b1, lowByte)), 1);
    const __m128i chroma = _mm_packus_epi16(mean0, mean1);
    const __m128i zero = _mm_setzero_si128();
    StoreHalf(pbyU, _mm_packus_epi16(_mm_and_si128(chroma, lowByte), zero));
    StoreHalf(pbyV, _mm_packus_epi16(_mm_srli_epi16(chroma, 8), zero));
}

// Whole steps of 16 pixels of each pair of rows run in SSE2, the rest of a row in the
// plain loop.
void UYVYToYUV420SSE2(const BYTE* pbyFrame, const IMAGE& img, int nWidth, int nHeight)
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
            ConvertPixelPairsSSE2(pbyA + 2 * x, pbyB + 2 * x, pbyYA + x, pbyYB + x, pbyU + x / 2, pbyV + x / 2);
        ConvertPixelPairs(pbyA, pbyB, pbyYA, pbyYB, pbyU, pbyV, nSimd, nWidth);
    }
}

// ---- Planes to blue, green, red ---------------------------------------------------------

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

// Whole steps of 16 pixels run in SSE2; the rest of a row runs the plain loop. A step's
// stores reach 2 bytes past its pixels, into the next pixels, which are written
// afterwards; the picture's last step would reach past the end and runs the plain loop.
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

void FillPixelKernelsSSE2(tag_KERNELTABLE& table)
{
    table.pfnLoadMB = LoadMBSSE2;
    table.pfnLoadDifferenceMB = LoadDifferenceMBSSE2;
    table.pfnStoreMB = StoreMBSSE2;
    table.pfnStoreSumMB = StoreSumMBSSE2;
    table.pfnUYVYToYUV420 = UYVYToYUV420SSE2;
    table.pfnYUVToRGB24 = YUVToRGB24SSE2;
}

#endif
